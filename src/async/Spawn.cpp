#include "async/Spawn.h"

#include <glib.h>

#include <typeinfo>

namespace tomekeeper::async {

namespace {

// A coroutine that starts at once and frees itself at its end.
struct DetachedTask {
  struct promise_type : detail::PromiseBase {
    promise_type(Task<void>&, std::stop_token& stopToken) { setContext(TaskContext{stopToken, nullptr}); }
    DetachedTask get_return_object() noexcept { return {}; }
    std::suspend_never initial_suspend() noexcept { return {}; }
    std::suspend_never final_suspend() noexcept { return {}; }
    void return_void() noexcept {}
    void unhandled_exception() noexcept { std::terminate(); }
  };
};

DetachedTask runDetached(Task<void> task, std::stop_token stopToken) {
  (void)stopToken;
  try {
    co_await std::move(task);
  } catch (const OperationCancelled&) {
    g_debug("A background task was cancelled");
  } catch (const std::exception& error) {
    g_warning("A background task failed: %s", error.what());
  } catch (...) {
    g_warning("A background task failed with an unknown error");
  }
}

}  // namespace

void spawn(Task<void> task, std::stop_token stopToken) {
  runDetached(std::move(task), std::move(stopToken));
}

}  // namespace tomekeeper::async
