#include "tests/support/child_process.h"

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <exception>

namespace quillmere::testing {

int runInChild(const std::function<int()>& body, const ChildLimits& limits) {
  std::fflush(nullptr);
  const pid_t pid = ::fork();
  if (pid < 0) return -1;
  if (pid == 0) {
    if (limits.fileSizeBytes) {
      // A write past the limit must fail with EFBIG rather than kill the child.
      ::signal(SIGXFSZ, SIG_IGN);
      const rlimit limit{*limits.fileSizeBytes, *limits.fileSizeBytes};
      if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) ::_exit(120);
    }
    if (limits.withoutRoot && ::geteuid() == 0) {
      constexpr uid_t kNobody = 65534;
      if (::setgid(kNobody) != 0 || ::setuid(kNobody) != 0) ::_exit(121);
    }
    int status = 122;
    try {
      status = body();
    } catch (const std::exception& error) {
      std::fprintf(stderr, "child: %s\n", error.what());
    }
    std::fflush(nullptr);
    ::_exit(status);
  }
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace quillmere::testing
