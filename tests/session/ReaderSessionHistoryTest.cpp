#include <gtest/gtest.h>

#include <functional>

#include "SessionHarness.h"
#include "session/NavigationHistory.h"

namespace tomekeeper::testing {
namespace {

class ReaderSessionHistoryTest : public ::testing::Test {
 protected:
  void SetUp() override {
    harness.create();
    // A jump by address lands at the start of chapter 2, as the runtime would report it.
    harness.runtime().handlers["goTo"] = [this](const json& payload) {
      runtime().current = payload.contains("locator") ? payload["locator"].get<Locator>()
                                                      : locatorAt(2, "/6/6!/4/8/1:0", 0.4);
      return RuntimeAnswer::result({{"spineIndex", runtime().current.spineIndex},
                                    {"page", 3},
                                    {"pageCount", 12},
                                    {"atStart", false},
                                    {"atEnd", false}});
    };
  }

  ScriptedReaderRuntime& runtime() { return harness.runtime(); }

  Locator lastGoToLocator() {
    const std::vector<json> payloads = runtime().payloads("goTo");
    return payloads.empty() ? Locator{} : payloads.back()["locator"].get<Locator>();
  }

  SessionHarness harness;
};

// Every kind of jump remembers the place it left: Back returns there exactly, Forward goes to
// where the jump led.
TEST_F(ReaderSessionHistoryTest, EveryJumpCanBeTakenBackAndForward) {
  const Locator bookmarked = locatorAt(1, "/6/4!/4/20/1:5", 0.7);
  const struct {
    const char* name;
    std::function<void(ReaderSession&)> jump;
  } jumps[] = {
      {"link",
       [&](ReaderSession&) {
         runtime().sendEvent("linkActivated",
                             {{"url", harness.descriptor().resourceBaseURL + "c2.xhtml#note"}});
       }},
      {"contents entry",
       [](ReaderSession& session) { runToEnd(session.goToTableOfContentsEntry("c2.xhtml")); }},
      {"search result",
       [&](ReaderSession& session) {
         runToEnd(session.goToSearchResult(PublicationSearchResult{"r1", bookmarked, "words"}));
       }},
      {"bookmark",
       [&](ReaderSession& session) {
         runToEnd(session.goToBookmark(SessionHarness::bookmark(bookmarked)));
       }},
  };
  ASSERT_EQ(harness.open(), std::nullopt);
  for (const auto& jump : jumps) {
    SCOPED_TRACE(jump.name);
    runToEnd(harness.session->nextPage());
    const Locator before = *harness.session->locator().value();
    const std::size_t goTos = runtime().count("goTo");
    jump.jump(*harness.session);
    ASSERT_TRUE(iterateUntil([&] { return runtime().count("goTo") == goTos + 1; }));
    ASSERT_TRUE(
        iterateUntil([&] { return harness.session->navigationAvailability().value().canGoBack; }));
    const Locator landed = *harness.session->locator().value();
    EXPECT_NE(landed, before);

    runToEnd(harness.session->goBack());
    EXPECT_EQ(lastGoToLocator(), before);
    EXPECT_EQ(harness.session->navigationAvailability().value(),
              (NavigationAvailability{.canGoBack = false, .canGoForward = true}));
    runToEnd(harness.session->goForward());
    EXPECT_EQ(lastGoToLocator(), landed);
    runToEnd(harness.session->goBack());
  }
}

TEST_F(ReaderSessionHistoryTest, AFailedJumpLeavesNothingToGoBackTo) {
  ASSERT_EQ(harness.open(), std::nullopt);
  runtime().handlers["goTo"] = [](const json&) { return RuntimeAnswer::failure("href-not-found"); };
  EXPECT_TRUE(failureOf(harness.session->followLink("c9.xhtml")).has_value());
  EXPECT_FALSE(harness.session->navigationAvailability().value().canGoBack);
  // Nowhere to go: Back asks the runtime nothing.
  const std::size_t calls = runtime().calls.size();
  runToEnd(harness.session->goBack());
  EXPECT_EQ(runtime().calls.size(), calls);
}

// Left and Right turn pages toward their side: in a book read from right to left, Left reads on.
TEST_F(ReaderSessionHistoryTest, SideKeysFollowTheBooksPageProgression) {
  const struct {
    const char* progression;
    ReaderNavigationDirection key;
    const char* method;
  } cases[] = {
      {"ltr", ReaderNavigationDirection::towardRight, "next"},
      {"ltr", ReaderNavigationDirection::towardLeft, "previous"},
      {"rtl", ReaderNavigationDirection::towardLeft, "next"},
      {"rtl", ReaderNavigationDirection::towardRight, "previous"},
      {"", ReaderNavigationDirection::towardRight, "next"},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(std::string(testCase.progression) + " " + testCase.method);
    SessionHarness book;
    book.create();
    book.runtime().handlers["open"] = [&](const json&) {
      json result = {{"authors", json::array()},
                     {"spineItemCount", 3},
                     {"initialResourceURL", "tomekeeper://publication/x/c0.xhtml"}};
      if (*testCase.progression != '\0') result["pageProgressionDirection"] = testCase.progression;
      return RuntimeAnswer::result(result);
    };
    ASSERT_EQ(book.open(), std::nullopt);
    book.session->handleNavigationKey(testCase.key);
    ASSERT_TRUE(iterateUntil([&] { return book.runtime().count(testCase.method) == 1; }));
  }
}

TEST_F(ReaderSessionHistoryTest, APageTurnAskedByThePageTurnsIt) {
  ASSERT_EQ(harness.open(), std::nullopt);
  runtime().sendEvent("pageTurnRequested", {{"direction", "sideways"}});
  runtime().sendEvent("pageTurnRequested", {{"direction", "previous"}});
  runtime().sendEvent("pageTurnRequested", {{"direction", "next"}});
  ASSERT_TRUE(iterateUntil([&] { return runtime().count("next") == 1; }));
  EXPECT_EQ(runtime().count("previous"), 1u);
}

TEST(NavigationHistoryTest, AJumpDropsForwardAndTheOldestPlacesGoFirst) {
  NavigationHistory history;
  for (int jump = 0; jump < static_cast<int>(NavigationHistory::kMaximumEntries) + 5; ++jump) {
    history.recordJump(locatorAt(jump, "/6/2!/4/2/1:0"));
  }
  std::vector<std::int64_t> returned;
  Locator here = locatorAt(999, "/6/2!/4/2/1:0");
  while (const std::optional<Locator> back = history.back(here)) {
    returned.push_back(back->spineIndex);
    here = *back;
  }
  ASSERT_EQ(returned.size(), NavigationHistory::kMaximumEntries);
  EXPECT_EQ(returned.front(), static_cast<std::int64_t>(NavigationHistory::kMaximumEntries) + 4);
  EXPECT_EQ(returned.back(), 5);
  EXPECT_TRUE(history.canGoForward());
  history.recordJump(here);
  EXPECT_FALSE(history.canGoForward());
}

}  // namespace
}  // namespace tomekeeper::testing
