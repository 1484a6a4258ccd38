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

class ReaderSessionLifecycleTest : public ::testing::Test {
 protected:
  ReaderSession& session() { return *harness.session; }
  ScriptedReaderRuntime& runtime() { return harness.runtime(); }
  std::vector<std::string> stages() const { return harness.log->stages(); }
  void saveLocator(Locator locator) {
    harness.positions->locators[std::string(kFingerprint)] = std::move(locator);
  }

  SessionHarness harness;
};

// The open logs the saved locator before restoring it, its assertions cleaned out of the CFI.
TEST_F(ReaderSessionLifecycleTest,
       RestoresSavedLocatorTwiceTheSecondTimeAfterTheLastConfigureCall) {
  const Locator saved = locatorAt(4, "/6/10[chapter-four]!/4/2[opening]/1:5", 0.5);
  saveLocator(saved);
  harness.openReady();

  EXPECT_EQ(session().state().value(), State::ready);
  const std::vector<json> goTos = runtime().payloads("goTo");
  ASSERT_GE(goTos.size(), 2u);
  EXPECT_EQ(goTos.front()["locator"].get<Locator>(), saved);
  EXPECT_EQ(goTos.back()["locator"].get<Locator>(), saved);
  for (const char* configure : {"configureTypography", "configureTheme", "configureReadingMode",
                                "configurePageLayout", "configureScrolledContentWidth"}) {
    EXPECT_GT(runtime().lastIndexOf("goTo"), runtime().lastIndexOf(configure)) << configure;
  }
  EXPECT_EQ(session().locator().value(), saved);
  EXPECT_EQ(session().fingerprint(), std::string(kFingerprint));
  for (const char* stage : {"open.saved", "open.afterInitialRestore", "open.finalCorrection"}) {
    EXPECT_TRUE(contains(stages(), stage)) << stage;
  }
  EXPECT_EQ(stages().back(), "open.ready");
  // Open restores but never writes the position.
  EXPECT_TRUE(harness.positions->saves.empty());
  const std::optional<std::string> line = harness.log->lineOf("open.saved");
  ASSERT_TRUE(line.has_value());
  EXPECT_NE(line->find("session=" + session().locationDiagnosticID() + " "), std::string::npos);
  EXPECT_NE(line->find(" spine=4 cfi=/6/10[]!/4/2[]/1:5 fraction=0.5 "), std::string::npos);
  EXPECT_NE(line->find(" viewport=(800.0, 600.0) mode=paginated layout=adaptive"),
            std::string::npos);
  EXPECT_EQ(line->find("chapter-four"), std::string::npos);
}

TEST_F(ReaderSessionLifecycleTest, RunsTheOpenStepsInOrder) {
  saveLocator(locatorAt(1, "/6/4!/4/2/1:0"));
  harness.mode->value = ReadingMode::scrolled;
  harness.openReady();

  // Every applier wraps its configure call in currentLocator, goTo, currentLocator; strip those
  // to see the steps themselves.
  std::vector<std::string> steps = runtime().methods();
  EXPECT_EQ(steps[2], "goTo");
  EXPECT_EQ(steps[3], "currentLocator");
  std::erase_if(steps, [](const std::string& m) { return m == "currentLocator" || m == "goTo"; });
  EXPECT_EQ(steps, (std::vector<std::string>{
                       "open", "tableOfContents", "configureBookmarkVisibility",
                       "configureTypography", "configureTheme", "configureReadingMode",
                       "configurePageLayout", "configureScrolledContentWidth"}));
  ASSERT_EQ(harness.host->registrations.size(), 1u);
  EXPECT_EQ(harness.host->registrations[0].first, harness.descriptor().publicationID);
  EXPECT_EQ(harness.host->registrations[0].second, std::filesystem::path("/extracted/book"));
}

TEST_F(ReaderSessionLifecycleTest, InitialLocatorIsRestoredWithoutLookingUpTheSavedOne) {
  saveLocator(locatorAt(1, "/6/4!/4/2/1:0"));
  harness.positions->readFailure = ReadingPositionPersistenceFailure::corruptStore;
  const Locator given = locatorAt(2, "/6/6!/4/8/1:3");
  harness.create();

  ASSERT_EQ(harness.open(given), std::nullopt);

  EXPECT_EQ(runtime().payloads("goTo").front()["locator"].get<Locator>(), given);
  EXPECT_EQ(session().locator().value(), given);
}

TEST_F(ReaderSessionLifecycleTest, WithoutSavedLocatorRestoresNothing) {
  harness.openReady();

  // The only goTo calls are those of the appliers, which put back the place they found.
  EXPECT_FALSE(contains(stages(), "open.saved"));
  EXPECT_FALSE(contains(stages(), "open.finalCorrection"));
  EXPECT_EQ(runtime().methods()[2], "currentLocator");
}

TEST_F(ReaderSessionLifecycleTest, WithoutStoresOpensWithInitialValuesAndSendsNoTypography) {
  harness.openReady(StorePresence::none);

  EXPECT_EQ(runtime().count("configureTypography"), 0u);
  EXPECT_EQ(runtime().count("configureScrolledContentWidth"), 0u);
  ASSERT_EQ(runtime().count("configureTheme"), 1u);
  EXPECT_EQ(runtime().payloads("configureTheme")[0]["theme"]["mode"], "system");
  EXPECT_EQ(runtime().payloads("configureReadingMode")[0]["mode"], "paginated");
  EXPECT_EQ(runtime().payloads("configurePageLayout")[0]["layout"], "adaptive");
  EXPECT_EQ(runtime().payloads("configureBookmarkVisibility")[0]["bookmarks"], json::array());
  EXPECT_EQ(session().error().value(), std::nullopt);
  EXPECT_FALSE(contains(stages(), "open.saved"));
  EXPECT_TRUE(contains(stages(), "open.afterInitialRestore"));
  EXPECT_TRUE(contains(stages(), "open.ready"));
}

TEST_F(ReaderSessionLifecycleTest, WithoutStoresEveryCommandWorksInMemoryAndNothingFails) {
  harness.openReady(StorePresence::none);
  runtime().handlers["currentSelection"] = [](const json&) {
    return RuntimeAnswer::result(
        {{"selection",
          {{"locator", json(locatorAt(1, "/6/4!/4/2,/1:0,/1:4"))}, {"selectedText", "word"}}}});
  };

  runToEnd(session().nextPage());
  runToEnd(session().nextSection());
  runToEnd(session().setFontScale(TypographyFontScaleSelection::value(1.5)));
  runToEnd(session().setReadingTheme(ReadingThemeSelection::warm));
  runToEnd(session().setReadingMode(ReadingMode::scrolled));
  runToEnd(session().setScrolledContentWidth(ScrolledContentWidth::wide));
  runToEnd(session().setPageLayout(PageLayout::singlePage));
  runToEnd(session().toggleBookmark());
  runToEnd(session().addHighlight());
  ASSERT_EQ(session().annotations().value().size(), 1u);
  runToEnd(session().saveNote(session().annotations().value()[0], "a note"));
  EXPECT_EQ(session().annotations().value()[0].note, "a note");
  runToEnd(session().goToAnnotation(session().annotations().value()[0]));
  runToEnd(session().clearReadingData());
  // Close decides at once whether to save; without a store there is nothing to save to.
  session().close();

  EXPECT_EQ(session().error().value(), std::nullopt);
  EXPECT_EQ(session().state().value(), State::closed);
  EXPECT_EQ(session().fontScaleSelection().value(), TypographyFontScaleSelection::value(1.5));
  EXPECT_EQ(session().readingTheme().value(), ReadingThemeSelection::warm);
  EXPECT_EQ(session().scrolledContentWidth().value(), ScrolledContentWidth::wide);
  EXPECT_FALSE(contains(stages(), "navigation.saved"));
  EXPECT_FALSE(contains(stages(), "close.saved"));
}

TEST_F(ReaderSessionLifecycleTest, BoundTraceMeasuresTheSessionStagesAndAFailedOpenEndsReady) {
  using Stage = OpenPerformanceTrace::Stage;
  for (const bool failing : {false, true}) {
    SCOPED_TRACE(failing ? "failing open" : "open");
    SessionHarness run;
    run.create();
    if (failing) {
      run.runtime().handlers["configureTheme"] = [](const json&) {
        return RuntimeAnswer::failure("internal-error");
      };
    }
    const auto trace = std::make_shared<OpenPerformanceTrace>();

    EXPECT_EQ(failureOf(OpenPerformanceTrace::bind(trace, run.openTask())).has_value(), failing);

    const auto& durations = trace->state().durationsMS;
    EXPECT_TRUE(
        durations.contains(std::string(OpenPerformanceTrace::name(Stage::readerSessionReady))));
    if (failing) continue;
    for (const Stage stage : {Stage::runtimePreparation, Stage::publicationOpen}) {
      EXPECT_TRUE(durations.contains(std::string(OpenPerformanceTrace::name(stage))))
          << OpenPerformanceTrace::name(stage);
    }
  }
}

TEST_F(ReaderSessionLifecycleTest, StoredWidthIsKeptButNotSentInPaginatedMode) {
  harness.width->value = ScrolledContentWidth::wide;
  harness.openReady();

  EXPECT_EQ(session().scrolledContentWidth().value(), ScrolledContentWidth::wide);
  EXPECT_EQ(runtime().count("configureScrolledContentWidth"), 0u);
}

// Every store but the position store may fail to read: each one's default is applied instead,
// an error is shown, and the book still opens.
TEST_F(ReaderSessionLifecycleTest, BrokenStoresLeaveTheirDefaultsAndTheOpenGoesOn) {
  harness.layout->value = PageLayout::doublePage;
  harness.layout->readFailure = PageLayoutPersistenceFailure::corruptStore;
  harness.theme->value = ReadingThemeSelection::dark;
  harness.theme->readFailure = ReadingThemePersistenceFailure::corruptStore;
  harness.typography->value.fontScale = TypographyFontScaleSelection::value(2.0);
  harness.typography->readFailure = TypographyPreferencesPersistenceFailure::corruptStore;
  harness.mode->value = ReadingMode::scrolled;
  harness.width->value = ScrolledContentWidth::wide;
  harness.width->readFailure = ScrolledContentWidthPersistenceFailure::corruptStore;
  harness.bookmarkStore->stored.push_back(SessionHarness::bookmark(locatorAt(1, "/6/4!/4/2/1:0")));
  harness.bookmarkStore->readFailure = BookmarkPersistenceFailure::invalidStore;
  harness.annotationStore->stored.push_back(SessionHarness::annotation("words"));
  harness.annotationStore->readFailure = AnnotationPersistenceFailure::corruptStore;
  harness.openReady();

  EXPECT_EQ(session().state().value(), State::ready);
  ASSERT_TRUE(session().error().value().has_value());
  EXPECT_EQ(session().error().value()->kind(), ReaderErrorKind::persistenceFailed);
  EXPECT_EQ(session().pageLayout().value(), PageLayout::adaptive);
  EXPECT_EQ(runtime().payloads("configurePageLayout")[0]["layout"], "adaptive");
  EXPECT_EQ(session().readingTheme().value(), ReadingThemeSelection::system);
  EXPECT_EQ(runtime().payloads("configureTheme")[0]["theme"]["mode"], "system");
  EXPECT_EQ(session().fontScaleSelection().value(), TypographyFontScaleSelection{});
  EXPECT_EQ(runtime().count("configureTypography"), 1u);
  EXPECT_EQ(session().scrolledContentWidth().value(), ScrolledContentWidth::comfortable);
  EXPECT_EQ(runtime().payloads("configureScrolledContentWidth")[0]["maxInlineSize"], 700);
  EXPECT_TRUE(session().bookmarks().value().empty());
  EXPECT_TRUE(session().annotations().value().empty());
  EXPECT_EQ(runtime().count("addAnnotation"), 0u);
}

// What the open cannot do without fails it: the session ends `failed` with that error, and the
// step after the failing one is never sent.
TEST_F(ReaderSessionLifecycleTest, FailedStepFailsTheOpenAndStopsIt) {
  const auto refusal = [](std::string code) {
    return [code](const json&) { return RuntimeAnswer::failure(code); };
  };
  const auto hostFailure = [](ReaderWebViewHostFailure failure) {
    return std::make_exception_ptr(ReaderWebViewHostFailureError(failure));
  };
  struct Case {
    const char* name;
    std::function<void(SessionHarness&)> arrange;
    std::optional<ReaderErrorKind> kind;
    const char* notSent;  // null: nothing at all reaches the runtime
  };
  const std::vector<Case> cases = {
      {"CorruptPositionStore",
       [](SessionHarness& h) {
         h.positions->readFailure = ReadingPositionPersistenceFailure::corruptStore;
       },
       ReaderErrorKind::persistenceFailed, "goTo"},
      {"RefusedSavedLocator",
       [&](SessionHarness& h) { h.runtime().handlers["goTo"] = refusal("locator-not-found"); },
       std::nullopt, "currentLocator"},
      // Unlike a corrupt theme store, which the open survives.
      {"ThemeTimeout",
       [](SessionHarness& h) {
         h.runtime().handlers["configureTheme"] = [](const json&) {
           return RuntimeAnswer::timeout();
         };
       },
       ReaderErrorKind::bridgeTimedOut, "configureReadingMode"},
      {"FailedVisibilityRefresh",
       [&](SessionHarness& h) {
         h.runtime().handlers["configureBookmarkVisibility"] = refusal("internal-error");
       },
       std::nullopt, "configureTypography"},
      {"RegistrationFailure",
       [&](SessionHarness& h) {
         h.host->registrationFailure = hostFailure(ReaderWebViewHostFailure::closed);
       },
       std::nullopt, nullptr},
      {"RuntimeLoadTimeout",
       [&](SessionHarness& h) {
         h.host->runtimeFailure = hostFailure(ReaderWebViewHostFailure::runtimeLoadTimedOut);
       },
       std::nullopt, nullptr},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    SessionHarness run;
    run.positions->locators[std::string(kFingerprint)] = locatorAt(9, "/6/20!/4/2/1:0");
    run.create();
    test.arrange(run);

    const std::optional<ReaderError> failure = run.open();

    ASSERT_TRUE(failure.has_value());
    if (test.kind) EXPECT_EQ(failure->kind(), *test.kind);
    EXPECT_EQ(run.session->state().value(), State::failed);
    EXPECT_EQ(run.session->error().value(), failure);
    EXPECT_FALSE(contains(run.log->stages(), "open.ready"));
    if (test.notSent) {
      EXPECT_EQ(run.runtime().count(test.notSent), 0u);
    } else {
      EXPECT_TRUE(run.runtime().calls.empty());
    }
  }
}

TEST_F(ReaderSessionLifecycleTest, AnnotationRefusedByTheRuntimeIsUnresolvedAndTheRestAreSent) {
  const std::vector<Annotation> stored = {SessionHarness::annotation("first"),
                                          SessionHarness::annotation("second"),
                                          SessionHarness::annotation("third")};
  harness.annotationStore->stored = stored;
  harness.create();
  runtime().handlers["addAnnotation"] = [refusedID = stored[1].id.string()](const json& payload) {
    if (payload["annotation"]["id"] == refusedID) return RuntimeAnswer::failure("anchor-not-found");
    return RuntimeAnswer::result({{"rendered", true}, {"resolution", "exact"}});
  };

  ASSERT_EQ(harness.open(), std::nullopt);

  EXPECT_EQ(session().state().value(), State::ready);
  const std::vector<json> sent = runtime().payloads("addAnnotation");
  ASSERT_EQ(sent.size(), 3u);
  for (std::size_t index = 0; index < 3; ++index) {
    EXPECT_EQ(sent[index]["annotation"]["id"], stored[index].id.string());
  }
  EXPECT_EQ(session().unresolvedAnnotationIDs().value(), std::set<Uuid>{stored[1].id});
  EXPECT_EQ(session().annotations().value().size(), 3u);
  ASSERT_TRUE(session().error().value().has_value());
  EXPECT_EQ(session().error().value()->kind(), ReaderErrorKind::readerRuntimeFailed);
}

TEST_F(ReaderSessionLifecycleTest, LocatorEventsDuringTheOpenAreDropped) {
  harness.create();
  const Locator elsewhere = locatorAt(2, "/6/6!/4/40/1:0");
  auto configure = runtime().handlers["configureReadingMode"];
  runtime().handlers["configureReadingMode"] = [&, configure](const json& payload) {
    runtime().sendEvent("locatorChanged", {{"locator", json(elsewhere)}});
    return configure(payload);
  };

  ASSERT_EQ(harness.open(), std::nullopt);
  // Events are taken in order: once a later one has arrived, the one of the open was dropped.
  const Locator later = locatorAt(2, "/6/6!/4/60/1:0");
  runtime().sendEvent("locatorChanged", {{"locator", json(later)}});
  ASSERT_TRUE(iterateUntil([&] { return session().locator().value() == later; }));

  const std::vector<std::string> logged = stages();
  EXPECT_EQ(std::count(logged.begin(), logged.end(), "runtime.event"), 1);
  EXPECT_TRUE(harness.positions->saves.empty());
}

TEST_F(ReaderSessionLifecycleTest, CancellingTheOpenFailsItAsCancelled) {
  harness.create();
  runtime().handlers["tableOfContents"] = [](const json&) { return RuntimeAnswer::silence(); };
  std::stop_source stop;
  const auto outcome = startCall(harness.openTask(), stop.get_token());
  ASSERT_TRUE(iterateUntil([&] { return runtime().count("tableOfContents") == 1; }));

  stop.request_stop();
  ASSERT_TRUE(iterateUntil([&] { return outcome->finished; }));

  ASSERT_TRUE(outcome->error);
  EXPECT_EQ(session().state().value(), State::failed);
  ASSERT_TRUE(session().error().value().has_value());
  EXPECT_EQ(session().error().value()->kind(), ReaderErrorKind::operationCancelled);
}

TEST_F(ReaderSessionLifecycleTest, CloseSavesTheLocatorOnceAndEmptiesTheSession) {
  harness.annotationStore->stored.push_back(SessionHarness::annotation("kept"));
  harness.openReady();
  const Locator last = *session().locator().value();

  session().close();

  EXPECT_EQ(session().state().value(), State::closed);
  EXPECT_EQ(session().fingerprint(), std::nullopt);
  EXPECT_EQ(session().publication().value(), std::nullopt);
  EXPECT_TRUE(session().tableOfContents().value().empty());
  EXPECT_TRUE(session().annotations().value().empty());
  EXPECT_EQ(session().position().value(), std::nullopt);
  EXPECT_EQ(session().locator().value(), last);
  EXPECT_TRUE(session().isSearchComplete().value());
  EXPECT_EQ(harness.host->closeCount, 1);
  ASSERT_TRUE(iterateUntil([&] { return harness.positions->saves.size() == 1; }));
  EXPECT_EQ(harness.positions->saves[0], last);
  ASSERT_TRUE(iterateUntil([&] { return harness.log->lineOf("close.saved").has_value(); }));

  session().close();
  // A save that this close started would reach the store before this read.
  runToEnd(harness.positions->locator(std::string(kFingerprint)));
  EXPECT_EQ(harness.positions->saves.size(), 1u);
  EXPECT_EQ(session().state().value(), State::closed);
  EXPECT_EQ(harness.host->closeCount, 2);
}

TEST_F(ReaderSessionLifecycleTest, CloseSaveOutlivesTheSessionByOneWrite) {
  harness.openReady();
  const std::weak_ptr<ReaderSession> weak = harness.session;

  session().close();
  harness.session.reset();
  // The pending save still holds the session, which goes once its log line is written.
  EXPECT_FALSE(weak.expired());
  ASSERT_TRUE(iterateUntil([&] { return weak.expired(); }));

  EXPECT_EQ(harness.positions->saves.size(), 1u);
  EXPECT_TRUE(harness.log->lineOf("close.saved").has_value());
}

TEST_F(ReaderSessionLifecycleTest, FailedCloseSaveOnlyWritesItsLogLine) {
  harness.openReady();
  harness.positions->writeFailure = ReadingPositionPersistenceFailure::cannotWrite;

  session().close();

  ASSERT_TRUE(iterateUntil([&] { return harness.log->lineOf("close.saveFailed").has_value(); }));
  EXPECT_EQ(session().state().value(), State::closed);
  EXPECT_EQ(session().error().value(), std::nullopt);
}

TEST_F(ReaderSessionLifecycleTest, CloseAfterFailedOpenWithoutLocatorSavesNothingAndClearsError) {
  harness.host->runtimeFailure = std::make_exception_ptr(
      ReaderWebViewHostFailureError(ReaderWebViewHostFailure::runtimeLoadFailed));
  harness.create();
  ASSERT_TRUE(harness.open().has_value());
  ASSERT_TRUE(session().error().value().has_value());

  session().close();
  // A save that this close started would reach the store before this read.
  runToEnd(harness.positions->locator(std::string(kFingerprint)));

  EXPECT_EQ(session().state().value(), State::closed);
  EXPECT_EQ(session().error().value(), std::nullopt);
  EXPECT_TRUE(harness.positions->saves.empty());
  EXPECT_FALSE(harness.log->lineOf("close.saved").has_value());
}

TEST_F(ReaderSessionLifecycleTest, FailureRecordedAfterCloseLeavesErrorAbsent) {
  harness.openReady();
  session().close();

  const ReaderError made = session().recordFailure(
      std::make_exception_ptr(ReaderBridgeFailure(ReaderBridgeFailure::Case::readerClosed)));

  EXPECT_EQ(made.kind(), ReaderErrorKind::operationCancelled);
  EXPECT_EQ(session().error().value(), std::nullopt);
}

TEST_F(ReaderSessionLifecycleTest, CloseFailsARequestStillWaitingForTheRuntime) {
  harness.openReady();
  runtime().handlers["next"] = [](const json&) { return RuntimeAnswer::silence(); };
  const auto outcome = startCall(session().nextPage());
  ASSERT_TRUE(iterateUntil([&] { return runtime().count("next") == 1; }));

  session().close();

  ASSERT_TRUE(iterateUntil([&] { return outcome->finished; }));
  EXPECT_TRUE(outcome->error);
  EXPECT_EQ(session().state().value(), State::closed);
  EXPECT_EQ(session().error().value(), std::nullopt);
}

TEST_F(ReaderSessionLifecycleTest, CloseDuringTheOpenEndsItAndTheSessionStaysClosed) {
  harness.annotationStore->stored = {SessionHarness::annotation("first"),
                                     SessionHarness::annotation("second")};
  harness.create();
  runtime().handlers["addAnnotation"] = [](const json&) { return RuntimeAnswer::silence(); };
  const auto outcome = startCall(harness.openTask());
  ASSERT_TRUE(iterateUntil([&] { return runtime().count("addAnnotation") == 1; }));

  session().close();
  ASSERT_TRUE(iterateUntil([&] { return outcome->finished; }));

  ASSERT_TRUE(outcome->error);
  EXPECT_THROW(std::rethrow_exception(outcome->error), ReaderError);
  EXPECT_EQ(session().state().value(), State::closed);
  EXPECT_EQ(session().error().value(), std::nullopt);
  // Nothing of the book comes back into the closed session, and no more is sent.
  EXPECT_TRUE(session().annotations().value().empty());
  EXPECT_TRUE(session().unresolvedAnnotationIDs().value().empty());
  EXPECT_EQ(runtime().count("addAnnotation"), 1u);
  EXPECT_EQ(runtime().count("configureTheme"), 0u);
}

TEST_F(ReaderSessionLifecycleTest, ExternalLinkIsRememberedOnlyWhenTheDesktopOpenedIt) {
  struct ScriptedOpener final : ExternalURLOpening {
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
  EXPECT_EQ(session().lastOpenedExternalURL().value(), std::nullopt);
  opener->answer = true;
  harness.host->onExternalLink("https://example.org/opened");
  EXPECT_EQ(session().lastOpenedExternalURL().value(), "https://example.org/opened");
  EXPECT_EQ(opener->opened.size(), 2u);
}

}  // namespace
}  // namespace tomekeeper::testing
