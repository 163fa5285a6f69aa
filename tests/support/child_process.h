#ifndef QUILLMERE_TESTS_SUPPORT_CHILD_PROCESS_H_
#define QUILLMERE_TESTS_SUPPORT_CHILD_PROCESS_H_

#include <cstdint>
#include <functional>
#include <optional>

namespace quillmere::testing {

// How a child process should be limited.
struct ChildLimits {
  std::optional<std::uint64_t> fileSizeBytes;  // RLIMIT_FSIZE: writes beyond it fail (EFBIG)
  bool withoutRoot = false;  // run as "nobody" when the tests run as root, so modes count
};

// Runs `body` in a forked child under `limits` and returns its exit status (the body's return
// value), or -1 when it died of a signal. Only for bodies that touch no test state.
int runInChild(const std::function<int()>& body, const ChildLimits& limits);

}  // namespace quillmere::testing

#endif  // QUILLMERE_TESTS_SUPPORT_CHILD_PROCESS_H_
