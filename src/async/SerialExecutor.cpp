#include "async/SerialExecutor.h"

#include <deque>
#include <mutex>

namespace tomekeeper::async {

struct SerialExecutor::State {
  std::mutex mutex;
  std::deque<std::function<void()>> jobs;
  bool draining = false;
};

SerialExecutor::SerialExecutor() : state_(std::make_shared<State>()) {}

void SerialExecutor::submit(std::function<void()> job) {
  enqueue(state_, std::move(job));
}

void SerialExecutor::enqueue(const std::shared_ptr<State>& state, std::function<void()> job) {
  {
    std::lock_guard lock(state->mutex);
    state->jobs.push_back(std::move(job));
    if (state->draining) return;
    state->draining = true;
  }
  // One pool job drains the queue; while it runs no other pool thread touches
  // this executor, which is what makes the jobs sequential.
  submitToBackgroundPool([state] {
    for (;;) {
      std::function<void()> next;
      {
        std::lock_guard lock(state->mutex);
        if (state->jobs.empty()) {
          state->draining = false;
          return;
        }
        next = std::move(state->jobs.front());
        state->jobs.pop_front();
      }
      next();
    }
  });
}

}  // namespace tomekeeper::async
