#include <gtest/gtest.h>

#include "SessionHarness.h"
#include "async/Sleep.h"

namespace tomekeeper::testing {
namespace {

class ReaderSessionReadingDataTest : public ::testing::Test {
 protected:
  void SetUp() override {
    first = SessionHarness::annotation("first");
    second = SessionHarness::annotation("second", "a note");
    harness.annotationStore->stored = {first, second};
    harness.bookmarkStore->stored = {SessionHarness::bookmark(locatorAt(1, "/6/4!/4/2/1:0"))};
    harness.positions->locators[std::string(kFingerprint)] = locatorAt(2, "/6/6!/4/2/1:0");
  }

  void openWith(StorePresence stores) {
    harness.create(stores);
    ASSERT_EQ(harness.open(), std::nullopt);
  }

  std::vector<std::string> idsSent(const std::string& method, std::size_t from) const {
    std::vector<std::string> ids;
    const auto& calls = harness.host->runtime.calls;
    for (std::size_t index = from; index < calls.size(); ++index) {
      if (calls[index].method != method) continue;
      const json& payload = calls[index].payload;
      ids.push_back(payload.contains("annotation") ? payload["annotation"]["id"] : payload["id"]);
    }
    return ids;
  }

  SessionHarness harness;
  Annotation first;
  Annotation second;
};

TEST_F(ReaderSessionReadingDataTest, ForgetsEverythingInTheStoresOnThePageAndAtClose) {
  openWith(StorePresence::all);
  const std::optional<Locator> place = harness.session->locator().value();
  const std::size_t from = harness.runtime().calls.size();

  runToEnd(harness.session->clearReadingData());

  EXPECT_EQ(idsSent("removeAnnotation", from),
            (std::vector<std::string>{first.id.string(), second.id.string()}));
  EXPECT_TRUE(harness.positions->locators.empty());
  EXPECT_TRUE(harness.bookmarkStore->stored.empty());
  EXPECT_TRUE(harness.annotationStore->stored.empty());
  EXPECT_TRUE(harness.session->bookmarks().value().empty());
  EXPECT_TRUE(harness.session->visibleBookmarkIDs().value().empty());
  EXPECT_TRUE(harness.session->annotations().value().empty());
  EXPECT_TRUE(harness.session->unresolvedAnnotationIDs().value().empty());
  EXPECT_EQ(harness.runtime().payloads("configureBookmarkVisibility").back()["bookmarks"],
            json::array());
  // The reader stays where they are: no navigation, and `locator` untouched.
  EXPECT_EQ(harness.session->locator().value(), place);
  for (std::size_t index = from; index < harness.runtime().calls.size(); ++index) {
    EXPECT_NE(harness.runtime().calls[index].method, "goTo");
  }
  EXPECT_FALSE(harness.session->shouldPersistCurrentLocatorOnClose());

  harness.session->close();
  // A save that this close started would reach the store before this read.
  runToEnd(harness.positions->locator(std::string(kFingerprint)));
  EXPECT_TRUE(harness.positions->saves.empty());
  EXPECT_TRUE(harness.positions->locators.empty());
}

TEST_F(ReaderSessionReadingDataTest, NextOpenStartsAtTheBeginningWithNothingMarked) {
  openWith(StorePresence::all);
  runToEnd(harness.session->clearReadingData());
  harness.session->close();

  SessionHarness next;
  next.positions = harness.positions;
  next.bookmarkStore = harness.bookmarkStore;
  next.annotationStore = harness.annotationStore;
  next.create();
  ASSERT_EQ(next.open(), std::nullopt);

  EXPECT_EQ(next.log->lineOf("open.saved"), std::nullopt);
  EXPECT_TRUE(next.session->bookmarks().value().empty());
  EXPECT_TRUE(next.session->annotations().value().empty());
  EXPECT_EQ(next.runtime().count("addAnnotation"), 0u);
}

TEST_F(ReaderSessionReadingDataTest, ClearingCancelsThePendingDelayedSave) {
  harness.create(StorePresence::all, std::chrono::milliseconds(30));
  ASSERT_EQ(harness.open(), std::nullopt);
  harness.runtime().sendEvent("locatorChanged", {{"locator", json(locatorAt(2, "/6/6!/4/9/1:0"))}});

  runToEnd(harness.session->clearReadingData());
  // The sentinel: a sleep as long as the save's delay, started after it, ends after it; the
  // store read queued then comes after any save that the pending one would have made.
  runToEnd([](std::shared_ptr<MemoryPositionRepository> positions) -> async::Task<void> {
    co_await async::sleepFor(std::chrono::milliseconds(30));
    co_await positions->locator(std::string(kFingerprint));
  }(harness.positions));

  EXPECT_TRUE(harness.positions->saves.empty());
  EXPECT_TRUE(harness.positions->locators.empty());
}

TEST_F(ReaderSessionReadingDataTest, StoreFailureSendsEveryAnnotationBackAndKeepsTheLists) {
  openWith(StorePresence::all);
  harness.bookmarkStore->writeFailure = BookmarkPersistenceFailure::cannotWrite;
  const std::size_t from = harness.runtime().calls.size();
  const std::vector<Bookmark> bookmarks = harness.session->bookmarks().value();

  const std::optional<ReaderError> failure = failureOf(harness.session->clearReadingData());

  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(failure->kind(), ReaderErrorKind::persistenceFailed);
  EXPECT_EQ(harness.session->error().value(), failure);
  const std::vector<std::string> order{first.id.string(), second.id.string()};
  EXPECT_EQ(idsSent("removeAnnotation", from), order);
  EXPECT_EQ(idsSent("addAnnotation", from), order);
  // The position store was reached first and stays empty; the rest is as it was.
  EXPECT_TRUE(harness.positions->locators.empty());
  EXPECT_EQ(harness.bookmarkStore->stored.size(), 1u);
  EXPECT_EQ(harness.annotationStore->stored.size(), 2u);
  EXPECT_EQ(harness.session->bookmarks().value(), bookmarks);
  EXPECT_EQ(harness.session->annotations().value().size(), 2u);
  EXPECT_TRUE(harness.session->shouldPersistCurrentLocatorOnClose());
}

TEST_F(ReaderSessionReadingDataTest, RuntimeRefusalStopsBeforeTheStores) {
  openWith(StorePresence::all);
  harness.runtime().handlers["removeAnnotation"] = [](const json&) {
    return RuntimeAnswer::failure("internal-error");
  };

  ASSERT_TRUE(failureOf(harness.session->clearReadingData()).has_value());

  EXPECT_EQ(harness.positions->locators.size(), 1u);
  EXPECT_EQ(harness.bookmarkStore->stored.size(), 1u);
  EXPECT_EQ(harness.annotationStore->stored.size(), 2u);
  EXPECT_EQ(harness.session->annotations().value().size(), 2u);
}

TEST_F(ReaderSessionReadingDataTest, WithoutStoresStillEmptiesTheListsAndTheVisibility) {
  openWith(StorePresence::none);
  runToEnd(harness.session->toggleBookmark());
  ASSERT_EQ(harness.session->bookmarks().value().size(), 1u);

  runToEnd(harness.session->clearReadingData());

  EXPECT_TRUE(harness.session->bookmarks().value().empty());
  EXPECT_EQ(harness.runtime().payloads("configureBookmarkVisibility").back()["bookmarks"],
            json::array());
  EXPECT_EQ(harness.session->error().value(), std::nullopt);
}

TEST_F(ReaderSessionReadingDataTest, FailedVisibilityCallIsIgnored) {
  openWith(StorePresence::all);
  harness.runtime().handlers["configureBookmarkVisibility"] = [](const json&) {
    return RuntimeAnswer::failure("internal-error");
  };

  runToEnd(harness.session->clearReadingData());

  EXPECT_EQ(harness.session->error().value(), std::nullopt);
  EXPECT_TRUE(harness.session->annotations().value().empty());
  EXPECT_FALSE(harness.session->shouldPersistCurrentLocatorOnClose());
}

TEST_F(ReaderSessionReadingDataTest, DoesNothingOutsideReady) {
  harness.create();
  runToEnd(harness.session->clearReadingData());
  EXPECT_TRUE(harness.runtime().calls.empty());
  EXPECT_EQ(harness.annotationStore->stored.size(), 2u);
}

}  // namespace
}  // namespace tomekeeper::testing
