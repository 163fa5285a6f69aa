#ifndef QUILLMERE_TESTS_SUPPORT_PROCESS_USAGE_H_
#define QUILLMERE_TESTS_SUPPORT_PROCESS_USAGE_H_

#include <functional>
#include <string>
#include <vector>

namespace quillmere::testing {

// What one child process took: wall-clock and processor time, and its peak resident memory.
struct ProcessUsage {
  double seconds = 0;
  double cpuSeconds = 0;  // user and system time of all its threads
  double peakMegabytes = 0;
  int exitCode = -1;  // -1 when it didn't exit normally
};

// Runs `work` in a forked child (which exits 0 afterwards, or 1 when `work` throws). Call it
// before the parent starts any thread: a child of a threaded parent may deadlock. The peak
// includes the pages the child shares with the parent and touches.
ProcessUsage measureChild(const std::function<void()>& work);

// Runs the program `argv` (argv[0] looked up in PATH) with its output discarded.
ProcessUsage measureProgram(const std::vector<std::string>& argv);

// The calling process's resident memory now, in megabytes.
double residentMegabytes();

}  // namespace quillmere::testing

#endif  // QUILLMERE_TESTS_SUPPORT_PROCESS_USAGE_H_
