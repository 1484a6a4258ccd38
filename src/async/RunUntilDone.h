#pragma once

#include <chrono>
#include <stdexcept>
#include <stop_token>

#include "async/Task.h"

namespace tomekeeper::async {

// Thrown by runUntilDone when the task is still running at its time limit.
class TaskTimedOut final : public std::runtime_error {
 public:
  TaskTimedOut() : std::runtime_error("the task did not finish within its time limit") {}
};

namespace detail {
// Starts `task` (unless it already runs) and iterates the default main context until it has
// finished or `limit` has passed; returns whether it finished.
enum class Start { now, alreadyStarted };
bool iterateUntilDone(std::coroutine_handle<> task, std::chrono::steady_clock::duration limit,
                      Start start = Start::now);
}  // namespace detail

// Runs `task` to its end on the calling thread, which must be the only one that
// iterates the default GMainContext (a command-line main, or a test). Returns
// its result or rethrows its exception. At `limit` the task is asked to stop
// and given a second to wind down, then TaskTimedOut is thrown; a task that
// ignores the stop request is left behind, as nothing can safely destroy a
// suspended task.
template <typename T>
T runUntilDone(Task<T> task, std::chrono::steady_clock::duration limit = std::chrono::hours(24),
               std::stop_token stopToken = {}) {
  std::stop_source source;
  std::stop_callback forward(stopToken, [&source] { source.request_stop(); });
  auto handle = task.handle();
  handle.promise().setContext(TaskContext{source.get_token(), nullptr});
  if (!detail::iterateUntilDone(handle, limit)) {
    source.request_stop();
    if (!detail::iterateUntilDone(handle, std::chrono::seconds(1), detail::Start::alreadyStarted)) {
      // Give up ownership: the frame may still be resumed by a pending event.
      new Task<T>(std::move(task));
    }
    throw TaskTimedOut();
  }
  return handle.promise().result();
}

}  // namespace tomekeeper::async
