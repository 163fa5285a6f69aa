#include "core/repair/background_worker.h"

#include <utility>

namespace quillmere {

BackgroundWorker::BackgroundWorker()
    : thread_([this](const std::stop_token& stop) { loop(stop); }) {}

BackgroundWorker::~BackgroundWorker() {
  thread_.request_stop();  // wakes the wait below; the loop drains the queue first
  thread_.join();
}

std::future<void> BackgroundWorker::post(std::function<void()> task) {
  std::packaged_task<void()> packaged(std::move(task));
  std::future<void> done = packaged.get_future();
  {
    const std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(packaged));
  }
  wake_.notify_one();
  return done;
}

void BackgroundWorker::loop(const std::stop_token& stop) {
  while (true) {
    std::packaged_task<void()> task;
    {
      std::unique_lock lock(mutex_);
      wake_.wait(lock, stop, [this] { return !tasks_.empty(); });
      if (tasks_.empty()) return;  // asked to stop, nothing left
      task = std::move(tasks_.front());
      tasks_.pop_front();
    }
    task();  // a throw is kept in the task's future
  }
}

}  // namespace quillmere
