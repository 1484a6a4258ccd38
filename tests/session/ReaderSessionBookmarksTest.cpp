#include <gtest/gtest.h>

#include "SessionHarness.h"

namespace tomekeeper::testing {
namespace {

class ReaderSessionBookmarksTest : public ::testing::Test {
 protected:
  void openWith(StorePresence stores) {
    harness.create(stores);
    ASSERT_EQ(harness.open(), std::nullopt);
  }

  SessionHarness harness;
};

TEST_F(ReaderSessionBookmarksTest, TogglingTwiceAtTheSamePlaceRemovesTheBookmarkTheFirstMade) {
  openWith(StorePresence::all);

  EXPECT_EQ(runToEnd(harness.session->toggleBookmark()), BookmarkToggle::added);
  ASSERT_EQ(harness.bookmarkStore->stored.size(), 1u);
  EXPECT_EQ(harness.bookmarkStore->stored[0].locator, harness.runtime().current);
  EXPECT_EQ(harness.bookmarkStore->stored[0].bookFingerprint, std::string(kFingerprint));
  EXPECT_EQ(harness.session->bookmarks().value(), harness.bookmarkStore->stored);
  const json candidates = harness.runtime().payloads("configureBookmarkVisibility").back();
  ASSERT_EQ(candidates["bookmarks"].size(), 1u);
  EXPECT_EQ(candidates["bookmarks"][0]["id"], harness.bookmarkStore->stored[0].id.string());

  EXPECT_EQ(runToEnd(harness.session->toggleBookmark()), BookmarkToggle::removed);
  EXPECT_TRUE(harness.bookmarkStore->stored.empty());
  EXPECT_TRUE(harness.session->bookmarks().value().empty());
  EXPECT_EQ(harness.runtime().payloads("configureBookmarkVisibility").back()["bookmarks"],
            json::array());
}

TEST_F(ReaderSessionBookmarksTest, LocatorDifferingOnlyInCFIMakesASecondBookmark) {
  openWith(StorePresence::all);
  runToEnd(harness.session->toggleBookmark());
  harness.runtime().current.cfi = "/6/2!/4/2/1:1";

  EXPECT_EQ(runToEnd(harness.session->toggleBookmark()), BookmarkToggle::added);
  EXPECT_EQ(harness.session->bookmarks().value().size(), 2u);
}

TEST_F(ReaderSessionBookmarksTest, VisibilityReplyAndEventsFillTheVisibleSet) {
  openWith(StorePresence::all);
  harness.runtime().handlers["configureBookmarkVisibility"] = [](const json& payload) {
    json ids = json::array();
    for (const json& candidate : payload["bookmarks"]) ids.push_back(candidate["id"]);
    return RuntimeAnswer::result({{"visibleBookmarkIDs", ids}});
  };
  runToEnd(harness.session->toggleBookmark());
  const Uuid id = harness.session->bookmarks().value()[0].id;
  EXPECT_EQ(harness.session->visibleBookmarkIDs().value(), std::set<Uuid>{id});

  harness.runtime().sendEvent("bookmarkVisibilityChanged", {{"visibleBookmarkIDs", json::array()}});
  EXPECT_TRUE(harness.session->visibleBookmarkIDs().value().empty());
}

TEST_F(ReaderSessionBookmarksTest, RefusedStoreKeepsTheListAndRecordsTheFailure) {
  openWith(StorePresence::all);
  harness.bookmarkStore->writeFailure = BookmarkPersistenceFailure::cannotWrite;

  const std::optional<ReaderError> failure =
      failureOf([](ReaderSession& session) -> async::Task<void> {
        co_await session.toggleBookmark();
      }(*harness.session));

  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(harness.session->error().value(), failure);
  EXPECT_TRUE(harness.session->bookmarks().value().empty());
}

TEST_F(ReaderSessionBookmarksTest, WithoutStoreBookmarksLiveInMemory) {
  openWith(StorePresence::none);
  EXPECT_EQ(runToEnd(harness.session->toggleBookmark()), BookmarkToggle::added);
  ASSERT_EQ(harness.session->bookmarks().value().size(), 1u);

  runToEnd(harness.session->removeBookmark(harness.session->bookmarks().value()[0]));
  EXPECT_TRUE(harness.session->bookmarks().value().empty());
}

TEST_F(ReaderSessionBookmarksTest, GoingToABookmarkJumpsAndSavesButNotForAnotherBook) {
  openWith(StorePresence::all);
  const Locator place = locatorAt(2, "/6/6!/4/30/1:0", 0.7);
  const std::size_t goTos = harness.runtime().count("goTo");

  runToEnd(harness.session->goToBookmark(SessionHarness::bookmark(place, std::string(64, 'e'))));
  EXPECT_EQ(harness.runtime().count("goTo"), goTos);

  runToEnd(harness.session->goToBookmark(SessionHarness::bookmark(place)));
  EXPECT_EQ(harness.runtime().payloads("goTo").back()["locator"].get<Locator>(), place);
  EXPECT_EQ(harness.session->locator().value(), place);
  ASSERT_FALSE(harness.positions->saves.empty());
  EXPECT_EQ(harness.positions->saves.back(), place);
}

TEST_F(ReaderSessionBookmarksTest, CommandsOutsideReadyDoNothing) {
  harness.create();
  EXPECT_EQ(runToEnd(harness.session->toggleBookmark()), std::nullopt);
  EXPECT_TRUE(harness.runtime().calls.empty());
}

}  // namespace
}  // namespace tomekeeper::testing
