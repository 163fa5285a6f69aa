#include "cli/stop_signals.h"

#include <unistd.h>

#include <atomic>
#include <cstring>

namespace quillmere::cli {
namespace {

// Set from the signal handler; the engines poll it before each item.
std::atomic<bool> stopFlag{false};
static_assert(std::atomic<bool>::is_always_lock_free);
const char* stopNotice = nullptr;

extern "C" void requestStop(int) {
  if (!stopFlag.exchange(true) && stopNotice != nullptr) {
    [[maybe_unused]] const auto written =
        ::write(STDERR_FILENO, stopNotice, std::strlen(stopNotice));
  }
}

}  // namespace

StopSignals::StopSignals(const char* notice) {
  stopFlag = false;
  stopNotice = notice;
  struct sigaction action {};
  action.sa_handler = requestStop;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  sigaction(SIGINT, &action, &oldInt_);
  sigaction(SIGTERM, &action, &oldTerm_);
}

StopSignals::~StopSignals() {
  sigaction(SIGINT, &oldInt_, nullptr);
  sigaction(SIGTERM, &oldTerm_, nullptr);
}

bool stopRequested() { return stopFlag.load(); }

}  // namespace quillmere::cli
