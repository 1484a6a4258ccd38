#include <gtest/gtest.h>

#include "SessionHarness.h"
#include "model/TableOfContentsOutlineNode.h"

namespace tomekeeper::testing {
namespace {

json hit(const std::string& id, std::int64_t spineIndex = 1) {
  return {{"id", id},
          {"locator", json(locatorAt(spineIndex, "/6/4!/4/2,/1:0,/1:5"))},
          {"excerpt", "… a hit …"}};
}

class ReaderSessionSearchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    harness.create();
    ASSERT_EQ(harness.open(), std::nullopt);
  }

  Uuid start(const std::string& query) {
    runToEnd(harness.session->startSearch(query));
    return *harness.session->activeSearchID().value();
  }

  void batch(const Uuid& searchID, json results, bool isComplete) {
    harness.runtime().sendEvent("searchResults", {{"searchID", searchID.string()},
                                                  {"results", std::move(results)},
                                                  {"isComplete", isComplete}});
  }

  SessionHarness harness;
};

TEST_F(ReaderSessionSearchTest, StartingSendsTheTrimmedQueryAndWaitsForBatches) {
  const Uuid id = start("  whale \n");

  const std::vector<json> sent = harness.runtime().payloads("startSearch");
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0]["query"], "whale");
  EXPECT_EQ(sent[0]["searchID"], id.string());
  EXPECT_FALSE(harness.session->isSearchComplete().value());
  EXPECT_TRUE(harness.session->searchResults().value().empty());
}

TEST_F(ReaderSessionSearchTest, BatchesAppendOnceEachAndTheLastEndsTheSearch) {
  const Uuid id = start("whale");
  batch(id, json::array({hit("a"), hit("b")}), false);
  batch(id, json::array({hit("b", 2), hit("c")}), false);
  batch(id, json::array(), true);

  const std::vector<PublicationSearchResult>& results = harness.session->searchResults().value();
  ASSERT_EQ(results.size(), 3u);
  EXPECT_EQ(results[0].id, "a");
  EXPECT_EQ(results[1].id, "b");
  EXPECT_EQ(results[1].locator.spineIndex, 1);  // the earlier one wins
  EXPECT_EQ(results[2].id, "c");
  EXPECT_TRUE(harness.session->isSearchComplete().value());
  EXPECT_EQ(harness.session->activeSearchID().value(), std::nullopt);
}

// A batch that is not of the running search changes nothing: one of no search at all, one of a
// search that a newer one replaced (which cancelled it), one of a cancelled search.
TEST_F(ReaderSessionSearchTest, BatchOfAnotherSearchIsDropped) {
  const Uuid foreign = start("whale");
  batch(foreign, json::array({hit("a")}), false);
  batch(Uuid::random(), json::array({hit("x")}), true);
  ASSERT_EQ(harness.session->searchResults().value().size(), 1u);
  EXPECT_EQ(harness.session->searchResults().value()[0].id, "a");
  EXPECT_FALSE(harness.session->isSearchComplete().value());
  EXPECT_EQ(harness.session->activeSearchID().value(), foreign);

  const Uuid replaced = start("ship");
  const Uuid second = start("sail");
  EXPECT_EQ(harness.runtime().payloads("cancelSearch").back()["searchID"], replaced.string());
  batch(replaced, json::array({hit("late")}), true);
  EXPECT_TRUE(harness.session->searchResults().value().empty());
  EXPECT_EQ(harness.session->activeSearchID().value(), second);
  EXPECT_FALSE(harness.session->isSearchComplete().value());

  runToEnd(harness.session->cancelSearch());
  batch(second, json::array({hit("late")}), false);
  EXPECT_TRUE(harness.session->searchResults().value().empty());
  EXPECT_TRUE(harness.session->isSearchComplete().value());
  EXPECT_EQ(harness.session->activeSearchID().value(), std::nullopt);
}

TEST_F(ReaderSessionSearchTest, QueryOfOnlySpacesCancelsTheRunningSearchAndStartsNone) {
  const Uuid id = start("whale");
  runToEnd(harness.session->startSearch("   "));

  EXPECT_EQ(harness.runtime().count("startSearch"), 1u);
  ASSERT_EQ(harness.runtime().count("cancelSearch"), 1u);
  EXPECT_EQ(harness.runtime().payloads("cancelSearch")[0]["searchID"], id.string());
  EXPECT_EQ(harness.session->activeSearchID().value(), std::nullopt);
  EXPECT_TRUE(harness.session->isSearchComplete().value());
}

TEST_F(ReaderSessionSearchTest, CancellingWithNoActiveSearchLeavesItComplete) {
  runToEnd(harness.session->cancelSearch());
  EXPECT_TRUE(harness.session->isSearchComplete().value());
  EXPECT_EQ(harness.runtime().count("cancelSearch"), 0u);
}

TEST_F(ReaderSessionSearchTest, RefusedStartEndsTheSearchAndRecordsTheFailure) {
  harness.runtime().handlers["startSearch"] = [](const json&) {
    return RuntimeAnswer::failure("internal-error");
  };

  const std::optional<ReaderError> failure = failureOf(harness.session->startSearch("whale"));

  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(harness.session->error().value(), failure);
  EXPECT_EQ(harness.session->activeSearchID().value(), std::nullopt);
  EXPECT_TRUE(harness.session->isSearchComplete().value());
}

TEST_F(ReaderSessionSearchTest, BatchArrivingBeforeTheStartReplyIsKept) {
  harness.runtime().handlers["startSearch"] = [this](const json& payload) {
    harness.runtime().sendEvent("searchResults", {{"searchID", payload["searchID"]},
                                                  {"results", json::array({hit("early")})},
                                                  {"isComplete", false}});
    return RuntimeAnswer::result({{"searchID", payload["searchID"]}});
  };

  runToEnd(harness.session->startSearch("whale"));

  ASSERT_EQ(harness.session->searchResults().value().size(), 1u);
  EXPECT_EQ(harness.session->searchResults().value()[0].id, "early");
}

TEST_F(ReaderSessionSearchTest, GoingToAResultJumpsAndSaves) {
  const Uuid id = start("whale");
  batch(id, json::array({hit("a", 2)}), true);
  const PublicationSearchResult result = harness.session->searchResults().value()[0];

  runToEnd(harness.session->goToSearchResult(result));

  EXPECT_EQ(harness.runtime().payloads("goTo").back()["locator"].get<Locator>(), result.locator);
  EXPECT_EQ(harness.positions->saves.back(), result.locator);
}

TEST_F(ReaderSessionSearchTest, GoingToAContentsEntrySendsItsHrefAndSaves) {
  runToEnd(harness.session->goToTableOfContentsEntry("c1.xhtml"));

  EXPECT_EQ(harness.runtime().payloads("goTo").back()["href"], "c1.xhtml");
  EXPECT_EQ(harness.positions->saves.size(), 1u);
}

TEST_F(ReaderSessionSearchTest, RefusedContentsJumpKeepsThePosition) {
  const auto position = harness.session->position().value();
  harness.runtime().handlers["goTo"] = [](const json&) {
    return RuntimeAnswer::failure("href-not-found");
  };

  ASSERT_TRUE(failureOf(harness.session->goToTableOfContentsEntry("missing.xhtml")).has_value());
  EXPECT_EQ(harness.session->position().value(), position);
  EXPECT_TRUE(harness.positions->saves.empty());
}

TEST_F(ReaderSessionSearchTest, ContentsEntryWithEmptyChildrenIsALeafOfTheOutline) {
  ASSERT_EQ(harness.session->tableOfContents().value().size(), 1u);
  const std::vector<TableOfContentsOutlineNode> outline = harness.session->tableOfContentsOutline();
  ASSERT_EQ(outline.size(), 1u);
  EXPECT_EQ(outline[0].id, std::vector<std::int64_t>{0});
  EXPECT_EQ(outline[0].children, std::nullopt);
}

}  // namespace
}  // namespace tomekeeper::testing
