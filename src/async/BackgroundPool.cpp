#include "async/BackgroundPool.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

namespace tomekeeper::async {

namespace {

// A fixed set of worker threads. It is never destroyed: jobs may still be
// running when static destructors run at exit, and joining them there could
// deadlock on the main loop they post back to.
class BackgroundPool {
 public:
  BackgroundPool() {
    const unsigned count = std::max(4u, std::thread::hardware_concurrency());
    for (unsigned index = 0; index < count; ++index) {
      std::thread([this] { work(); }).detach();
    }
  }

  void submit(std::function<void()> job) {
    {
      std::lock_guard lock(mutex_);
      jobs_.push_back(std::move(job));
    }
    available_.notify_one();
  }

 private:
  void work() {
    for (;;) {
      std::function<void()> job;
      {
        std::unique_lock lock(mutex_);
        available_.wait(lock, [this] { return !jobs_.empty(); });
        job = std::move(jobs_.front());
        jobs_.pop_front();
      }
      job();
    }
  }

  std::mutex mutex_;
  std::condition_variable available_;
  std::deque<std::function<void()>> jobs_;
};

BackgroundPool& pool() {
  static BackgroundPool* instance = new BackgroundPool();
  return *instance;
}

}  // namespace

void submitToBackgroundPool(std::function<void()> job) {
  pool().submit(std::move(job));
}

}  // namespace tomekeeper::async
