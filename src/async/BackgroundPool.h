#pragma once

#include <coroutine>
#include <exception>
#include <functional>
#include <optional>
#include <stop_token>
#include <type_traits>
#include <utility>

#include "async/MainContext.h"
#include "async/Task.h"

namespace tomekeeper::async {

// Hands `job` to the process-wide pool of worker threads that runs blocking
// work (hashing, inflating, file I/O) off the main executor. The pool is made
// on first use and lives until exit. Safe to call from any thread.
void submitToBackgroundPool(std::function<void()> job);

namespace detail {

template <typename Function>
decltype(auto) invokeWithToken(Function& function, const std::stop_token& token) {
  if constexpr (std::is_invocable_v<Function&, std::stop_token>) {
    return function(token);
  } else {
    return function();
  }
}

template <typename Function>
using BackgroundResult = std::decay_t<decltype(invokeWithToken(
    std::declval<Function&>(), std::declval<const std::stop_token&>()))>;

// Carries a value or an exception from a worker thread back to the awaiter.
template <typename T>
struct Outcome {
  std::optional<T> value;
  std::exception_ptr error;
  T take() {
    if (error) std::rethrow_exception(error);
    return std::move(*value);
  }
};
template <>
struct Outcome<void> {
  std::exception_ptr error;
  void take() {
    if (error) std::rethrow_exception(error);
  }
};

template <typename Function>
void runInto(Function& function, const std::stop_token& token,
             Outcome<BackgroundResult<Function>>& outcome) {
  try {
    if constexpr (std::is_void_v<BackgroundResult<Function>>) {
      invokeWithToken(function, token);
    } else {
      outcome.value.emplace(invokeWithToken(function, token));
    }
  } catch (...) {
    outcome.error = std::current_exception();
  }
}

// Suspends the awaiting task, runs the function through `submit`, and resumes
// the task on the main executor with the function's result or exception.
template <typename Function, typename Submit>
class OffMainAwaiter {
 public:
  using Result = BackgroundResult<Function>;

  OffMainAwaiter(Function function, Submit submit)
      : function_(std::move(function)), submit_(std::move(submit)) {}

  bool await_ready() const noexcept { return false; }

  template <TaskPromise Promise>
  void await_suspend(std::coroutine_handle<Promise> handle) {
    token_ = handle.promise().context().stopToken;
    if (token_.stop_requested()) {
      outcome_.error = std::make_exception_ptr(OperationCancelled());
      postToMain([handle] { handle.resume(); });
      return;
    }
    submit_([this, handle] {
      runInto(function_, token_, outcome_);
      postToMain([handle] { handle.resume(); });
    });
  }

  Result await_resume() { return outcome_.take(); }

 private:
  Function function_;
  Submit submit_;
  std::stop_token token_;
  Outcome<Result> outcome_;
};

}  // namespace detail

// co_await runInBackground(f) runs f on the background pool and resumes the
// awaiting task on the main executor with f's result, or rethrows what f
// threw. A function that takes a std::stop_token receives the awaiting task's
// token, to check between chunks. If the token is already stopped, f does not
// run and the await throws OperationCancelled.
template <typename Function>
auto runInBackground(Function function) {
  auto submit = [](std::function<void()> job) { submitToBackgroundPool(std::move(job)); };
  return detail::OffMainAwaiter<Function, decltype(submit)>(std::move(function), std::move(submit));
}

}  // namespace tomekeeper::async
