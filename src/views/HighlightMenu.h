#pragma once

#include <gtk/gtk.h>

#include <functional>

#include "platform/GObjectHandle.h"
#include "session/WebKitReaderHosting.h"

namespace tomekeeper::views {

// The highlight menu over a reader's web view: the note item ("Add Note…" or "Edit Note…"), a
// separator, and "Remove Highlight", popped up at the point the page asked for. Its items are the
// actions "highlight.edit-note" and "highlight.remove" of the view. Holds a reference to the view
// and parents its popover to it until the menu goes. Main thread only.
class HighlightMenu {
 public:
  explicit HighlightMenu(GtkWidget* view);
  ~HighlightMenu();
  HighlightMenu(const HighlightMenu&) = delete;
  HighlightMenu& operator=(const HighlightMenu&) = delete;

  // Pops the menu up at the request's point, in the view's coordinates. Shows nothing and returns
  // false when the view is in no window or the point lies outside its bounds. The chosen item runs
  // the request's function; a later request replaces the functions of an earlier one.
  bool present(const AnnotationMenuRequest& request);

  // The menu while it is shown, for tests; null before the first one.
  GtkPopoverMenu* popover() const noexcept { return popover_; }

 private:
  static void activate(GSimpleAction* action, GVariant* parameter, gpointer data);

  GObjectHandle<GtkWidget> view_;
  // Made on first use and parented to the view.
  GtkPopoverMenu* popover_ = nullptr;
  std::function<void()> editNote_;
  std::function<void()> removeHighlight_;
};

}  // namespace tomekeeper::views
