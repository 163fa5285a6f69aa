#ifndef QUILLMERE_CORE_REPAIR_REPAIR_RESULT_H_
#define QUILLMERE_CORE_REPAIR_REPAIR_RESULT_H_

#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

#include "core/repair/repair_row.h"
#include "core/repair/repair_summary.h"

namespace quillmere {

// Everything one repair run produced. Filled by the engine on its own thread, then only read
// (from any thread); callers share it through std::shared_ptr.
class RepairResult {
 public:
  // An empty result for the run folder `outputFolder`; the report folder is its "Report".
  explicit RepairResult(std::filesystem::path outputFolder)
      : outputFolder_(std::move(outputFolder)), reportFolder_(outputFolder_ / "Report") {}
  RepairResult(const RepairResult&) = delete;
  RepairResult& operator=(const RepairResult&) = delete;

  const std::filesystem::path& outputFolder() const { return outputFolder_; }
  const std::filesystem::path& reportFolder() const { return reportFolder_; }

  // In the order the engine made them. Left empty by a run told not to keep them
  // (RepairOptions::keepRows); the report files hold them all the same.
  std::vector<RepairRow> rows;
  RepairSummary summary;          // set once at the end of the run
  std::int64_t itemsReached = 0;  // items taken before the run ended (all but after a cancel)

 private:
  std::filesystem::path outputFolder_;
  std::filesystem::path reportFolder_;
};

using RepairResultPtr = std::shared_ptr<RepairResult>;

}  // namespace quillmere

#endif  // QUILLMERE_CORE_REPAIR_REPAIR_RESULT_H_
