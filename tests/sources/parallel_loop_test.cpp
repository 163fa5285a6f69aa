#include "core/sources/parallel_loop.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace quillmere {
namespace {

TEST(ParallelLoopTest, DoesEveryIndexOnceAndTicksOnlyOnTheCallingThread) {
  struct Case {
    std::size_t count;
    unsigned helpers;
  };
  for (const Case& c : {Case{0, 3}, Case{1, 3}, Case{2, 1}, Case{1000, 0}, Case{5000, 3}}) {
    SCOPED_TRACE(testing::Message() << c.count << " indices, " << c.helpers << " helpers");
    const auto seen = std::make_unique<std::atomic<int>[]>(c.count + 1);
    std::atomic<bool> tickedElsewhere = false;
    std::size_t ticks = 0;
    std::size_t lastTick = 0;
    const std::thread::id caller = std::this_thread::get_id();
    ParallelLoop::run(
        c.count, [&](std::size_t i) { ++seen[i]; },
        [&](std::size_t started) {
          if (std::this_thread::get_id() != caller) tickedElsewhere = true;
          EXPECT_LT(started, c.count);
          EXPECT_GE(started, lastTick);
          lastTick = started;
          ++ticks;
        },
        10, c.helpers);
    for (std::size_t i = 0; i < c.count; ++i) ASSERT_EQ(seen[i].load(), 1) << "index " << i;
    EXPECT_FALSE(tickedElsewhere.load());
    EXPECT_EQ(ticks > 0, c.count > 0);
  }
}

TEST(ParallelLoopTest, StopsAtTheFirstFailureAndRethrowsItOnTheCallingThread) {
  std::atomic<std::size_t> done = 0;
  EXPECT_THROW(ParallelLoop::run(1'000'000,
                                 [&](std::size_t i) {
                                   if (i == 10) throw std::invalid_argument("index 10");
                                   ++done;
                                 }),
               std::invalid_argument);
  // Threads that had already taken an index finish it; nothing near the end is started.
  EXPECT_LT(done.load(), 500'000U);
}

}  // namespace
}  // namespace quillmere
