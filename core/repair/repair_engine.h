#ifndef QUILLMERE_CORE_REPAIR_REPAIR_ENGINE_H_
#define QUILLMERE_CORE_REPAIR_REPAIR_ENGINE_H_

#include <filesystem>
#include <functional>
#include <vector>

#include "core/repair/repair_result.h"
#include "core/scan/scan_result.h"
#include "core/scan/work_progress.h"

namespace quillmere {

// What the caller chooses for a repair run.
struct RepairOptions {
  std::filesystem::path destination;  // the run folder is made inside it
  bool albumsAsKeywords = true;       // add the file's album names to its keywords
  // Keep every row in the result as well as in the report files. Rows grow with the export;
  // without them the run's memory stays the same however many files it repairs.
  bool keepRows = true;
  bool operator==(const RepairOptions&) const = default;
};

// Polled before each item; true stops the run after the item in progress.
using CancelQuery = std::function<bool()>;

// Turns a scan result into repaired copies in a new run folder. Stateless.
namespace RepairEngine {

// Repairs every item of `scan` into a new run folder inside `options.destination`. Progress
// and the cancellation query are called on the caller's thread. A cancelled run returns the
// rows it reached, with a summary and report like any other. Throws QuillmereError or the file
// system's error when the run cannot start or its album lists or report cannot be written.
// Items are staged, and their copies written and read back, several at a time on the
// machine's cores; the copies are named in item order, and the rows, report and summary are
// exactly those of a run that did one thing at a time.
RepairResultPtr run(const ScanResult& scan, const RepairOptions& options,
                    const ProgressCallback& progress = {}, const CancelQuery& isCancelled = {});

}  // namespace RepairEngine

}  // namespace quillmere

#endif  // QUILLMERE_CORE_REPAIR_REPAIR_ENGINE_H_
