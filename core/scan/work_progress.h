#ifndef QUILLMERE_CORE_SCAN_WORK_PROGRESS_H_
#define QUILLMERE_CORE_SCAN_WORK_PROGRESS_H_

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace quillmere {

// One progress report of a long operation. No fraction is stored: a view divides `done` by
// `total` itself and must cope with `total` == 0 (unknown).
struct WorkProgress {
  std::string phase;       // shown as is; one of the phase texts below or the operation's own
  std::int64_t done = 0;   // units finished in this phase
  std::int64_t total = 0;  // units in this phase; 0 when unknown

  bool operator==(const WorkProgress&) const = default;
};

// Called on the worker thread of the operation; forwarding to the interface thread is the
// callback's business.
using ProgressCallback = std::function<void(const WorkProgress&)>;

// The phase texts of a scan, exactly as shown.
namespace ScanPhase {
inline constexpr std::string_view readingExport = "Reading the export";
inline constexpr std::string_view readingMetadata = "Reading Google's metadata";
inline constexpr std::string_view matching = "Matching photos to metadata";
inline constexpr std::string_view checkingFiles = "Checking dates and places in files";
inline constexpr std::string_view complete = "Scan complete";
}  // namespace ScanPhase

}  // namespace quillmere

#endif  // QUILLMERE_CORE_SCAN_WORK_PROGRESS_H_
