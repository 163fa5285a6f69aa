#ifndef QUILLMERE_CORE_REPAIR_REPORT_WRITER_H_
#define QUILLMERE_CORE_REPAIR_REPORT_WRITER_H_

#include <string>
#include <string_view>
#include <vector>

#include "core/repair/repair_result.h"
#include "core/repair/repair_row.h"
#include "core/scan/scan_result.h"

namespace quillmere {

// The report of a repair run: "changes.csv", "couldnt-fix.csv" and "summary.json" in the
// report folder, "README.txt" in the run folder.
namespace ReportWriter {

// Writes the four files, each atomically. The first failure is thrown (the file system's
// error) and the remaining files are not written.
void write(const RepairResult& result, const ScanResult& scan);

// The CSV text of `rows`: the header line, then one line per row, each ended by "\n".
std::string csv(const std::vector<RepairRow>& rows);

// One CSV field, quoted and guarded against spreadsheet formulas where needed.
std::string escape(std::string_view text);

// The text of the run folder's README.txt.
std::string readme(const RepairResult& result, const ScanResult& scan);

}  // namespace ReportWriter

}  // namespace quillmere

#endif  // QUILLMERE_CORE_REPAIR_REPORT_WRITER_H_
