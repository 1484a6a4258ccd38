#pragma once

#include <chrono>
#include <coroutine>
#include <memory>
#include <optional>
#include <stop_token>

#include "async/Task.h"

namespace tomekeeper::async {

namespace detail {

struct SleepState;

class SleepAwaiter {
 public:
  explicit SleepAwaiter(std::chrono::steady_clock::duration duration) : duration_(duration) {}
  SleepAwaiter(SleepAwaiter&&) noexcept;
  ~SleepAwaiter();

  bool await_ready() const noexcept { return false; }
  template <TaskPromise Promise>
  bool await_suspend(std::coroutine_handle<Promise> handle) {
    return start(handle, handle.promise().context().stopToken);
  }
  void await_resume();

 private:
  bool start(std::coroutine_handle<> handle, const std::stop_token& token);

  std::chrono::steady_clock::duration duration_;
  std::shared_ptr<SleepState> state_;
  struct StopRequest {
    std::shared_ptr<SleepState> state;
    void operator()() const noexcept;
  };
  std::optional<std::stop_callback<StopRequest>> stopCallback_;
};

}  // namespace detail

// co_await sleepFor(d) resumes the task on the main executor once d has passed
// on the steady (monotonic) clock. A stop request on the task's token before
// or during the sleep ends it at once with OperationCancelled.
inline detail::SleepAwaiter sleepFor(std::chrono::steady_clock::duration duration) {
  return detail::SleepAwaiter(duration);
}

}  // namespace tomekeeper::async
