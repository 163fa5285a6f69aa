#ifndef QUILLMERE_CORE_SCAN_SCAN_RESULT_H_
#define QUILLMERE_CORE_SCAN_SCAN_RESULT_H_

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "core/scan/export_kind.h"
#include "core/scan/media_file.h"
#include "core/scan/media_unit.h"
#include "core/scan/scan_summary.h"

namespace quillmere {

// The result of one scan: built by one scanner on one thread, then handed over and treated as
// read-only (apart from the media files' fields that the repair engine updates).
class ScanResult {
 public:
  explicit ScanResult(std::vector<std::filesystem::path> inputs) : inputs(std::move(inputs)) {}
  ScanResult(const ScanResult&) = delete;
  ScanResult& operator=(const ScanResult&) = delete;

  const std::vector<std::filesystem::path> inputs;  // as the user chose them, in order
  ExportKind kind = ExportKind::googleTakeout;
  std::vector<MediaFilePtr> files;  // files[i]->id == i
  std::vector<MediaUnit> units;     // in order of their first file
  // Album name → its files, in file order. Sorted by name so every listing is reproducible.
  std::map<std::string, std::vector<MediaFilePtr>> albums;
  ScanSummary summary;
  std::vector<std::string> warnings;
};

using ScanResultPtr = std::shared_ptr<ScanResult>;

}  // namespace quillmere

#endif  // QUILLMERE_CORE_SCAN_SCAN_RESULT_H_
