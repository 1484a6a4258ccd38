#include "views/PublicationSearchView.h"

#include "ViewsDisplayTestSupport.h"

namespace tomekeeper::testing {
namespace {

using PublicationSearchViewDisplayTest = ViewsDisplayTest;

json searchHit(const std::string& id, const std::string& excerpt, bool withCFI) {
  json locator = locatorJSON(locatorAt(2, "/6/6!/4/2,/1:4,/1:9"));
  if (!withCFI) locator.erase("cfi");
  return json{{"id", id}, {"locator", locator}, {"excerpt", excerpt}};
}

TEST_F(PublicationSearchViewDisplayTest, SearchesShowsProgressThenCountsAndListsResults) {
  openSession();
  PublicationSearchView view(session);
  showInWindow(view.widget());
  EXPECT_TRUE(showsText(view.widget(), "Search This Book"));
  EXPECT_TRUE(showsText(view.widget(), "Search"));
  EXPECT_FALSE(isShown(view.progressRow()));
  EXPECT_FALSE(isShown(view.resultCountLabel()));
  EXPECT_TRUE(waitUntil([&] { return gtk_widget_get_width(view.widget()) >= 280; }));

  gtk_editable_set_text(view.queryField(), "  whale ");
  g_signal_emit_by_name(view.searchButton(), "clicked");
  ASSERT_TRUE(waitUntil([&] { return host->runtime.count("startSearch") == 1; }));
  ASSERT_TRUE(session->activeSearchID()->has_value());
  EXPECT_EQ(host->runtime.payloads("startSearch").back()["query"], "whale");
  ASSERT_TRUE(waitUntil([&] { return isShown(view.progressRow()); }));
  EXPECT_TRUE(showsText(view.progressRow(), "Searching\u2026"));
  EXPECT_TRUE(showsText(view.progressRow(), "Cancel"));

  host->runtime.sendEvent("searchResults",
                          {{"searchID", session->activeSearchID()->value().string()},
                           {"results", json::array({searchHit("r1", "the white whale", true),
                                                    searchHit("r2", "a whale of a time", false)})},
                           {"isComplete", true}});
  ASSERT_TRUE(waitUntil([&] { return isShown(view.resultCountLabel()); }));
  EXPECT_EQ(std::string(gtk_label_get_text(GTK_LABEL(view.resultCountLabel()))), "2 results");
  EXPECT_FALSE(isShown(view.progressRow()));
  GtkListBoxRow* first = gtk_list_box_get_row_at_index(view.resultList(), 0);
  GtkListBoxRow* second = gtk_list_box_get_row_at_index(view.resultList(), 1);
  ASSERT_NE(second, nullptr);
  EXPECT_TRUE(showsText(GTK_WIDGET(first), "the white whale"));
  EXPECT_FALSE(showsText(GTK_WIDGET(first), "Original location unavailable"));
  EXPECT_TRUE(showsText(GTK_WIDGET(second), "a whale of a time"));
  EXPECT_TRUE(showsText(GTK_WIDGET(second), "Original location unavailable"));

  const std::size_t goTos = host->runtime.count("goTo");
  g_signal_emit_by_name(view.resultList(), "row-activated", first);
  ASSERT_TRUE(waitUntil([&] { return host->runtime.count("goTo") == goTos + 1; }));
  EXPECT_EQ(host->runtime.payloads("goTo").back()["locator"]["cfi"], "/6/6!/4/2,/1:4,/1:9");
}

// Each search starts with Enter in the field; only one that ended empty says so, and the cancel
// button stops one.
TEST_F(PublicationSearchViewDisplayTest, SaysNoResultsOnlyAfterASearchThatEndedEmpty) {
  openSession();
  PublicationSearchView view(session);
  showInWindow(view.widget());
  struct Step {
    const char* name;
    std::optional<json> results;  // the page's answer; none: the reader cancels
    const char* count;            // null: no count shown
  };
  const Step steps[] = {
      {"nothing found", json::array(), "No Results"},
      {"one found", json::array({searchHit("r1", "the white whale", true)}), "1 result"},
      {"cancelled", std::nullopt, nullptr},
  };
  for (const Step& step : steps) {
    SCOPED_TRACE(step.name);
    const std::size_t searches = host->runtime.count("startSearch");
    const std::size_t cancels = host->runtime.count("cancelSearch");
    // Enter in the field searches.
    gtk_editable_set_text(view.queryField(), "whale");
    g_signal_emit_by_name(view.queryField(), "activate");
    ASSERT_TRUE(waitUntil([&] { return host->runtime.count("startSearch") == searches + 1; }));
    EXPECT_EQ(host->runtime.payloads("startSearch").back()["query"], "whale");
    EXPECT_TRUE(isShown(view.progressRow()));
    EXPECT_FALSE(isShown(view.resultCountLabel()));
    if (step.results) {
      host->runtime.sendEvent("searchResults",
                              {{"searchID", session->activeSearchID()->value().string()},
                               {"results", *step.results},
                               {"isComplete", true}});
    } else {
      g_signal_emit_by_name(view.cancelButton(), "clicked");
      ASSERT_TRUE(waitUntil([&] { return host->runtime.count("cancelSearch") == cancels + 1; }));
    }
    ASSERT_TRUE(waitUntil([&] { return session->isSearchComplete().value(); }));
    EXPECT_FALSE(isShown(view.progressRow()));
    EXPECT_EQ(isShown(view.resultCountLabel()), step.count != nullptr);
    if (step.count != nullptr) {
      EXPECT_EQ(std::string(gtk_label_get_text(GTK_LABEL(view.resultCountLabel()))), step.count);
    }
  }
}

}  // namespace
}  // namespace tomekeeper::testing
