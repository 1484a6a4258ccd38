#pragma once

#include <gtk/gtk.h>

#include <memory>

#include "session/ReaderSession.h"
#include "views/ViewSupport.h"

namespace tomekeeper {

enum class BookmarkButtonState { add, remove };

// The toolbar's bookmark button: it runs `win.toggle-bookmark`, and follows the bookmarks the
// session reports visible on the page. With one of them there it shows a filled bookmark and
// says "Remove Bookmark" (tooltip and accessible name); otherwise an empty one and "Add
// Bookmark". The button keeps the session alive; the window packs `widget()` into its header
// bar, which adds its own reference. Main executor only; not movable.
class BookmarkButton {
 public:
  explicit BookmarkButton(std::shared_ptr<ReaderSession> session);
  BookmarkButton(const BookmarkButton&) = delete;
  BookmarkButton& operator=(const BookmarkButton&) = delete;

  GtkWidget* widget() const noexcept { return button_.get(); }
  BookmarkButtonState state() const noexcept { return state_; }

 private:
  void show();

  std::shared_ptr<ReaderSession> session_;
  views::WidgetHandle button_;
  BookmarkButtonState state_ = BookmarkButtonState::add;
  views::ViewConnections connections_;
};

}  // namespace tomekeeper
