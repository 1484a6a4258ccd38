#include <gtest/gtest.h>

#include <algorithm>

#include "SessionHarness.h"
#include "async/Sleep.h"
#include "session/PageLabel.h"

namespace tomekeeper::testing {
namespace {

using State = ReaderSession::State;

std::size_t countOf(const std::vector<std::string>& list, const std::string& value) {
  return static_cast<std::size_t>(std::count(list.begin(), list.end(), value));
}

json locatorEvent(const Locator& locator) {
  return {{"locator", json(locator)}};
}

class ReaderSessionPositionTest : public ::testing::Test {
 protected:
  void openWith(StorePresence stores,
                std::chrono::steady_clock::duration delay = std::chrono::milliseconds(350)) {
    harness.create(stores, delay);
    ASSERT_EQ(harness.open(), std::nullopt);
  }

  // The sentinel for a delayed save that must not come: a sleep as long as the save's delay,
  // started after every event, ends after any such save has been queued on the store, and the
  // store read queued then comes after it.
  void waitPastTheQuietTime(std::chrono::steady_clock::duration delay) {
    runToEnd([](std::shared_ptr<MemoryPositionRepository> positions,
                std::chrono::steady_clock::duration delay) -> async::Task<void> {
      co_await async::sleepFor(delay);
      co_await positions->locator(std::string(kFingerprint));
    }(harness.positions, delay));
  }

  SessionHarness harness;
};

TEST_F(ReaderSessionPositionTest, ThousandEventsTenMillisecondsApartWriteOnceWithTheLastLocator) {
  openWith(StorePresence::all);
  Locator last;
  for (int index = 0; index < 1000; ++index) {
    last = locatorAt(1, "/6/4!/4/" + std::to_string(2 * index) + "/1:0", index / 1000.0);
    harness.runtime().sendEvent("locatorChanged", locatorEvent(last));
    iterateFor(std::chrono::milliseconds(10));
  }
  // Everything before this point came well inside the quiet time of the one before.
  EXPECT_EQ(harness.session->locator().value(), last);

  ASSERT_TRUE(iterateUntil([&] { return !harness.positions->saves.empty(); }));
  waitPastTheQuietTime(std::chrono::milliseconds(350));

  ASSERT_EQ(harness.positions->saves.size(), 1u);
  EXPECT_EQ(harness.positions->saves[0], last);
  const std::vector<std::string> stages = harness.log->stages();
  EXPECT_EQ(countOf(stages, "runtime.event"), 1000u);
  EXPECT_EQ(countOf(stages, "runtime.saved"), 1u);
  EXPECT_TRUE(harness.session->shouldPersistCurrentLocatorOnClose());
}

TEST_F(ReaderSessionPositionTest, CloseInsideTheQuietTimeCancelsTheDelayedSaveAndSavesOnce) {
  openWith(StorePresence::all, std::chrono::milliseconds(50));
  const Locator moved = locatorAt(2, "/6/6!/4/12/1:0");
  harness.runtime().sendEvent("locatorChanged", locatorEvent(moved));

  harness.session->close();
  ASSERT_TRUE(iterateUntil([&] { return !harness.positions->saves.empty(); }));
  waitPastTheQuietTime(std::chrono::milliseconds(50));

  ASSERT_EQ(harness.positions->saves.size(), 1u);
  EXPECT_EQ(harness.positions->saves[0], moved);
  EXPECT_EQ(countOf(harness.log->stages(), "runtime.saved"), 0u);
  EXPECT_EQ(countOf(harness.log->stages(), "close.saved"), 1u);
}

TEST_F(ReaderSessionPositionTest, FailedDelayedSaveSetsErrorAndThrowsNothing) {
  openWith(StorePresence::all, std::chrono::milliseconds(1));
  harness.positions->writeFailure = ReadingPositionPersistenceFailure::cannotWrite;

  harness.runtime().sendEvent("locatorChanged", locatorEvent(locatorAt(1, "/6/4!/4/8/1:0")));

  ASSERT_TRUE(iterateUntil([&] { return harness.session->error().value().has_value(); }));
  EXPECT_EQ(harness.session->error().value()->kind(), ReaderErrorKind::persistenceFailed);
  EXPECT_EQ(countOf(harness.log->stages(), "runtime.saved"), 0u);
}

TEST_F(ReaderSessionPositionTest,
       WithoutPositionStoreEventsAreDroppedButPageCommandsMoveTheLocator) {
  openWith(StorePresence::none);
  const std::optional<Locator> before = harness.session->locator().value();

  harness.runtime().sendEvent("locatorChanged", locatorEvent(locatorAt(2, "/6/6!/4/2/1:0")));
  EXPECT_EQ(harness.session->locator().value(), before);

  runToEnd(harness.session->nextPage());
  EXPECT_EQ(harness.session->locator().value(), harness.runtime().current);
  EXPECT_NE(harness.session->locator().value(), before);
  EXPECT_EQ(harness.session->position().value()->page, 2);
  EXPECT_EQ(countOf(harness.log->stages(), "navigation.saved"), 0u);
}

TEST_F(ReaderSessionPositionTest, PageAndSectionCommandsSaveAtOnce) {
  openWith(StorePresence::all);

  runToEnd(harness.session->nextPage());
  ASSERT_EQ(harness.positions->saves.size(), 1u);
  EXPECT_EQ(harness.positions->saves[0], harness.runtime().current);

  runToEnd(harness.session->nextSection());
  ASSERT_EQ(harness.positions->saves.size(), 2u);
  EXPECT_EQ(harness.positions->saves[1].spineIndex, 1);
  EXPECT_EQ(harness.session->position().value()->page, 1);

  runToEnd(harness.session->previousPage());
  runToEnd(harness.session->previousSection());
  EXPECT_EQ(harness.positions->saves.size(), 4u);
  EXPECT_EQ(countOf(harness.log->stages(), "navigation.saved"), 4u);
}

TEST_F(ReaderSessionPositionTest, RefusedPageTurnKeepsPositionAndLocatorAndRecordsTheFailure) {
  openWith(StorePresence::all);
  const auto position = harness.session->position().value();
  const auto locator = harness.session->locator().value();
  harness.runtime().handlers["next"] = [](const json&) {
    return RuntimeAnswer::failure("internal-error");
  };

  const std::optional<ReaderError> failure = failureOf(harness.session->nextPage());

  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(harness.session->error().value(), failure);
  EXPECT_EQ(harness.session->position().value(), position);
  EXPECT_EQ(harness.session->locator().value(), locator);
  EXPECT_EQ(harness.session->state().value(), State::ready);
}

TEST_F(ReaderSessionPositionTest, FailedImmediateSaveKeepsTheNewLocatorAndWritesNoStage) {
  openWith(StorePresence::all);
  harness.positions->writeFailure = ReadingPositionPersistenceFailure::cannotWrite;

  const std::optional<ReaderError> failure = failureOf(harness.session->nextPage());

  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(failure->kind(), ReaderErrorKind::persistenceFailed);
  EXPECT_EQ(harness.session->locator().value(), harness.runtime().current);
  EXPECT_EQ(countOf(harness.log->stages(), "navigation.saved"), 0u);
  EXPECT_TRUE(harness.session->shouldPersistCurrentLocatorOnClose());
}

TEST_F(ReaderSessionPositionTest, PaginationKeyIsTakenOnlyWhenReadyAndPaginated) {
  harness.create();
  EXPECT_FALSE(harness.session->handlePaginationKey(ReaderNavigationDirection::next));
  ASSERT_EQ(harness.open(), std::nullopt);

  EXPECT_TRUE(harness.session->handlePaginationKey(ReaderNavigationDirection::next));
  ASSERT_TRUE(iterateUntil([&] { return harness.positions->saves.size() == 1; }));
  EXPECT_EQ(harness.runtime().count("next"), 1u);

  runToEnd(harness.session->setReadingMode(ReadingMode::scrolled));
  EXPECT_FALSE(harness.session->handlePaginationKey(ReaderNavigationDirection::previous));
  harness.session->handleNavigationKey(ReaderNavigationDirection::previous);
  ASSERT_TRUE(iterateUntil([&] { return harness.runtime().count("previous") == 1; }));
}

TEST_F(ReaderSessionPositionTest, NavigationKeyOutsideReadyTurnsNoPage) {
  harness.create();
  harness.session->handleNavigationKey(ReaderNavigationDirection::next);
  // The sentinel: a request started after the key, whose reply comes after a page turn's.
  runToEnd(harness.host->bridge()->currentLocator());
  EXPECT_EQ(harness.runtime().methods(), std::vector<std::string>{"currentLocator"});
}

TEST_F(ReaderSessionPositionTest, PageLabelFollowsModePositionAndColumns) {
  openWith(StorePresence::all);
  EXPECT_EQ(harness.session->pageLabel(), "Page 1 / 12");
  runToEnd(harness.session->setPageLayout(PageLayout::doublePage));
  EXPECT_EQ(harness.session->pageLabel(), "Spread 1 / 12");
  runToEnd(harness.session->setReadingMode(ReadingMode::scrolled));
  EXPECT_EQ(harness.session->pageLabel(), std::nullopt);
}

TEST(PageLabelTest, ClampsThePageIntoTheCount) {
  ReaderPositionResult position;
  position.page = 0;
  position.pageCount = 10;
  EXPECT_EQ(pageLabel(ReadingMode::paginated, position, 1), "Page 1 / 10");
  position.page = 12;
  EXPECT_EQ(pageLabel(ReadingMode::paginated, position, 1), "Page 10 / 10");
  position.page = 2;
  position.pageCount = 60;
  EXPECT_EQ(pageLabel(ReadingMode::paginated, position, 2), "Spread 2 / 60");
}

TEST(PageLabelTest, IsAbsentWhenScrolledWithoutPositionOrWithoutPages) {
  ReaderPositionResult position;
  position.page = 1;
  position.pageCount = 10;
  EXPECT_EQ(pageLabel(ReadingMode::scrolled, position, 1), std::nullopt);
  EXPECT_EQ(pageLabel(ReadingMode::paginated, std::nullopt, 1), std::nullopt);
  position.pageCount = 0;
  EXPECT_EQ(pageLabel(ReadingMode::paginated, position, 1), std::nullopt);
}

TEST_F(ReaderSessionPositionTest, LogIsSilentWhileTheSettingIsOffAndReadAtEveryCall) {
  harness.diagnostics->enabled = false;
  openWith(StorePresence::all);
  EXPECT_TRUE(harness.log->lines.empty());
  EXPECT_GT(harness.diagnostics->reads, 0);

  harness.diagnostics->enabled = true;
  runToEnd(harness.session->nextPage());
  EXPECT_EQ(harness.log->stages(), std::vector<std::string>{"navigation.saved"});
}

}  // namespace
}  // namespace tomekeeper::testing
