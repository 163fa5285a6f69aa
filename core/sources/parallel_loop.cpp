#include "core/sources/parallel_loop.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace quillmere::ParallelLoop {
namespace {

// What the threads of one loop share.
struct Shared {
  std::atomic<std::size_t> next{0};
  std::atomic<bool> failed{false};
  std::mutex mutex;
  std::exception_ptr error;  // the first one, under `mutex`

  // The next index to do, or `count` when there is none or the loop has failed.
  std::size_t take(std::size_t count) {
    if (failed.load(std::memory_order_relaxed)) return count;
    return std::min(next.fetch_add(1, std::memory_order_relaxed), count);
  }

  void fail() {
    const std::lock_guard lock(mutex);
    if (!error) error = std::current_exception();
    failed = true;
  }
};

unsigned helperCount(std::size_t count, unsigned maxHelpers) {
  const unsigned cores = std::max(1U, std::thread::hardware_concurrency());
  const std::size_t wanted = std::min<std::size_t>({cores - 1, maxHelpers, count / 2});
  return static_cast<unsigned>(wanted);
}

}  // namespace

void run(std::size_t count, const std::function<void(std::size_t)>& body,
         const std::function<void(std::size_t)>& tick, std::size_t tickEvery, unsigned maxHelpers) {
  Shared shared;
  const auto loop = [&](bool caller) {
    try {
      std::size_t taken = 0;
      for (std::size_t i = shared.take(count); i < count; i = shared.take(count)) {
        if (caller && tick && taken++ % tickEvery == 0) tick(i);
        body(i);
      }
    } catch (...) {
      shared.fail();
    }
  };
  {
    std::vector<std::jthread> helpers;
    const unsigned wanted = helperCount(count, maxHelpers);
    for (unsigned h = 0; h < wanted; ++h) helpers.emplace_back(loop, false);
    loop(true);
  }  // joins the helpers
  if (shared.error) std::rethrow_exception(shared.error);
}

}  // namespace quillmere::ParallelLoop
