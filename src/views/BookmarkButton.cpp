#include "views/BookmarkButton.h"

#include <utility>

#include "views/ViewResources.h"

namespace tomekeeper {

namespace {

constexpr const char* kEmptyIcon = "user-bookmarks-symbolic";
// The icon theme has no filled bookmark; the views' resources bring one.
constexpr const char* kFilledIcon = "tomekeeper-bookmark-filled-symbolic";
constexpr const char* kIconResourcePath = "/org/tomekeeper/Tomekeeper/views/icons";

}  // namespace

BookmarkButton::BookmarkButton(std::shared_ptr<ReaderSession> session)
    : session_(std::move(session)),
      button_(views::WidgetHandle::retain(gtk_button_new())) {
  views::registerViewResources();
  GtkIconTheme* theme = gtk_icon_theme_get_for_display(gtk_widget_get_display(button_.get()));
  if (!gtk_icon_theme_has_icon(theme, kFilledIcon)) {
    gtk_icon_theme_add_resource_path(theme, kIconResourcePath);
  }
  gtk_actionable_set_action_name(GTK_ACTIONABLE(button_.get()), "win.toggle-bookmark");
  connections_.add(session_->visibleBookmarkIDs().changed().connect([this] { show(); }));
  show();
}

void BookmarkButton::show() {
  // The session empties the visible set when the book closes or its reading data is cleared.
  state_ = session_->visibleBookmarkIDs().value().empty() ? BookmarkButtonState::add
                                                          : BookmarkButtonState::remove;
  const bool adds = state_ == BookmarkButtonState::add;
  const char* title = adds ? "Add Bookmark" : "Remove Bookmark";
  gtk_button_set_icon_name(GTK_BUTTON(button_.get()), adds ? kEmptyIcon : kFilledIcon);
  gtk_widget_set_tooltip_text(button_.get(), title);
  views::setAccessibleLabel(button_.get(), title);
}

}  // namespace tomekeeper
