#include "core/repair/background_worker.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>
#include <thread>
#include <vector>

namespace quillmere {
namespace {

TEST(BackgroundWorkerTest, RunsTasksInOrderOnAnotherThreadAndKeepsTheirExceptions) {
  std::vector<int> order;  // only the worker touches it until every future is ready
  std::thread::id ranOn;
  std::vector<std::future<void>> done;
  {
    BackgroundWorker worker;
    for (int i = 0; i < 50; ++i) {
      done.push_back(worker.post([&order, &ranOn, i] {
        if (i == 0) std::this_thread::sleep_for(std::chrono::milliseconds(20));  // others queue
        ranOn = std::this_thread::get_id();
        order.push_back(i);
        if (i == 7) throw std::runtime_error("task 7 failed");
      }));
    }
    for (int i = 0; i < 50; ++i) {
      SCOPED_TRACE(i);
      if (i == 7) {
        EXPECT_THROW(done[static_cast<std::size_t>(i)].get(), std::runtime_error);
      } else {
        EXPECT_NO_THROW(done[static_cast<std::size_t>(i)].get());
      }
    }
  }
  std::vector<int> expected(50);
  for (int i = 0; i < 50; ++i) expected[static_cast<std::size_t>(i)] = i;
  EXPECT_EQ(order, expected);
  EXPECT_NE(ranOn, std::this_thread::get_id());
}

TEST(BackgroundWorkerTest, FinishesWhatIsQueuedBeforeItGoes) {
  std::atomic<int> ran = 0;
  {
    BackgroundWorker worker;
    worker.post([] { std::this_thread::sleep_for(std::chrono::milliseconds(20)); });
    for (int i = 0; i < 10; ++i) worker.post([&ran] { ++ran; });
  }
  EXPECT_EQ(ran.load(), 10);
}

}  // namespace
}  // namespace quillmere
