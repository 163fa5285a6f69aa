#ifndef QUILLMERE_CLI_CHANGE_LOG_H_
#define QUILLMERE_CLI_CHANGE_LOG_H_

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "core/repair/repair_result.h"
#include "core/scan/export_kind.h"

namespace quillmere::cli {

// The records of an earlier repair, rebuilt from its run folder: every row of
// "Report/changes.csv", with each copy's capture instant from the log's date and zone, or else
// from the copy itself or its XMP sidecar, and its place from the copy or its sidecar (the log
// holds none). Throws std::runtime_error with a sentence to show when the folder holds no
// readable change log.
RepairResultPtr readChangeLog(const std::filesystem::path& runFolder);

// The kind of export the run repaired, as its README.txt names it; Google Takeout when unknown.
ExportKind runExportKind(const std::filesystem::path& runFolder);

// The records of a CSV text: fields split at commas, quoted fields unquoted, the spreadsheet
// guard (an apostrophe before "=", "+", "-" or "@") taken off. Lines end at a line feed outside
// quotes. Pure.
std::vector<std::vector<std::string>> parseCSV(std::string_view text);

}  // namespace quillmere::cli

#endif  // QUILLMERE_CLI_CHANGE_LOG_H_
