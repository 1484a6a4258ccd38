#pragma once

#include <gtk/gtk.h>

#include <functional>

#include "app/PaginationKeyFilter.h"
#include "platform/GObjectHandle.h"

namespace tomekeeper {

// The keys of a reader window, read in the shell. Window-wide, before any widget: Escape without
// modifiers brings hidden controls back (`showHiddenControls` answers whether they were hidden),
// and Page Up and Page Down go to `pageKey` (which answers whether it took the key). In the web
// view, after the page: Escape gives up the keyboard focus, so that the window's own keys reach
// the window again, and Space, Left and Right go to `navigationKey`. Held keys follow
// PaginationKeyFilter. Main thread only; the window owns it, and it lets go of both widgets'
// controllers when it goes.
class ReaderWindowKeys {
 public:
  struct Handlers {
    std::function<bool()> showHiddenControls;
    std::function<bool(ReaderNavigationDirection)> pageKey;
    std::function<void(ReaderNavigationDirection)> navigationKey;
  };

  // `webView` may be null: a window without a book has only its window-wide keys.
  ReaderWindowKeys(GtkWindow* window, GtkWidget* webView, Handlers handlers);
  ~ReaderWindowKeys();
  ReaderWindowKeys(const ReaderWindowKeys&) = delete;
  ReaderWindowKeys& operator=(const ReaderWindowKeys&) = delete;

 private:
  static gboolean handleWindowKeyPressed(GtkEventControllerKey*, guint keyValue, guint keyCode,
                                         GdkModifierType state, gpointer data);
  static void handleWindowKeyReleased(GtkEventControllerKey*, guint keyValue, guint keyCode,
                                      GdkModifierType state, gpointer data);
  static gboolean handleViewKeyPressed(GtkEventControllerKey*, guint keyValue, guint keyCode,
                                       GdkModifierType state, gpointer data);
  static void handleViewKeyReleased(GtkEventControllerKey*, guint keyValue, guint keyCode,
                                    GdkModifierType state, gpointer data);
  KeyDisposition filterPageKey(const KeyEventDescription& event);
  KeyDisposition filterViewKey(const KeyEventDescription& event);

  Handlers handlers_;
  PaginationKeyFilter pageKeys_{PaginationKeys::pageKeys};
  PaginationKeyFilter viewKeys_{PaginationKeys::viewKeys};
  GObjectHandle<GtkEventController> windowController_;
  GObjectHandle<GtkEventController> viewController_;
  GObjectHandle<GtkWidget> webView_;
};

}  // namespace tomekeeper
