#pragma once

#include <functional>

namespace tomekeeper::async {

// Queues `work` to run on the default GMainContext, the main executor. It
// never runs inline, even when called from the main thread: a resumed
// coroutine must not run inside the stack frame that resumed it. Safe to call
// from any thread.
void postToMain(std::function<void()> work);

}  // namespace tomekeeper::async
