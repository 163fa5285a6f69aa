#ifndef QUILLMERE_CORE_REPAIR_REPORT_WRITER_H_
#define QUILLMERE_CORE_REPAIR_REPORT_WRITER_H_

#include <chrono>
#include <filesystem>
#include <memory>
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

// Creates the report folder (with intermediate folders) and writes, in this order,
// "changes.csv" (every row), "couldnt-fix.csv" (rows that couldn't be fixed or failed; the
// header line alone when there are none), "summary.json" and the run folder's "README.txt".
// Each file appears complete or not at all (written under a temporary name in the same folder,
// then renamed). The first failure is thrown (the file system's error) and the remaining files
// are not written; those already written stay.
void write(const RepairResult& result, const ScanResult& scan);

// The two CSV files of a run written row by row as the engine makes them, so that a run need
// not keep its rows for the report: "changes.csv" and "couldnt-fix.csv" grow in a working
// folder and commit() moves them into the report folder, each complete. Their text is exactly
// what write() gives for the same rows. One per run; owns two open files.
class RowFiles {
 public:
  // Creates both working files in `work` (which must exist), each with its header line.
  // Throws the file system's error.
  explicit RowFiles(const std::filesystem::path& work);
  RowFiles(const RowFiles&) = delete;
  RowFiles& operator=(const RowFiles&) = delete;
  ~RowFiles();

  // Appends `row` to "changes.csv" and, when it couldn't be fixed or failed, to
  // "couldnt-fix.csv". A failure to write is kept for commit() to throw; the run goes on.
  void add(const RepairRow& row);

  // Creates `reportFolder` (with intermediate folders) and moves "changes.csv", then
  // "couldnt-fix.csv" into it, replacing earlier ones. Throws the first failure met: a write
  // (as "cannot write file" naming the report file), the folder or a move.
  void commit(const std::filesystem::path& reportFolder);

 private:
  struct File;
  std::unique_ptr<File> changes_;
  std::unique_ptr<File> problems_;
};

// "summary.json" in the report folder and the run folder's "README.txt", in that order, as
// write() does after the CSV files. With `work` (a folder on the same file system), each is
// written there in full and then renamed into place, so a killed run leaves no partial file
// among the output; without, beside its target. Throws the first failure; the report folder
// must exist.
void writeTotals(const RepairResult& result, const ScanResult& scan,
                 const std::filesystem::path& work = {});

// The CSV text of `rows`: the header line, then one line per row, each ended by "\n".
std::string csv(const std::vector<RepairRow>& rows);

// One CSV field. A field whose first character is "=", "+", "-" or "@" gets an apostrophe in
// front, so spreadsheets don't run it as a formula. A field containing a comma, a double quote,
// a line feed or a carriage return (each a character of its own: a CR LF pair is neither) is
// enclosed in double quotes with its double quotes doubled. Anything else, empty text
// included, is kept as it is.
std::string escape(std::string_view text);

// The text of "summary.json": the app's name and version, `createdAt` (ISO 8601 in UTC, whole
// seconds), the scan's inputs and the scan's and repair's counters, keys sorted at every level.
std::string summaryJSON(const RepairResult& result, const ScanResult& scan,
                        std::chrono::system_clock::time_point createdAt);

// The text of the run folder's README.txt: what each folder holds, the run's totals, and the
// credit for the time zone boundary data. No line feed after the last line.
std::string readme(const RepairResult& result, const ScanResult& scan);

}  // namespace ReportWriter

}  // namespace quillmere

#endif  // QUILLMERE_CORE_REPAIR_REPORT_WRITER_H_
