#pragma once

#include <memory>

#include "session/ReaderHosting.h"

// The widget type only, so that this header pulls in no GTK header.
using GtkWidget = struct _GtkWidget;

namespace tomekeeper {

// The session's host over a WebKitGTK web view (ReaderWebViewHost). It also hands the window
// the web view to show, and turns the view's own keys into the session's callbacks: Escape
// gives up the keyboard focus; Space, Left and Right go to `onNavigationKey`. Page Up and Page
// Down are the window's (a window-wide key filter takes them before the view). Main executor
// only. Only in builds with the web view.
class WebViewReaderHost : public ReaderHosting {
 public:
  // The web view, owned by this host and alive as long as it. Never null.
  virtual GtkWidget* webView() const = 0;
};

// A new host with a new web view; `webView()` is ready to be put in a window.
std::shared_ptr<WebViewReaderHost> makeWebViewReaderHost();

}  // namespace tomekeeper
