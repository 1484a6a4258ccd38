#include "views/BookmarkButton.h"

#include "ViewsDisplayTestSupport.h"
#include "async/RunUntilDone.h"

namespace tomekeeper::testing {
namespace {

using json = nlohmann::json;

class BookmarkButtonDisplayTest : public ViewsDisplayTest {};

// The button's tooltip; its accessible name, the same text, is read from the accessibility bus
// by the application display tests (GTK 4.8 has no getter for it).
std::string tooltip(GtkWidget* widget) {
  const char* text = gtk_widget_get_tooltip_text(widget);
  return text != nullptr ? text : "";
}

TEST_F(BookmarkButtonDisplayTest, FollowsTheBookmarksVisibleOnThePage) {
  openSession();
  host->runtime.handlers["configureBookmarkVisibility"] = [](const json& payload) {
    json ids = json::array();
    for (const json& candidate : payload["bookmarks"]) ids.push_back(candidate["id"]);
    return RuntimeAnswer::result({{"visibleBookmarkIDs", ids}});
  };
  BookmarkButton button(session);
  showInWindow(button.widget());
  EXPECT_EQ(button.state(), BookmarkButtonState::add);
  EXPECT_STREQ(gtk_actionable_get_action_name(GTK_ACTIONABLE(button.widget())),
               "win.toggle-bookmark");

  async::runUntilDone(session->toggleBookmark(), std::chrono::seconds(30));
  ASSERT_EQ(session->bookmarks().value().size(), 1U);
  const std::string id = session->bookmarks().value().front().id.string();

  struct Step {
    const char* name;
    std::optional<json> visibleIDs;  // an event from the page; none for the state after the add
    BookmarkButtonState state;
    const char* title;
    const char* icon;
  };
  const Step steps[] = {
      {"after adding here", std::nullopt, BookmarkButtonState::remove, "Remove Bookmark",
       "tomekeeper-bookmark-filled-symbolic"},
      {"on a page without it", json::array(), BookmarkButtonState::add, "Add Bookmark",
       "user-bookmarks-symbolic"},
      {"back on its page", json::array({id}), BookmarkButtonState::remove, "Remove Bookmark",
       "tomekeeper-bookmark-filled-symbolic"},
  };
  for (const Step& step : steps) {
    SCOPED_TRACE(step.name);
    if (step.visibleIDs) {
      host->runtime.sendEvent("bookmarkVisibilityChanged", {{"visibleBookmarkIDs", *step.visibleIDs}});
    }
    EXPECT_EQ(button.state(), step.state);
    EXPECT_EQ(tooltip(button.widget()), step.title);
    EXPECT_STREQ(gtk_button_get_icon_name(GTK_BUTTON(button.widget())), step.icon);
    // The filled icon comes from the views' resources; a name the theme lacks draws nothing.
    GtkIconTheme* theme = gtk_icon_theme_get_for_display(gtk_widget_get_display(button.widget()));
    EXPECT_TRUE(gtk_icon_theme_has_icon(theme, step.icon));
  }
}

}  // namespace
}  // namespace tomekeeper::testing
