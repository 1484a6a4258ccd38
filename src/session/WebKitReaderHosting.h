#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>

#include "session/ReaderHosting.h"

// The widget type only, so that this header pulls in no GTK header.
using GtkWidget = struct _GtkWidget;

namespace tomekeeper {

// A request for the highlight menu at a point of the web view (in the view's own coordinates),
// with what its two items do. The functions hold the host weakly: chosen after the host went,
// they do nothing.
struct AnnotationMenuRequest {
  double x = 0;
  double y = 0;
  AnnotationNotePresence notePresence = AnnotationNotePresence::withoutNote;
  std::function<void()> editNote;
  std::function<void()> removeHighlight;
};

// The session's host over a WebKitGTK web view (ReaderWebViewHost), and the web view the window
// shows. It draws nothing itself: the shell shows the highlight menu (onAnnotationMenuRequest)
// and reads the view's keys. Main executor only. Only in builds with the web view.
class WebKitReaderHosting : public ReaderHosting {
 public:
  // The web view, owned by this host and alive as long as it. Never null.
  virtual GtkWidget* webView() const = 0;

  // Set by the shell, which shows the highlight menu over webView(); without it the session's
  // menu requests show nothing.
  std::function<void(AnnotationMenuRequest request)> onAnnotationMenuRequest;
};

// A new host with a new web view; `webView()` is ready to be put in a window. The host started
// ahead, when one waits and its load has not failed.
std::shared_ptr<WebKitReaderHosting> makeWebKitReaderHosting();

// Makes the host that the next makeWebKitReaderHosting() gives and starts loading the runtime
// page of `runtimeDirectory` into its web view: its web process starts and the page loads while
// a book is prepared, and the session's prepareRuntime of that directory awaits that load (within
// `timeout` of its start). Does nothing while such a host waits. A host that no window takes
// waits, its page loaded, for the next one. Main executor only.
void startWebKitReaderHostingAhead(std::filesystem::path runtimeDirectory,
                                   std::chrono::steady_clock::duration timeout);

}  // namespace tomekeeper
