#include "tests/support/process_usage.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <stdexcept>

namespace quillmere::testing {
namespace {

ProcessUsage waitFor(pid_t child, std::chrono::steady_clock::time_point start) {
  if (child < 0) throw std::runtime_error("fork failed");
  int status = 0;
  rusage usage{};
  if (wait4(child, &status, 0, &usage) != child) throw std::runtime_error("wait4 failed");
  ProcessUsage result;
  result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const auto cpu = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  result.cpuSeconds = cpu(usage.ru_utime) + cpu(usage.ru_stime);
  result.peakMegabytes = static_cast<double>(usage.ru_maxrss) / 1024.0;  // kilobytes on Linux
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

}  // namespace

ProcessUsage measureChild(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  const pid_t child = fork();
  if (child == 0) {
    int code = 0;
    try {
      work();
    } catch (...) {
      code = 1;
    }
    _exit(code);
  }
  return waitFor(child, start);
}

ProcessUsage measureProgram(const std::vector<std::string>& argv) {
  std::vector<char*> args;
  for (const auto& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
  args.push_back(nullptr);
  const auto start = std::chrono::steady_clock::now();
  const pid_t child = fork();
  if (child == 0) {
    const int null = open("/dev/null", O_WRONLY);
    dup2(null, STDOUT_FILENO);
    dup2(null, STDERR_FILENO);
    execvp(args[0], args.data());
    _exit(127);
  }
  return waitFor(child, start);
}

double residentMegabytes() {
  std::ifstream statm("/proc/self/statm");
  long pages = 0;
  long resident = 0;
  statm >> pages >> resident;
  return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1048576.0;
}

}  // namespace quillmere::testing
