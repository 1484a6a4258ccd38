#pragma once

#include <coroutine>
#include <exception>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "async/MainContext.h"
#include "async/OperationCancelled.h"
#include "async/Task.h"

namespace tomekeeper::async {

// A one-shot result that a later event delivers to one waiting task. The
// first resolve or reject wins; later ones are ignored and return false. The
// waiter is resumed on the main executor, never inside the call that resolved
// it. Destroying a Completion that nobody resolved rejects it with
// OperationCancelled, so a parked caller never waits forever.
// Used on the main executor only.
template <typename T = void>
class Completion {
  using Stored = std::conditional_t<std::is_void_v<T>, std::monostate, T>;

  struct State {
    std::optional<Stored> value;
    std::exception_ptr error;
    std::coroutine_handle<> waiter;
    bool settled = false;
  };

 public:
  Completion() : state_(std::make_shared<State>()) {}
  Completion(const Completion&) = delete;
  Completion& operator=(const Completion&) = delete;
  ~Completion() { reject(std::make_exception_ptr(OperationCancelled())); }

  template <typename... Value>
  bool resolve(Value&&... value) {
    if (state_->settled) return false;
    state_->value.emplace(std::forward<Value>(value)...);
    return settle();
  }

  bool reject(std::exception_ptr error) {
    if (state_->settled) return false;
    state_->error = std::move(error);
    return settle();
  }

  bool isSettled() const noexcept { return state_->settled; }

  struct Awaiter {
    std::shared_ptr<State> state;
    bool await_ready() const noexcept { return state->settled; }
    void await_suspend(std::coroutine_handle<> handle) noexcept { state->waiter = handle; }
    T await_resume() {
      if (state->error) std::rethrow_exception(state->error);
      if constexpr (!std::is_void_v<T>) return std::move(*state->value);
    }
  };
  Awaiter operator co_await() const noexcept { return Awaiter{state_}; }

 private:
  bool settle() {
    state_->settled = true;
    if (std::coroutine_handle<> waiter = std::exchange(state_->waiter, {})) {
      postToMain([waiter, keep = state_] { waiter.resume(); });
    }
    return true;
  }

  std::shared_ptr<State> state_;
};

}  // namespace tomekeeper::async
