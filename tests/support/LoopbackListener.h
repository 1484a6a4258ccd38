// A web server on 127.0.0.1 for the tests that prove a book reaches nothing: it records the path
// of every request that reaches it. It runs on the thread-default main context of the thread that
// makes it, which the test must iterate (the runtime's tests do; the application's tests call
// `serve`).
#pragma once

#include <gtest/gtest.h>
#include <libsoup/soup.h>

#include <string>
#include <vector>

namespace tomekeeper::testing {

class LoopbackListener {
 public:
  LoopbackListener() : server_(soup_server_new(nullptr, nullptr)) {
    soup_server_add_handler(server_, nullptr, handle, this, nullptr);
    GError* error = nullptr;
    if (!soup_server_listen_local(server_, 0, SOUP_SERVER_LISTEN_IPV4_ONLY, &error)) {
      ADD_FAILURE() << "no loopback listener: " << error->message;
      g_error_free(error);
      return;
    }
    GSList* uris = soup_server_get_uris(server_);
    if (uris != nullptr) port_ = g_uri_get_port(static_cast<GUri*>(uris->data));
    g_slist_free_full(uris, reinterpret_cast<GDestroyNotify>(g_uri_unref));
  }
  ~LoopbackListener() {
    soup_server_disconnect(server_);
    g_object_unref(server_);
  }
  LoopbackListener(const LoopbackListener&) = delete;
  LoopbackListener& operator=(const LoopbackListener&) = delete;

  std::string url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
  }

  // Answers whatever requests have come in, without waiting.
  void serve() {
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
  }

  const std::vector<std::string>& paths() const { return paths_; }

 private:
  static void handle(SoupServer*, SoupServerMessage* message, const char* path, GHashTable*,
                     gpointer data) {
    static_cast<LoopbackListener*>(data)->paths_.emplace_back(path);
    soup_server_message_set_status(message, SOUP_STATUS_NO_CONTENT, nullptr);
  }

  SoupServer* server_;
  int port_ = 0;
  std::vector<std::string> paths_;
};

}  // namespace tomekeeper::testing
