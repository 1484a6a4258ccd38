#include <gtest/gtest.h>

#include <algorithm>

#include "SessionHarness.h"
#include "opening/OpenPerformanceTrace.h"

namespace tomekeeper::testing {
namespace {

using State = ReaderSession::State;

bool contains(const std::vector<std::string>& list, const std::string& value) {
  return std::find(list.begin(), list.end(), value) != list.end();
}

long lastConfigureIndex(const ScriptedReaderRuntime& runtime) {
  long last = -1;
  for (const char* method : {"configureTypography", "configureTheme", "configureReadingMode",
                             "configurePageLayout", "configureScrolledContentWidth"}) {
    last = std::max(last, runtime.lastIndexOf(method));
  }
  return last;
}

class ReaderSessionLifecycleTest : public ::testing::Test {
 protected:
  SessionHarness harness;
};

TEST_F(ReaderSessionLifecycleTest,
       RestoresSavedLocatorTwiceTheSecondTimeAfterTheLastConfigureCall) {
  const Locator saved = locatorAt(2, "/6/6!/4/10/1:42", 0.6);
  harness.positions->locators[std::string(kFingerprint)] = saved;
  harness.create();

  ASSERT_EQ(harness.open(), std::nullopt);

  EXPECT_EQ(harness.session->state().value(), State::ready);
  const std::vector<json> goTos = harness.runtime().payloads("goTo");
  ASSERT_GE(goTos.size(), 2u);
  EXPECT_EQ(goTos.front()["locator"].get<Locator>(), saved);
  EXPECT_EQ(goTos.back()["locator"].get<Locator>(), saved);
  EXPECT_GT(harness.runtime().lastIndexOf("goTo"), lastConfigureIndex(harness.runtime()));
  EXPECT_EQ(harness.session->locator().value(), saved);
  EXPECT_EQ(harness.session->fingerprint(), std::string(kFingerprint));

  const std::vector<std::string> stages = harness.log->stages();
  EXPECT_TRUE(contains(stages, "open.saved"));
  EXPECT_TRUE(contains(stages, "open.afterInitialRestore"));
  EXPECT_TRUE(contains(stages, "open.finalCorrection"));
  EXPECT_EQ(stages.back(), "open.ready");
  // Open restores but never writes the position.
  EXPECT_TRUE(harness.positions->saves.empty());
}

TEST_F(ReaderSessionLifecycleTest, RunsTheOpenStepsInOrder) {
  harness.positions->locators[std::string(kFingerprint)] = locatorAt(1, "/6/4!/4/2/1:0");
  harness.mode->value = ReadingMode::scrolled;
  harness.create();

  ASSERT_EQ(harness.open(), std::nullopt);

  // Every applier wraps its configure call in currentLocator, goTo, currentLocator; strip those
  // to see the steps themselves.
  std::vector<std::string> steps;
  for (const std::string& method : harness.runtime().methods()) {
    if (method != "currentLocator" && method != "goTo") steps.push_back(method);
  }
  EXPECT_EQ(steps, (std::vector<std::string>{
                       "open", "tableOfContents", "configureBookmarkVisibility",
                       "configureTypography", "configureTheme", "configureReadingMode",
                       "configurePageLayout", "configureScrolledContentWidth"}));
  EXPECT_EQ(harness.runtime().methods()[2], "goTo");
  EXPECT_EQ(harness.runtime().methods()[3], "currentLocator");
  ASSERT_EQ(harness.host->registrations.size(), 1u);
  EXPECT_EQ(harness.host->registrations[0].first, harness.descriptor().publicationID);
  EXPECT_EQ(harness.host->registrations[0].second, std::filesystem::path("/extracted/book"));
}

TEST_F(ReaderSessionLifecycleTest, InitialLocatorIsRestoredWithoutLookingUpTheSavedOne) {
  harness.positions->locators[std::string(kFingerprint)] = locatorAt(1, "/6/4!/4/2/1:0");
  harness.positions->readFailure = ReadingPositionPersistenceFailure::corruptStore;
  const Locator given = locatorAt(2, "/6/6!/4/8/1:3");
  harness.create();

  ASSERT_EQ(harness.open(given), std::nullopt);

  EXPECT_EQ(harness.runtime().payloads("goTo").front()["locator"].get<Locator>(), given);
  EXPECT_EQ(harness.session->locator().value(), given);
}

TEST_F(ReaderSessionLifecycleTest, WithoutStoresOpensWithInitialValuesAndSendsNoTypography) {
  harness.create(StorePresence::none);

  ASSERT_EQ(harness.open(), std::nullopt);

  const ScriptedReaderRuntime& runtime = harness.runtime();
  EXPECT_EQ(harness.session->state().value(), State::ready);
  EXPECT_EQ(runtime.count("configureTypography"), 0u);
  EXPECT_EQ(runtime.count("configureScrolledContentWidth"), 0u);
  ASSERT_EQ(runtime.count("configureTheme"), 1u);
  EXPECT_EQ(runtime.payloads("configureTheme")[0]["theme"]["mode"], "system");
  EXPECT_EQ(runtime.payloads("configureReadingMode")[0]["mode"], "paginated");
  EXPECT_EQ(runtime.payloads("configurePageLayout")[0]["layout"], "adaptive");
  EXPECT_EQ(runtime.payloads("configureBookmarkVisibility")[0]["bookmarks"], json::array());
  EXPECT_EQ(harness.session->error().value(), std::nullopt);

  const std::vector<std::string> stages = harness.log->stages();
  EXPECT_FALSE(contains(stages, "open.saved"));
  EXPECT_FALSE(contains(stages, "open.finalCorrection"));
  EXPECT_TRUE(contains(stages, "open.afterInitialRestore"));
  EXPECT_TRUE(contains(stages, "open.ready"));
}

TEST_F(ReaderSessionLifecycleTest, WithoutStoresEveryCommandWorksInMemoryAndNothingFails) {
  harness.create(StorePresence::none);
  ASSERT_EQ(harness.open(), std::nullopt);
  ReaderSession& session = *harness.session;
  harness.runtime().handlers["currentSelection"] = [](const json&) {
    return RuntimeAnswer::result(
        {{"selection",
          {{"locator", json(locatorAt(1, "/6/4!/4/2,/1:0,/1:4"))}, {"selectedText", "word"}}}});
  };

  runToEnd(session.nextPage());
  runToEnd(session.nextSection());
  runToEnd(session.setFontScale(TypographyFontScaleSelection::value(1.5)));
  runToEnd(session.setReadingTheme(ReadingThemeSelection::warm));
  runToEnd(session.setReadingMode(ReadingMode::scrolled));
  runToEnd(session.setScrolledContentWidth(ScrolledContentWidth::wide));
  runToEnd(session.setPageLayout(PageLayout::singlePage));
  runToEnd(session.toggleBookmark());
  runToEnd(session.addHighlight());
  ASSERT_EQ(session.annotations().value().size(), 1u);
  runToEnd(session.saveNote(session.annotations().value()[0], "a note"));
  EXPECT_EQ(session.annotations().value()[0].note, "a note");
  runToEnd(session.goToAnnotation(session.annotations().value()[0]));
  runToEnd(session.clearReadingData());
  session.close();
  iterateFor(std::chrono::milliseconds(20));

  EXPECT_EQ(session.error().value(), std::nullopt);
  EXPECT_EQ(session.state().value(), State::closed);
  EXPECT_EQ(session.fontScaleSelection().value(), TypographyFontScaleSelection::value(1.5));
  EXPECT_EQ(session.readingTheme().value(), ReadingThemeSelection::warm);
  EXPECT_EQ(session.scrolledContentWidth().value(), ScrolledContentWidth::wide);
  EXPECT_FALSE(contains(harness.log->stages(), "navigation.saved"));
  EXPECT_FALSE(contains(harness.log->stages(), "close.saved"));
}

TEST_F(ReaderSessionLifecycleTest, BoundTraceMeasuresTheThreeSessionStages) {
  harness.create();
  const auto trace = std::make_shared<OpenPerformanceTrace>();

  runToEnd(OpenPerformanceTrace::bind(trace, harness.openTask()));

  const auto durations = trace->state().durationsMS;
  for (const auto stage : {OpenPerformanceTrace::Stage::runtimePreparation,
                           OpenPerformanceTrace::Stage::publicationOpen,
                           OpenPerformanceTrace::Stage::readerSessionReady}) {
    EXPECT_TRUE(durations.contains(std::string(OpenPerformanceTrace::name(stage))))
        << OpenPerformanceTrace::name(stage);
  }
}

TEST_F(ReaderSessionLifecycleTest, FailedOpenStillEndsTheReadyStage) {
  harness.create();
  harness.runtime().handlers["configureTheme"] = [](const json&) {
    return RuntimeAnswer::failure("internal-error");
  };
  const auto trace = std::make_shared<OpenPerformanceTrace>();

  EXPECT_TRUE(failureOf(OpenPerformanceTrace::bind(trace, harness.openTask())).has_value());

  EXPECT_TRUE(trace->state().durationsMS.contains(
      std::string(OpenPerformanceTrace::name(OpenPerformanceTrace::Stage::readerSessionReady))));
}

TEST_F(ReaderSessionLifecycleTest, OpenSavedStageLogsTheLocatorAboutToBeRestored) {
  harness.positions->locators[std::string(kFingerprint)] =
      locatorAt(4, "/6/10[chapter-four]!/4/2[opening]/1:5", 0.5);
  harness.create();

  ASSERT_EQ(harness.open(), std::nullopt);

  const std::optional<std::string> line = harness.log->lineOf("open.saved");
  ASSERT_TRUE(line.has_value());
  EXPECT_NE(line->find("session=" + harness.session->locationDiagnosticID() + " "),
            std::string::npos);
  EXPECT_NE(line->find(" spine=4 cfi=/6/10[]!/4/2[]/1:5 fraction=0.5 "), std::string::npos);
  EXPECT_NE(line->find(" viewport=(800.0, 600.0) mode=paginated layout=adaptive"),
            std::string::npos);
  EXPECT_EQ(line->find("chapter-four"), std::string::npos);
}

TEST_F(ReaderSessionLifecycleTest, WithoutSavedLocatorRestoresNothing) {
  harness.create();

  ASSERT_EQ(harness.open(), std::nullopt);

  // The only goTo calls are those of the appliers, which put back the place they found.
  const std::vector<std::string> stages = harness.log->stages();
  EXPECT_FALSE(contains(stages, "open.saved"));
  EXPECT_FALSE(contains(stages, "open.finalCorrection"));
  EXPECT_EQ(harness.runtime().methods()[2], "currentLocator");
}

TEST_F(ReaderSessionLifecycleTest, CorruptPageLayoutStoreLeavesSessionReadyInAdaptiveWithError) {
  harness.layout->value = PageLayout::doublePage;
  harness.layout->readFailure = PageLayoutPersistenceFailure::corruptStore;
  harness.create();

  ASSERT_EQ(harness.open(), std::nullopt);

  EXPECT_EQ(harness.session->state().value(), State::ready);
  EXPECT_EQ(harness.session->pageLayout().value(), PageLayout::adaptive);
  EXPECT_EQ(harness.runtime().payloads("configurePageLayout")[0]["layout"], "adaptive");
  ASSERT_TRUE(harness.session->error().value().has_value());
  EXPECT_EQ(harness.session->error().value()->kind(), ReaderErrorKind::persistenceFailed);
}

TEST_F(ReaderSessionLifecycleTest, CorruptThemeStoreAppliesSystemAndGoesOn) {
  harness.theme->value = ReadingThemeSelection::dark;
  harness.theme->readFailure = ReadingThemePersistenceFailure::corruptStore;
  harness.create();

  ASSERT_EQ(harness.open(), std::nullopt);

  EXPECT_EQ(harness.session->state().value(), State::ready);
  EXPECT_EQ(harness.runtime().payloads("configureTheme")[0]["theme"]["mode"], "system");
  EXPECT_EQ(harness.session->readingTheme().value(), ReadingThemeSelection::system);
  ASSERT_TRUE(harness.session->error().value().has_value());
}

TEST_F(ReaderSessionLifecycleTest, CorruptTypographyStoreAppliesBookDefaultsAndGoesOn) {
  harness.typography->value.fontScale = TypographyFontScaleSelection::value(2.0);
  harness.typography->readFailure = TypographyPreferencesPersistenceFailure::corruptStore;
  harness.create();

  ASSERT_EQ(harness.open(), std::nullopt);

  EXPECT_EQ(harness.session->state().value(), State::ready);
  ASSERT_EQ(harness.runtime().count("configureTypography"), 1u);
  EXPECT_EQ(harness.session->fontScaleSelection().value(), TypographyFontScaleSelection{});
  ASSERT_TRUE(harness.session->error().value().has_value());
  EXPECT_EQ(harness.session->error().value()->kind(), ReaderErrorKind::persistenceFailed);
}

TEST_F(ReaderSessionLifecycleTest, CorruptScrolledWidthStoreStoresComfortableAndGoesOn) {
  harness.mode->value = ReadingMode::scrolled;
  harness.width->value = ScrolledContentWidth::wide;
  harness.width->readFailure = ScrolledContentWidthPersistenceFailure::corruptStore;
  harness.create();

  ASSERT_EQ(harness.open(), std::nullopt);

  EXPECT_EQ(harness.session->scrolledContentWidth().value(), ScrolledContentWidth::comfortable);
  EXPECT_EQ(harness.runtime().payloads("configureScrolledContentWidth")[0]["maxInlineSize"], 700);
  EXPECT_TRUE(harness.session->error().value().has_value());
}

TEST_F(ReaderSessionLifecycleTest, StoredWidthIsKeptButNotSentInPaginatedMode) {
  harness.width->value = ScrolledContentWidth::wide;
  harness.create();

  ASSERT_EQ(harness.open(), std::nullopt);

  EXPECT_EQ(harness.session->scrolledContentWidth().value(), ScrolledContentWidth::wide);
  EXPECT_EQ(harness.runtime().count("configureScrolledContentWidth"), 0u);
}

TEST_F(ReaderSessionLifecycleTest, CorruptPositionStoreFailsTheOpen) {
  harness.positions->readFailure = ReadingPositionPersistenceFailure::corruptStore;
  harness.create();

  const std::optional<ReaderError> failure = harness.open();

  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(failure->kind(), ReaderErrorKind::persistenceFailed);
  EXPECT_EQ(harness.session->state().value(), State::failed);
  EXPECT_EQ(harness.session->error().value(), failure);
  EXPECT_EQ(harness.runtime().count("goTo"), 0u);
  EXPECT_EQ(harness.runtime().count("configureTheme"), 0u);
}

TEST_F(ReaderSessionLifecycleTest, RefusedSavedLocatorFailsTheOpen) {
  harness.positions->locators[std::string(kFingerprint)] = locatorAt(9, "/6/20!/4/2/1:0");
  harness.create();
  harness.runtime().handlers["goTo"] = [](const json&) {
    return RuntimeAnswer::failure("locator-not-found");
  };

  const std::optional<ReaderError> failure = harness.open();

  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(harness.session->state().value(), State::failed);
  EXPECT_EQ(harness.runtime().count("currentLocator"), 0u);
}

TEST_F(ReaderSessionLifecycleTest, ThemeTimeoutFailsTheOpenWhereACorruptThemeStoreWouldNot) {
  harness.create();
  harness.runtime().handlers["configureTheme"] = [](const json&) {
    return RuntimeAnswer::timeout();
  };

  const std::optional<ReaderError> failure = harness.open();

  ASSERT_TRUE(failure.has_value());
  EXPECT_EQ(failure->kind(), ReaderErrorKind::bridgeTimedOut);
  EXPECT_EQ(harness.session->state().value(), State::failed);
  EXPECT_EQ(harness.session->error().value(), failure);
  EXPECT_EQ(harness.runtime().count("configureReadingMode"), 0u);
  EXPECT_FALSE(contains(harness.log->stages(), "open.ready"));
}

TEST_F(ReaderSessionLifecycleTest, FailedVisibilityRefreshFailsTheOpen) {
  harness.create();
  harness.runtime().handlers["configureBookmarkVisibility"] = [](const json&) {
    return RuntimeAnswer::failure("internal-error");
  };

  ASSERT_TRUE(harness.open().has_value());
  EXPECT_EQ(harness.session->state().value(), State::failed);
}

TEST_F(ReaderSessionLifecycleTest, RegistrationAndRuntimeLoadFailuresFailTheOpen) {
  harness.host->registrationFailure =
      std::make_exception_ptr(ReaderWebViewHostFailureError(ReaderWebViewHostFailure::closed));
  harness.create();
  ASSERT_TRUE(harness.open().has_value());
  EXPECT_EQ(harness.session->state().value(), State::failed);
  EXPECT_TRUE(harness.runtime().calls.empty());

  SessionHarness second;
  second.host->runtimeFailure = std::make_exception_ptr(
      ReaderWebViewHostFailureError(ReaderWebViewHostFailure::runtimeLoadTimedOut));
  second.create();
  ASSERT_TRUE(second.open().has_value());
  EXPECT_EQ(second.session->state().value(), State::failed);
  EXPECT_TRUE(second.runtime().calls.empty());
}

TEST_F(ReaderSessionLifecycleTest, BrokenBookmarkStoreLeavesAnEmptyListAndTheOpenGoesOn) {
  harness.bookmarkStore->stored.push_back(SessionHarness::bookmark(locatorAt(1, "/6/4!/4/2/1:0")));
  harness.bookmarkStore->readFailure = BookmarkPersistenceFailure::invalidStore;
  harness.create();

  ASSERT_EQ(harness.open(), std::nullopt);

  EXPECT_EQ(harness.session->state().value(), State::ready);
  EXPECT_TRUE(harness.session->bookmarks().value().empty());
  EXPECT_TRUE(harness.session->error().value().has_value());
}

TEST_F(ReaderSessionLifecycleTest, BrokenAnnotationStoreLeavesAnEmptyListAndTheOpenGoesOn) {
  harness.annotationStore->stored.push_back(SessionHarness::annotation("words"));
  harness.annotationStore->readFailure = AnnotationPersistenceFailure::corruptStore;
  harness.create();

  ASSERT_EQ(harness.open(), std::nullopt);

  EXPECT_EQ(harness.session->state().value(), State::ready);
  EXPECT_TRUE(harness.session->annotations().value().empty());
  EXPECT_EQ(harness.runtime().count("addAnnotation"), 0u);
  EXPECT_TRUE(harness.session->error().value().has_value());
}

TEST_F(ReaderSessionLifecycleTest, AnnotationRefusedByTheRuntimeIsUnresolvedAndTheRestAreSent) {
  const Annotation first = SessionHarness::annotation("first");
  const Annotation refused = SessionHarness::annotation("second");
  const Annotation third = SessionHarness::annotation("third");
  harness.annotationStore->stored = {first, refused, third};
  harness.create();
  const std::string refusedID = refused.id.string();
  harness.runtime().handlers["addAnnotation"] = [refusedID](const json& payload) {
    if (payload["annotation"]["id"] == refusedID) return RuntimeAnswer::failure("anchor-not-found");
    return RuntimeAnswer::result({{"rendered", true}, {"resolution", "exact"}});
  };

  ASSERT_EQ(harness.open(), std::nullopt);

  EXPECT_EQ(harness.session->state().value(), State::ready);
  const std::vector<json> sent = harness.runtime().payloads("addAnnotation");
  ASSERT_EQ(sent.size(), 3u);
  EXPECT_EQ(sent[0]["annotation"]["id"], first.id.string());
  EXPECT_EQ(sent[1]["annotation"]["id"], refused.id.string());
  EXPECT_EQ(sent[2]["annotation"]["id"], third.id.string());
  EXPECT_EQ(harness.session->unresolvedAnnotationIDs().value(), std::set<Uuid>{refused.id});
  EXPECT_EQ(harness.session->annotations().value().size(), 3u);
  ASSERT_TRUE(harness.session->error().value().has_value());
  EXPECT_EQ(harness.session->error().value()->kind(), ReaderErrorKind::readerRuntimeFailed);
}

TEST_F(ReaderSessionLifecycleTest, LocatorEventsDuringTheOpenAreDropped) {
  harness.create();
  const Locator elsewhere = locatorAt(2, "/6/6!/4/40/1:0");
  harness.runtime().handlers["configureReadingMode"] = [this, elsewhere](const json& payload) {
    harness.runtime().sendEvent("locatorChanged", {{"locator", json(elsewhere)}});
    return RuntimeAnswer::result({{"requestedMode", payload["mode"]},
                                  {"effectiveMode", payload["mode"]},
                                  {"computedContainerOverflow", "hidden"},
                                  {"configurationRevision", 1}});
  };

  ASSERT_EQ(harness.open(), std::nullopt);
  iterateFor(std::chrono::milliseconds(50));

  EXPECT_NE(harness.session->locator().value(), elsewhere);
  EXPECT_FALSE(contains(harness.log->stages(), "runtime.event"));
  EXPECT_TRUE(harness.positions->saves.empty());
}

TEST_F(ReaderSessionLifecycleTest, CancellingTheOpenFailsItAsCancelled) {
  harness.create();
  harness.runtime().handlers["tableOfContents"] = [](const json&) {
    return RuntimeAnswer::silence();
  };
  std::stop_source stop;
  const auto outcome = startCall(harness.openTask(), stop.get_token());
  ASSERT_TRUE(iterateUntil([&] { return harness.runtime().count("tableOfContents") == 1; }));

  stop.request_stop();
  ASSERT_TRUE(iterateUntil([&] { return outcome->finished; }));

  ASSERT_TRUE(outcome->error);
  EXPECT_EQ(harness.session->state().value(), State::failed);
  ASSERT_TRUE(harness.session->error().value().has_value());
  EXPECT_EQ(harness.session->error().value()->kind(), ReaderErrorKind::operationCancelled);
}

TEST_F(ReaderSessionLifecycleTest, CloseSavesTheLocatorOnceAndEmptiesTheSession) {
  harness.annotationStore->stored.push_back(SessionHarness::annotation("kept"));
  harness.create();
  ASSERT_EQ(harness.open(), std::nullopt);
  const Locator last = *harness.session->locator().value();

  harness.session->close();

  const ReaderSession& session = *harness.session;
  EXPECT_EQ(session.state().value(), State::closed);
  EXPECT_EQ(session.fingerprint(), std::nullopt);
  EXPECT_EQ(session.publication().value(), std::nullopt);
  EXPECT_TRUE(session.tableOfContents().value().empty());
  EXPECT_TRUE(session.annotations().value().empty());
  EXPECT_EQ(session.position().value(), std::nullopt);
  EXPECT_EQ(session.locator().value(), last);
  EXPECT_TRUE(session.isSearchComplete().value());
  EXPECT_EQ(harness.host->closeCount, 1);
  ASSERT_TRUE(iterateUntil([&] { return harness.positions->saves.size() == 1; }));
  EXPECT_EQ(harness.positions->saves[0], last);
  ASSERT_TRUE(iterateUntil([&] { return harness.log->lineOf("close.saved").has_value(); }));

  harness.session->close();
  iterateFor(std::chrono::milliseconds(50));
  EXPECT_EQ(harness.positions->saves.size(), 1u);
  EXPECT_EQ(harness.session->state().value(), State::closed);
  EXPECT_EQ(harness.host->closeCount, 2);
}

TEST_F(ReaderSessionLifecycleTest, CloseSaveOutlivesTheSessionByOneWrite) {
  harness.create();
  ASSERT_EQ(harness.open(), std::nullopt);
  const std::weak_ptr<ReaderSession> weak = harness.session;

  harness.session->close();
  harness.session.reset();
  // The pending save still holds the session, which goes once its log line is written.
  EXPECT_FALSE(weak.expired());
  ASSERT_TRUE(iterateUntil([&] { return weak.expired(); }));

  EXPECT_EQ(harness.positions->saves.size(), 1u);
  EXPECT_TRUE(harness.log->lineOf("close.saved").has_value());
}

TEST_F(ReaderSessionLifecycleTest, FailedCloseSaveOnlyWritesItsLogLine) {
  harness.create();
  ASSERT_EQ(harness.open(), std::nullopt);
  harness.positions->writeFailure = ReadingPositionPersistenceFailure::cannotWrite;

  harness.session->close();

  ASSERT_TRUE(iterateUntil([&] { return harness.log->lineOf("close.saveFailed").has_value(); }));
  EXPECT_EQ(harness.session->state().value(), State::closed);
  EXPECT_EQ(harness.session->error().value(), std::nullopt);
}

TEST_F(ReaderSessionLifecycleTest, CloseAfterFailedOpenWithoutLocatorSavesNothingAndClearsError) {
  harness.host->runtimeFailure = std::make_exception_ptr(
      ReaderWebViewHostFailureError(ReaderWebViewHostFailure::runtimeLoadFailed));
  harness.create();
  ASSERT_TRUE(harness.open().has_value());
  ASSERT_TRUE(harness.session->error().value().has_value());

  harness.session->close();
  iterateFor(std::chrono::milliseconds(50));

  EXPECT_EQ(harness.session->state().value(), State::closed);
  EXPECT_EQ(harness.session->error().value(), std::nullopt);
  EXPECT_TRUE(harness.positions->saves.empty());
  EXPECT_FALSE(harness.log->lineOf("close.saved").has_value());
}

TEST_F(ReaderSessionLifecycleTest, FailureRecordedAfterCloseLeavesErrorAbsent) {
  harness.create();
  ASSERT_EQ(harness.open(), std::nullopt);
  harness.session->close();

  const ReaderError made = harness.session->recordFailure(
      std::make_exception_ptr(ReaderBridgeFailure(ReaderBridgeFailure::Case::readerClosed)));

  EXPECT_EQ(made.kind(), ReaderErrorKind::operationCancelled);
  EXPECT_EQ(harness.session->error().value(), std::nullopt);
}

TEST_F(ReaderSessionLifecycleTest, CloseFailsARequestStillWaitingForTheRuntime) {
  harness.create();
  ASSERT_EQ(harness.open(), std::nullopt);
  harness.runtime().handlers["next"] = [](const json&) { return RuntimeAnswer::silence(); };
  const auto outcome = startCall(harness.session->nextPage());
  ASSERT_TRUE(iterateUntil([&] { return harness.runtime().count("next") == 1; }));

  harness.session->close();

  ASSERT_TRUE(iterateUntil([&] { return outcome->finished; }));
  EXPECT_TRUE(outcome->error);
  EXPECT_EQ(harness.session->state().value(), State::closed);
  EXPECT_EQ(harness.session->error().value(), std::nullopt);
}

TEST_F(ReaderSessionLifecycleTest, CloseDuringTheOpenEndsItAndTheSessionStaysClosed) {
  harness.annotationStore->stored = {SessionHarness::annotation("first"),
                                     SessionHarness::annotation("second")};
  harness.create();
  harness.runtime().handlers["addAnnotation"] = [](const json&) {
    return RuntimeAnswer::silence();
  };
  const auto outcome = startCall(harness.openTask());
  ASSERT_TRUE(iterateUntil([&] { return harness.runtime().count("addAnnotation") == 1; }));

  harness.session->close();
  ASSERT_TRUE(iterateUntil([&] { return outcome->finished; }));

  ASSERT_TRUE(outcome->error);
  EXPECT_THROW(std::rethrow_exception(outcome->error), ReaderError);
  EXPECT_EQ(harness.session->state().value(), State::closed);
  EXPECT_EQ(harness.session->error().value(), std::nullopt);
  // Nothing of the book comes back into the closed session, and no more is sent.
  EXPECT_TRUE(harness.session->annotations().value().empty());
  EXPECT_TRUE(harness.session->unresolvedAnnotationIDs().value().empty());
  EXPECT_EQ(harness.runtime().count("addAnnotation"), 1u);
  EXPECT_EQ(harness.runtime().count("configureTheme"), 0u);
}

TEST_F(ReaderSessionLifecycleTest, ExternalLinkIsRememberedOnlyWhenTheDesktopOpenedIt) {
  class ScriptedOpener final : public ExternalURLOpening {
   public:
    bool answer = false;
    std::vector<std::string> opened;
    bool open(const std::string& url) override {
      opened.push_back(url);
      return answer;
    }
  };
  auto opener = std::make_shared<ScriptedOpener>();
  ReaderSessionDependencies dependencies;
  dependencies.host = harness.host;
  dependencies.fontCatalog = harness.fonts;
  dependencies.externalURLOpener = opener;
  dependencies.locationDiagnosticsSetting = harness.diagnostics;
  dependencies.locationDiagnosticLog = harness.log;
  harness.session = ReaderSession::create(dependencies);

  harness.host->onExternalLink("https://example.org/refused");
  EXPECT_EQ(harness.session->lastOpenedExternalURL().value(), std::nullopt);
  opener->answer = true;
  harness.host->onExternalLink("https://example.org/opened");
  EXPECT_EQ(harness.session->lastOpenedExternalURL().value(), "https://example.org/opened");
  EXPECT_EQ(opener->opened.size(), 2u);
}

}  // namespace
}  // namespace tomekeeper::testing
