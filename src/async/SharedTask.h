#pragma once

#include <coroutine>
#include <exception>
#include <memory>
#include <optional>
#include <stop_token>
#include <utility>
#include <vector>

#include "async/MainContext.h"
#include "async/Spawn.h"
#include "async/Task.h"

namespace tomekeeper::async {

// A task that starts at once and whose one result any number of tasks may
// await, before or after it is known: each gets a copy of the value, or the
// same exception. Nobody owns the running work; it ends by itself. Used on the
// main executor only.
template <typename T>
class SharedTask {
  struct State {
    std::optional<T> value;
    std::exception_ptr error;
    bool finished = false;
    std::vector<std::coroutine_handle<>> waiters;
  };

 public:
  static SharedTask start(Task<T> task, std::stop_token stopToken = {}) {
    SharedTask shared;
    spawn(run(shared.state_, std::move(task)), std::move(stopToken));
    return shared;
  }

  bool isFinished() const noexcept { return state_->finished; }

  struct Awaiter {
    std::shared_ptr<State> state;
    bool await_ready() const noexcept { return state->finished; }
    void await_suspend(std::coroutine_handle<> handle) { state->waiters.push_back(handle); }
    T await_resume() const {
      if (state->error) std::rethrow_exception(state->error);
      return *state->value;
    }
  };
  Awaiter operator co_await() const noexcept { return Awaiter{state_}; }

 private:
  SharedTask() : state_(std::make_shared<State>()) {}

  static Task<void> run(std::shared_ptr<State> state, Task<T> task) {
    try {
      state->value.emplace(co_await std::move(task));
    } catch (...) {
      state->error = std::current_exception();
    }
    state->finished = true;
    for (std::coroutine_handle<> waiter : std::exchange(state->waiters, {})) {
      postToMain([waiter, state] { waiter.resume(); });
    }
  }

  std::shared_ptr<State> state_;
};

}  // namespace tomekeeper::async
