#pragma once

#include <functional>
#include <memory>

#include "async/BackgroundPool.h"

namespace tomekeeper::async {

// Runs operations off the main executor one at a time, in the order they were
// submitted. Each file-backed store owns one, so its load-modify-write cycles
// never interleave. Operations already queued finish even if the executor is
// destroyed first; the executor may be used from any thread.
class SerialExecutor {
 public:
  SerialExecutor();
  SerialExecutor(const SerialExecutor&) = delete;
  SerialExecutor& operator=(const SerialExecutor&) = delete;

  // Queues `job`; it runs on a pool thread after every job queued before it.
  void submit(std::function<void()> job);

  // co_await executor.run(f): f runs on this executor, in submission order;
  // the awaiting task resumes on the main executor with f's result or
  // exception. Submission happens when the await begins, so two tasks on the
  // main executor that await in turn are served in that order.
  template <typename Function>
  auto run(Function function) {
    auto submit = [state = state_](std::function<void()> job) { enqueue(state, std::move(job)); };
    return detail::OffMainAwaiter<Function, decltype(submit)>(std::move(function),
                                                              std::move(submit));
  }

 private:
  struct State;
  static void enqueue(const std::shared_ptr<State>& state, std::function<void()> job);
  std::shared_ptr<State> state_;
};

}  // namespace tomekeeper::async
