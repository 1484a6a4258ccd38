#include "async/MainContext.h"

#include <glib.h>

#include <memory>

namespace tomekeeper::async {

namespace {

gboolean runPosted(gpointer data) {
  (*static_cast<std::function<void()>*>(data))();
  return G_SOURCE_REMOVE;
}

void destroyPosted(gpointer data) {
  delete static_cast<std::function<void()>*>(data);
}

}  // namespace

void postToMain(std::function<void()> work) {
  // An idle source at default priority: it runs on the next iteration of the
  // main loop, ahead of redraws, and g_source_attach wakes a sleeping loop.
  GSource* source = g_idle_source_new();
  g_source_set_priority(source, G_PRIORITY_DEFAULT);
  g_source_set_callback(source, runPosted, new std::function<void()>(std::move(work)),
                        destroyPosted);
  g_source_attach(source, g_main_context_default());
  g_source_unref(source);
}

}  // namespace tomekeeper::async
