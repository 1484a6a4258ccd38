#pragma once

#include <concepts>
#include <coroutine>
#include <exception>
#include <memory>
#include <optional>
#include <stop_token>
#include <utility>
#include <variant>

#include "async/OperationCancelled.h"

namespace tomekeeper::async {

// What a task carries down to everything it awaits: its cancellation token,
// and the instrumentation of one open when a caller bound one (an
// OpenPerformanceTrace, opaque at this layer). A child task awaited by a
// parent inherits the parent's context unless it was given one of its own.
struct TaskContext {
  std::stop_token stopToken;
  std::shared_ptr<void> performanceTrace;
};

namespace detail {

class PromiseBase {
 public:
  std::suspend_always initial_suspend() noexcept { return {}; }

  struct FinalAwaiter {
    bool await_ready() noexcept { return false; }
    template <typename Promise>
    std::coroutine_handle<> await_suspend(std::coroutine_handle<Promise> handle) noexcept {
      std::coroutine_handle<> continuation = handle.promise().continuation_;
      return continuation ? continuation : std::noop_coroutine();
    }
    void await_resume() noexcept {}
  };
  FinalAwaiter final_suspend() noexcept { return {}; }

  void unhandled_exception() noexcept { exception_ = std::current_exception(); }

  const TaskContext& context() const noexcept { return context_; }
  void setContext(TaskContext context) noexcept {
    context_ = std::move(context);
    hasContext_ = true;
  }
  bool hasContext() const noexcept { return hasContext_; }
  void setContinuation(std::coroutine_handle<> continuation) noexcept {
    continuation_ = continuation;
  }

 protected:
  void rethrowIfFailed() const {
    if (exception_) std::rethrow_exception(exception_);
  }

 private:
  std::coroutine_handle<> continuation_;
  std::exception_ptr exception_;
  TaskContext context_;
  bool hasContext_ = false;
};

template <typename T>
class Promise;

}  // namespace detail

// A promise type of this module; awaitables that need the awaiting task's
// context accept only handles of these.
template <typename Promise>
concept TaskPromise = std::derived_from<Promise, detail::PromiseBase>;

// A lazily started coroutine. Nothing runs until it is awaited (or handed to
// spawn or runUntilDone); it then runs on the main executor, and an exception
// thrown in its body reaches whoever awaits it. Owns its frame: destroying a
// Task that was never started frees it; a started task must be left to finish.
template <typename T = void>
class [[nodiscard]] Task {
 public:
  using promise_type = detail::Promise<T>;
  using Handle = std::coroutine_handle<promise_type>;

  explicit Task(Handle handle) noexcept : handle_(handle) {}
  Task(Task&& other) noexcept : handle_(std::exchange(other.handle_, {})) {}
  Task& operator=(Task&& other) noexcept {
    if (this != &other) {
      if (handle_) handle_.destroy();
      handle_ = std::exchange(other.handle_, {});
    }
    return *this;
  }
  Task(const Task&) = delete;
  Task& operator=(const Task&) = delete;
  ~Task() {
    if (handle_) handle_.destroy();
  }

  // Runs this task under `context` instead of the awaiting task's.
  Task&& withContext(TaskContext context) && {
    handle_.promise().setContext(std::move(context));
    return std::move(*this);
  }

  struct Awaiter {
    Handle handle;
    bool await_ready() const noexcept { return !handle || handle.done(); }
    template <TaskPromise ParentPromise>
    std::coroutine_handle<> await_suspend(std::coroutine_handle<ParentPromise> parent) noexcept {
      if (!handle.promise().hasContext()) handle.promise().setContext(parent.promise().context());
      handle.promise().setContinuation(parent);
      return handle;
    }
    T await_resume() { return handle.promise().result(); }
  };
  Awaiter operator co_await() && noexcept { return Awaiter{handle_}; }
  Awaiter operator co_await() & noexcept { return Awaiter{handle_}; }

  // For the module's own starters (spawn, runUntilDone).
  Handle handle() const noexcept { return handle_; }

 private:
  Handle handle_;
};

namespace detail {

template <typename T>
class Promise final : public PromiseBase {
 public:
  Task<T> get_return_object() noexcept {
    return Task<T>(std::coroutine_handle<Promise>::from_promise(*this));
  }
  template <typename Value>
  requires std::convertible_to<Value&&, T>
  void return_value(Value&& value) { value_.emplace(std::forward<Value>(value)); }
  T result() {
    rethrowIfFailed();
    return std::move(*value_);
  }

 private:
  std::optional<T> value_;
};

template <>
class Promise<void> final : public PromiseBase {
 public:
  Task<void> get_return_object() noexcept {
    return Task<void>(std::coroutine_handle<Promise>::from_promise(*this));
  }
  void return_void() noexcept {}
  void result() { rethrowIfFailed(); }
};

}  // namespace detail

// co_await currentContext() gives the awaiting task's context without
// suspending.
struct CurrentContextAwaiter {
  TaskContext context;
  bool await_ready() const noexcept { return false; }
  template <TaskPromise Promise>
  bool await_suspend(std::coroutine_handle<Promise> handle) noexcept {
    context = handle.promise().context();
    return false;
  }
  TaskContext await_resume() noexcept { return std::move(context); }
};
inline CurrentContextAwaiter currentContext() noexcept {
  return {};
}

// co_await checkCancellation() throws OperationCancelled when the awaiting
// task's token has been asked to stop.
struct CancellationCheckAwaiter {
  bool stopRequested = false;
  bool await_ready() const noexcept { return false; }
  template <TaskPromise Promise>
  bool await_suspend(std::coroutine_handle<Promise> handle) noexcept {
    stopRequested = handle.promise().context().stopToken.stop_requested();
    return false;
  }
  void await_resume() const {
    if (stopRequested) throw OperationCancelled();
  }
};
inline CancellationCheckAwaiter checkCancellation() noexcept {
  return {};
}

// Throws OperationCancelled when `token` has been asked to stop. For code that
// runs off the main executor between chunks of work.
inline void throwIfCancelled(const std::stop_token& token) {
  if (token.stop_requested()) throw OperationCancelled();
}

}  // namespace tomekeeper::async
