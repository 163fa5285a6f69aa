#ifndef QUILLMERE_CORE_REPAIR_BACKGROUND_WORKER_H_
#define QUILLMERE_CORE_REPAIR_BACKGROUND_WORKER_H_

#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

namespace quillmere {

// One thread of its own that runs the tasks posted to it, one at a time, in the order posted.
// Lets a run overlap work whose results it collects later, in order.
class BackgroundWorker {
 public:
  BackgroundWorker();
  // Runs every task still queued, then joins the thread.
  ~BackgroundWorker();
  BackgroundWorker(const BackgroundWorker&) = delete;
  BackgroundWorker& operator=(const BackgroundWorker&) = delete;

  // Queues `task`. The future becomes ready when the task has run, holding what it threw.
  std::future<void> post(std::function<void()> task);

 private:
  void loop(const std::stop_token& stop);

  std::mutex mutex_;
  std::condition_variable_any wake_;
  std::deque<std::packaged_task<void()>> tasks_;
  std::jthread thread_;  // last: joined before the queue it reads goes
};

}  // namespace quillmere

#endif  // QUILLMERE_CORE_REPAIR_BACKGROUND_WORKER_H_
