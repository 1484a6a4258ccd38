#include "views/ReaderSidebar.h"

#include "ViewsDisplayTestSupport.h"
#include "async/RunUntilDone.h"
#include "views/ViewRow.h"

namespace tomekeeper::testing {
namespace {

using ReaderSidebarDisplayTest = ViewsDisplayTest;

json contentsItem(const std::string& title, const std::string& href,
                  json children = json::array()) {
  return json{{"title", title}, {"href", href}, {"children", std::move(children)}};
}

GtkWidget* menuButtonOf(GtkListBoxRow* row) {
  return findWidget(GTK_WIDGET(row), [](GtkWidget* widget) { return GTK_IS_MENU_BUTTON(widget); });
}

std::string firstMenuLabel(GtkWidget* menuButton) {
  GMenuModel* model = gtk_menu_button_get_menu_model(GTK_MENU_BUTTON(menuButton));
  char* label = nullptr;
  if (model == nullptr || !g_menu_model_get_item_attribute(model, 0, "label", "s", &label))
    return {};
  std::string text = label;
  g_free(label);
  return text;
}

TEST_F(ReaderSidebarDisplayTest, KeepsTheChapterBeingReadSelectedWithItsParentsOpen) {
  host->runtime.handlers["tableOfContents"] = [](const json&) {
    return RuntimeAnswer::result(
        {{"items",
          json::array({contentsItem("Part One", "OEBPS/chapter1.xhtml#start",
                                    json::array({contentsItem("Loomings", "OEBPS/chapter2.xhtml"),
                                                 contentsItem("Aside", "OEBPS/chapter2.xhtml#x")})),
                       contentsItem("Part Two", "OEBPS/chapter4.xhtml")})}});
  };
  host->runtime.current = locatorAt(1, "/6/2!/4/2/1:0");
  openSession();
  ReaderSidebar sidebar(session);
  showInWindow(sidebar.widget());
  auto* selection = GTK_SINGLE_SELECTION(gtk_list_view_get_model(sidebar.contentsList()));
  auto selectedTitle = [&]() -> std::string {
    auto* row = static_cast<GtkTreeListRow*>(gtk_single_selection_get_selected_item(selection));
    if (row == nullptr) return "";
    auto item =
        GObjectHandle<GObject>::adopt(static_cast<GObject*>(gtk_tree_list_row_get_item(row)));
    return views::viewRowValueAs<TableOfContentsOutlineNode>(item.get()).item.title;
  };
  struct Step {
    const char* name;
    const char* selected;  // empty: none
  };
  const Step steps[] = {
      {"the first chapter", "Part One"},
      {"a chapter inside the first part", "Loomings"},
      {"a section the contents leave out", ""},
      {"the second part", "Part Two"},
  };
  for (const Step& step : steps) {
    SCOPED_TRACE(step.name);
    if (&step != &steps[0]) async::runUntilDone(session->nextSection(), std::chrono::seconds(30));
    EXPECT_EQ(selectedTitle(), step.selected);
  }
}

TEST_F(ReaderSidebarDisplayTest, ShowsTheContentsTreeAndGoesToAnActivatedEntry) {
  host->runtime.handlers["tableOfContents"] = [](const json&) {
    return RuntimeAnswer::result(
        {{"items", json::array({contentsItem("Part One", "part1.xhtml",
                                             json::array({contentsItem("Loomings", "c1.xhtml")})),
                                contentsItem("The Carpet-Bag", "c2.xhtml")})}});
  };
  openSession();
  ReaderSidebar sidebar(session);
  showInWindow(sidebar.widget());
  GtkWidget* list = GTK_WIDGET(sidebar.contentsList());

  ASSERT_TRUE(
      waitUntil([&] { return showsText(list, "Part One") && showsText(list, "The Carpet-Bag"); }));
  EXPECT_FALSE(showsText(list, "Loomings"));
  EXPECT_EQ(sidebar.section(), SidebarSection::contents);
  EXPECT_TRUE(showsText(sidebar.widget(), "Previous Chapter"));
  EXPECT_TRUE(showsText(sidebar.widget(), "Next Chapter"));

  // The top entry with children has a disclosure; opening it shows the child.
  GListModel* rows = G_LIST_MODEL(gtk_list_view_get_model(sidebar.contentsList()));
  auto first = GObjectHandle<GtkTreeListRow>::adopt(
      static_cast<GtkTreeListRow*>(g_list_model_get_item(rows, 0)));
  EXPECT_TRUE(gtk_tree_list_row_is_expandable(first.get()));
  gtk_tree_list_row_set_expanded(first.get(), TRUE);
  ASSERT_TRUE(waitUntil([&] { return showsText(list, "Loomings"); }));

  // Rows are now: Part One, Loomings, The Carpet-Bag.
  gtk_widget_activate_action(list, "list.activate-item", "u", 1U);
  ASSERT_TRUE(waitUntil([&] {
    const auto goTos = host->runtime.payloads("goTo");
    return !goTos.empty() && goTos.back().value("href", "") == "c1.xhtml";
  }));
  gtk_widget_activate_action(list, "list.activate-item", "u", 2U);
  ASSERT_TRUE(waitUntil(
      [&] { return host->runtime.payloads("goTo").back().value("href", "") == "c2.xhtml"; }));
}

TEST_F(ReaderSidebarDisplayTest, ShowsEmptyStatesWithoutBookmarksOrHighlights) {
  openSession();
  ReaderSidebar sidebar(session);
  showInWindow(sidebar.widget());

  sidebar.setSection(SidebarSection::bookmarks);
  EXPECT_TRUE(showsText(sidebar.widget(), "No Bookmarks"));
  EXPECT_TRUE(showsText(sidebar.widget(), "Add a bookmark from the reader toolbar."));
  sidebar.setSection(SidebarSection::highlights);
  EXPECT_EQ(sidebar.section(), SidebarSection::highlights);
  EXPECT_TRUE(showsText(sidebar.widget(), "No Highlights"));
  EXPECT_TRUE(
      showsText(sidebar.widget(), "Select text and use Highlight Selection in the toolbar."));
}

TEST_F(ReaderSidebarDisplayTest, ListsBookmarksGoesToOneAndDeletesOneFromItsContextAction) {
  const Bookmark first = storedBookmark("Call me Ishmael", 1);
  const Bookmark second = storedBookmark("Bookmark at 40%", 2);
  openSession();
  ReaderSidebar sidebar(session);
  sidebar.setSection(SidebarSection::bookmarks);
  showInWindow(sidebar.widget());

  GtkWidget* list = GTK_WIDGET(sidebar.bookmarkList());
  ASSERT_TRUE(waitUntil(
      [&] { return showsText(list, "Call me Ishmael") && showsText(list, "Bookmark at 40%"); }));
  EXPECT_FALSE(showsText(sidebar.widget(), "No Bookmarks"));
  GtkListBoxRow* secondRow = gtk_list_box_get_row_at_index(sidebar.bookmarkList(), 1);
  ASSERT_NE(secondRow, nullptr);
  EXPECT_EQ(firstMenuLabel(menuButtonOf(secondRow)), "Delete Bookmark");

  const std::size_t goTosBefore = host->runtime.count("goTo");
  g_signal_emit_by_name(sidebar.bookmarkList(), "row-activated", secondRow);
  ASSERT_TRUE(waitUntil([&] { return host->runtime.count("goTo") == goTosBefore + 1; }));
  EXPECT_EQ(host->runtime.payloads("goTo").back()["locator"].get<Locator>(), second.locator);

  gtk_widget_activate_action(GTK_WIDGET(secondRow), "sidebar.delete-bookmark", "s",
                             second.id.string().c_str());
  ASSERT_TRUE(waitUntil([&] { return session->bookmarks()->size() == 1; }));
  EXPECT_EQ(session->bookmarks()->front().id, first.id);
  ASSERT_TRUE(waitUntil([&] { return !showsText(list, "Bookmark at 40%"); }));
  EXPECT_TRUE(showsText(list, "Call me Ishmael"));

  gtk_widget_activate_action(list, "sidebar.delete-bookmark", "s", first.id.string().c_str());
  ASSERT_TRUE(waitUntil([&] { return showsText(sidebar.widget(), "No Bookmarks"); }));
  EXPECT_TRUE(bookmarks->stored.empty());
}

TEST_F(ReaderSidebarDisplayTest, MarksAnUnresolvedHighlightAndRemovesOneFromItsContextAction) {
  const Annotation placed = storedAnnotation("It is a way I have", "Note on spleen");
  const Annotation lost = storedAnnotation("driving off the spleen");
  host->runtime.handlers["addAnnotation"] = [lostID = lost.id.string()](const json& payload) {
    if (payload["annotation"].value("id", "") == lostID) {
      return RuntimeAnswer::failure("annotation-anchor-unresolved");
    }
    return RuntimeAnswer::result({{"rendered", true}, {"resolution", "exact"}});
  };
  openSession();
  ASSERT_TRUE(session->unresolvedAnnotationIDs()->contains(lost.id));
  ReaderSidebar sidebar(session);
  sidebar.setSection(SidebarSection::highlights);
  showInWindow(sidebar.widget());

  GtkListBox* list = sidebar.highlightList();
  ASSERT_TRUE(waitUntil([&] { return gtk_list_box_get_row_at_index(list, 1) != nullptr; }));
  GtkWidget* placedRow = GTK_WIDGET(gtk_list_box_get_row_at_index(list, 0));
  GtkWidget* lostRow = GTK_WIDGET(gtk_list_box_get_row_at_index(list, 1));
  EXPECT_TRUE(showsText(placedRow, "It is a way I have"));
  EXPECT_TRUE(showsText(placedRow, "Note on spleen"));
  EXPECT_FALSE(showsText(placedRow, "Original location unavailable"));
  EXPECT_TRUE(showsText(lostRow, "driving off the spleen"));
  EXPECT_TRUE(showsText(lostRow, "Original location unavailable"));
  EXPECT_EQ(firstMenuLabel(menuButtonOf(GTK_LIST_BOX_ROW(lostRow))), "Remove Highlight");

  // Activating a row goes to the highlight and pulses it.
  g_signal_emit_by_name(list, "row-activated", GTK_LIST_BOX_ROW(placedRow));
  ASSERT_TRUE(waitUntil([&] { return host->runtime.count("pulseAnnotation") == 1; }));
  EXPECT_EQ(host->runtime.payloads("goTo").back()["locator"].get<Locator>(), placed.locator);

  // Without a note the highlight goes at once.
  gtk_widget_activate_action(lostRow, "sidebar.remove-highlight", "s", lost.id.string().c_str());
  ASSERT_TRUE(waitUntil([&] { return session->annotations()->size() == 1; }));
  EXPECT_FALSE(session->unresolvedAnnotationIDs()->contains(lost.id));
  ASSERT_TRUE(waitUntil([&] { return !showsText(GTK_WIDGET(list), "driving off the spleen"); }));

  // With a note it waits for the confirmation.
  gtk_widget_activate_action(GTK_WIDGET(list), "sidebar.remove-highlight", "s",
                             placed.id.string().c_str());
  ASSERT_TRUE(waitUntil([&] { return session->annotationPendingRemoval()->has_value(); }));
  EXPECT_EQ(session->annotations()->size(), 1U);
}

TEST_F(ReaderSidebarDisplayTest, ChapterButtonsTurnSectionsAndStandTheWayTheBookReads) {
  for (const bool readsFromRight : {false, true}) {
    SCOPED_TRACE(readsFromRight ? "right to left" : "left to right");
    host->runtime.handlers["open"] = [readsFromRight](const json&) {
      return RuntimeAnswer::result({{"authors", json::array()},
                                    {"spineItemCount", 3},
                                    {"initialResourceURL", "tomekeeper://publication/x/c0.xhtml"},
                                    {"pageProgressionDirection", readsFromRight ? "rtl" : "ltr"}});
    };
    openSession();
    ReaderSidebar sidebar(session);
    showInWindow(sidebar.widget());
    const std::size_t turns = host->runtime.count("nextSection");
    g_signal_emit_by_name(sidebar.nextChapterButton(), "clicked");
    ASSERT_TRUE(waitUntil([&] { return host->runtime.count("nextSection") == turns + 1; }));
    g_signal_emit_by_name(sidebar.previousChapterButton(), "clicked");
    ASSERT_TRUE(waitUntil([&] { return host->runtime.count("previousSection") == turns + 1; }));
    // The next chapter stands on the side the pages advance to.
    ASSERT_TRUE(waitUntil([&] {
      graphene_point_t next, previous;
      const graphene_point_t origin = GRAPHENE_POINT_INIT(0, 0);
      GtkWidget* root = sidebar.widget();
      return gtk_widget_compute_point(sidebar.nextChapterButton(), root, &origin, &next) &&
             gtk_widget_compute_point(sidebar.previousChapterButton(), root, &origin, &previous) &&
             (next.x < previous.x) == readsFromRight;
    }));
  }
}

}  // namespace
}  // namespace tomekeeper::testing
