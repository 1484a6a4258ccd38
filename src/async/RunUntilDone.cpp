#include "async/RunUntilDone.h"

#include <glib.h>

#include <algorithm>

namespace tomekeeper::async::detail {

namespace {
gboolean wake(gpointer) {
  return G_SOURCE_REMOVE;
}
}  // namespace

bool iterateUntilDone(std::coroutine_handle<> task, std::chrono::steady_clock::duration limit,
                      Start start) {
  GMainContext* context = g_main_context_default();
  const auto deadline = std::chrono::steady_clock::now() + limit;
  if (start == Start::now) task.resume();
  while (!task.done()) {
    const auto now = std::chrono::steady_clock::now();
    if (now >= deadline) return false;
    const auto remaining = std::chrono::ceil<std::chrono::milliseconds>(deadline - now).count();
    // A timer, so that a task that waits on nothing still lets the deadline
    // be seen.
    GSource* timer = g_timeout_source_new(static_cast<guint>(std::min<long long>(remaining, 100)));
    g_source_set_callback(timer, wake, nullptr, nullptr);
    g_source_attach(timer, context);
    g_main_context_iteration(context, TRUE);
    g_source_destroy(timer);
    g_source_unref(timer);
  }
  return true;
}

}  // namespace tomekeeper::async::detail
