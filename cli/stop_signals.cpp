#include "cli/stop_signals.h"

#include <unistd.h>

#include <atomic>
#include <cstring>

namespace quillmere::cli {
namespace {

// Set from the signal handler; the engines poll it before each item.
std::atomic<bool> stopFlag{false};
static_assert(std::atomic<bool>::is_always_lock_free);
std::atomic<const char*> stopNotice{nullptr};
static_assert(std::atomic<const char*>::is_always_lock_free);

extern "C" void requestStop(int) {
  const char* notice = stopNotice.load();
  if (!stopFlag.exchange(true) && notice != nullptr) {
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, notice, std::strlen(notice));
  }
}

}  // namespace

StopSignals::StopSignals(const char* notice) {
  stopFlag = false;
  oldNotice_ = stopNotice;
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
  stopNotice = oldNotice_;
}

bool stopRequested() { return stopFlag.load(); }

}  // namespace quillmere::cli
