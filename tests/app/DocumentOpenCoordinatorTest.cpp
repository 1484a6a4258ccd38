#include "app/DocumentOpenCoordinator.h"

#include <gtest/gtest.h>

#include <fstream>
#include <mutex>
#include <nlohmann/json.hpp>

#include "app/GatedPublicationCache.h"
#include "app/ShellFakes.h"
#include "async/RunUntilDone.h"
#include "intake/PublicationExtractionCache.h"
#include "opening/OpeningFailures.h"
#include "support/EpubBuilder.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper::testing {
namespace {

// The structured log lines of this process, kept from the first test that asks for them.
struct CapturedLog {
  std::mutex mutex;
  std::vector<std::map<std::string, std::string>> lines;
};

CapturedLog& capturedLog() {
  static CapturedLog* log = [] {
    auto* created = new CapturedLog;
    g_log_set_writer_func(
        [](GLogLevelFlags, const GLogField* fields, gsize count, gpointer data) {
          auto* target = static_cast<CapturedLog*>(data);
          std::map<std::string, std::string> line;
          for (gsize index = 0; index < count; ++index) {
            if (fields[index].length < 0) {
              line[fields[index].key] = static_cast<const char*>(fields[index].value);
            }
          }
          std::lock_guard lock(target->mutex);
          target->lines.push_back(std::move(line));
          return G_LOG_WRITER_HANDLED;
        },
        created, nullptr);
    return created;
  }();
  return *log;
}

class DocumentOpenCoordinatorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    capturedLog();
    std::filesystem::create_directories(directory / "runtime");
  }

  std::filesystem::path writeBook(const std::string& name, const std::string& distinction) {
    const std::filesystem::path file = directory / "books" / name;
    std::filesystem::create_directories(file.parent_path());
    EpubBuilder().addFile("OEBPS/distinction.txt", distinction).writeTo(file);
    return file;
  }

  DocumentOpenCoordinator::Environment environment() const {
    DocumentOpenCoordinator::Environment made;
    made.supportDirectory = directory / "support";
    made.cachesRoot = directory / "caches";
    made.runtimeRoot = directory / "runtime";
    made.publicationCache = publicationCache;
    return made;
  }

  // A coordinator as a new launch of the application would make it.
  std::shared_ptr<DocumentOpenCoordinator> makeCoordinator(
      std::optional<DocumentOpenCoordinator::Environment> changed = std::nullopt) {
    platform = std::make_shared<FakePlatform>();
    windows = std::make_shared<FakeWindowFactory>();
    sessions = std::make_shared<FakeSessionFactory>();
    return DocumentOpenCoordinator::create(changed.value_or(environment()), platform, windows,
                                           sessions);
  }

  // A launch that opens `books` and quits, its windows closing after it has prepared to end as
  // the application's do; gives their fingerprints, sorted.
  std::vector<std::string> quitWith(const std::vector<std::filesystem::path>& books) {
    auto earlier = makeCoordinator();
    for (const auto& book : books) openBook(*earlier, book);
    earlier->prepareForTermination();
    EXPECT_TRUE(earlier->isTerminating());
    std::vector<std::string> fingerprints;
    for (const auto& window : windows->readerWindows) {
      fingerprints.push_back(window->identifier());
      window->close();
    }
    std::sort(fingerprints.begin(), fingerprints.end());
    return fingerprints;
  }

  static void openBook(DocumentOpenCoordinator& coordinator, const std::filesystem::path& file) {
    async::runUntilDone(coordinator.open(file, RecentDocumentUse::remember, std::nullopt));
  }

  std::filesystem::path restorationFileName() const {
    return directory / "support" / DocumentOpenCoordinator::kRestorationFileName;
  }

  nlohmann::json restorationFile() const {
    std::ifstream input(restorationFileName());
    return nlohmann::json::parse(input);
  }

  static nlohmann::json restorationOf(std::vector<std::string> fingerprints) {
    return {{"fingerprints", fingerprints}};
  }

  std::vector<std::string> openFailureLines() {
    std::vector<std::string> messages;
    std::lock_guard lock(capturedLog().mutex);
    for (auto& line : capturedLog().lines) {
      // Error lines only: the informational ones tell of windows opened and brought forward.
      if (line["TOMEKEEPER_CATEGORY"] == "DocumentOpen" && line["PRIORITY"] == "3") {
        messages.push_back(line["MESSAGE"]);
      }
    }
    return messages;
  }

  std::vector<std::filesystem::path> entriesOf(const std::filesystem::path& folder) const {
    std::vector<std::filesystem::path> entries;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      entries.push_back(entry.path());
    }
    std::sort(entries.begin(), entries.end());
    return entries;
  }

  // Runs `task` and expects it to be refused for `expected`.
  static void expectRefused(async::Task<void> task, ReadingCacheMaintenanceError expected) {
    try {
      async::runUntilDone(std::move(task));
      ADD_FAILURE() << "it ran";
    } catch (const ReadingCacheMaintenanceErrorError& failure) {
      EXPECT_EQ(failure.failure(), expected);
    }
  }

  // Opens one more book through the store and the cache after whatever the test started there:
  // both run their work in order, so an open or a restore started before has got as far as
  // starting its own open once this one has finished.
  void openSentinelBook(DocumentOpenCoordinator& coordinator) {
    openBook(coordinator, writeBook("sentinel.epub", "sentinel"));
  }

  TemporaryDirectory directory;
  std::shared_ptr<PublicationCachePreparing> publicationCache;
  std::shared_ptr<FakePlatform> platform;
  std::shared_ptr<FakeWindowFactory> windows;
  std::shared_ptr<FakeSessionFactory> sessions;
};

// A copy of an open book brings its window forward; the restoration file lists the open books'
// fingerprints sorted, pretty-printed. The recent documents announce each change.
TEST_F(DocumentOpenCoordinatorTest, OpensEachBookInOneWindowTitledWithItsAuthors) {
  auto coordinator = makeCoordinator();
  int recentChanges = 0;
  coordinator->recentDocumentURLsChanged.connect([&] { ++recentChanges; });
  sessions->configure = [](FakeSession& session) {
    session.title = PublicationTitle{"  Moby-Dick \n", {" Herman Melville ", "  ", "Ishmael"}};
  };
  const auto book = writeBook("moby-dick.epub", "one");
  openBook(*coordinator, book);

  ASSERT_EQ(coordinator->openWindows().size(), 1u);
  ASSERT_EQ(windows->readerWindows.size(), 1u);
  const auto& window = windows->readerWindows.front();
  EXPECT_EQ(window->title, "Moby-Dick \u2014 Herman Melville, Ishmael");
  EXPECT_TRUE(window->visible);
  EXPECT_EQ(coordinator->activeReaderWindowCount(), 1);
  EXPECT_EQ(coordinator->activeOpenOperations(), 0);
  const auto& session = sessions->sessions.front();
  EXPECT_EQ(session->openedRuntimeRoot, directory / "runtime");
  EXPECT_EQ(session->openedFingerprint, window->identifier());
  EXPECT_TRUE(std::filesystem::exists(session->openedResources.extractedRoot));
  EXPECT_EQ(coordinator->recentDocumentURLs(), std::vector<std::filesystem::path>{book});
  EXPECT_EQ(recentChanges, 1);
  EXPECT_TRUE(coordinator->registry()->isActive(window->identifier()));
  EXPECT_EQ(restorationFile(), restorationOf({window->identifier()}));

  const auto copy = directory / "books" / "copy.epub";
  std::filesystem::copy_file(book, copy);
  openBook(*coordinator, copy);
  EXPECT_EQ(windows->readerWindows.size(), 1u);
  EXPECT_EQ(sessions->sessions.size(), 1u);
  EXPECT_EQ(window->presentCount, 2);
  EXPECT_EQ(coordinator->recentDocumentURLs(), (std::vector<std::filesystem::path>{copy, book}));

  openBook(*coordinator, writeBook("other.epub", "two"));
  std::vector<std::string> fingerprints;
  for (const auto& each : windows->readerWindows) fingerprints.push_back(each->identifier());
  std::sort(fingerprints.begin(), fingerprints.end());
  std::ifstream input(restorationFileName());
  const std::string text((std::istreambuf_iterator<char>(input)), {});
  EXPECT_EQ(text, restorationOf(fingerprints).dump(2));
  EXPECT_NE(text.find("\n  \"fingerprints\""), std::string::npos);

  const int changesBeforeClearing = recentChanges;
  coordinator->clearRecentDocuments();
  EXPECT_TRUE(coordinator->recentDocumentURLs().empty());
  EXPECT_EQ(recentChanges, changesBeforeClearing + 1);
}

TEST_F(DocumentOpenCoordinatorTest, SessionOpenFailureClosesTheWindowAndReleasesTheBook) {
  auto coordinator = makeCoordinator();
  sessions->configure = [](FakeSession& session) {
    session.failure = std::make_exception_ptr(ReaderError(
        ReaderErrorKind::readerRuntimeFailed, "This book could not be opened by the reader.",
        "runtime-failed", ReaderErrorPolicy{}));
  };
  EXPECT_THROW(openBook(*coordinator, writeBook("book.epub", "failing")), ReaderError);

  ASSERT_EQ(windows->readerWindows.size(), 1u);
  const auto fingerprint = windows->readerWindows.front()->identifier();
  EXPECT_TRUE(windows->readerWindows.front()->closed);
  EXPECT_TRUE(coordinator->openWindows().empty());
  EXPECT_FALSE(coordinator->registry()->isActive(fingerprint));
  EXPECT_FALSE(coordinator->registry()->isReserved(fingerprint));
  EXPECT_EQ(sessions->sessions.front()->closeCount, 1);
  EXPECT_TRUE(coordinator->recentDocumentURLs().empty());
  EXPECT_EQ(restorationFile(), restorationOf({}));
}

TEST_F(DocumentOpenCoordinatorTest, MissingRuntimeFailsWithSourceUnavailableBeforeAnySession) {
  auto withoutRuntime = environment();
  withoutRuntime.runtimeRoot.reset();
  auto coordinator = makeCoordinator(withoutRuntime);
  try {
    openBook(*coordinator, writeBook("book.epub", "x"));
    FAIL() << "the open succeeded";
  } catch (const DocumentOpenFailureError& failure) {
    EXPECT_EQ(failure.failure(), DocumentOpenFailure::sourceUnavailable);
  }
  EXPECT_TRUE(sessions->sessions.empty());
  EXPECT_TRUE(windows->readerWindows.empty());
}

TEST_F(DocumentOpenCoordinatorTest, FailedRequestedOpenShowsTheAlertAndLogsTheDiagnostic) {
  auto coordinator = makeCoordinator();
  const auto notABook = directory / "notes.txt";
  std::ofstream(notABook) << "text";
  coordinator->requestOpen(notABook);
  ASSERT_TRUE(iterateUntil([&] { return !platform->alerts.empty(); }));

  EXPECT_EQ(platform->alerts.front(),
            (AlertContent{AlertStyle::warning,
                          "Choose an EPUB file",
                          "Tomekeeper can open files with the .epub extension.",
                          {"OK"}}));
  EXPECT_EQ(openFailureLines(), std::vector<std::string>{"Open failed: not-an-epub"});
  std::lock_guard lock(capturedLog().mutex);
  const auto& line = capturedLog().lines.back();
  EXPECT_EQ(line.at("GLIB_DOMAIN"), "Tomekeeper");
  EXPECT_EQ(line.at("PRIORITY"), "3");
}

// Windows that are not the one in a book's entry (the same identifier, or an unknown one) change
// nothing when they resize or close.
TEST_F(DocumentOpenCoordinatorTest, ClosingTheLastWindowSavesAnEmptyListAndStoresTheFrame) {
  auto coordinator = makeCoordinator();
  openBook(*coordinator, writeBook("book.epub", "close"));
  auto window = windows->readerWindows.front();
  auto stranger = std::make_shared<FakeWindow>(*coordinator, window->identifier(), "stranger");
  stranger->resize(WindowFrame{800, 600, false});
  stranger->close();
  std::make_shared<FakeWindow>(*coordinator, std::string(64, 'a'), "unknown")->close();
  EXPECT_EQ(coordinator->openWindows().size(), 1u);
  EXPECT_FALSE(platform->storedFrame.has_value());
  EXPECT_EQ(sessions->sessions.front()->closeCount, 0);

  window->resize(WindowFrame{1000, 700, false});
  EXPECT_EQ(platform->storedFrame, (WindowFrame{1000, 700, false}));
  window->currentFrame = WindowFrame{1100, 720, true};
  window->close();
  EXPECT_TRUE(coordinator->openWindows().empty());
  EXPECT_EQ(coordinator->activeReaderWindowCount(), 0);
  EXPECT_EQ(platform->storedFrame, (WindowFrame{1100, 720, true}));
  EXPECT_EQ(sessions->sessions.front()->closeCount, 1);
  EXPECT_FALSE(coordinator->registry()->isActive(window->identifier()));
  EXPECT_EQ(restorationFile(), restorationOf({}));
  // Nothing else appears: the application stays with no window.
  EXPECT_TRUE(windows->openDocumentWindows.empty());
}

// A stored frame that fits a screen is taken; one from a detached monitor gives the default.
TEST_F(DocumentOpenCoordinatorTest, NewWindowTakesAStoredFrameOnlyWhenItFitsAScreen) {
  const struct {
    WindowFrame stored;
    WindowFrame expected;
  } cases[] = {{{1200, 800, false}, {1200, 800, false}}, {{3000, 2000, false}, {920, 780, false}}};
  for (const auto& [stored, expected] : cases) {
    SCOPED_TRACE(stored.width);
    auto coordinator = makeCoordinator();
    platform->storedFrame = stored;
    platform->screenAreas = {{1920, 1000}};
    const auto name = std::to_string(stored.width);
    openBook(*coordinator, writeBook(name + ".epub", name));
    EXPECT_EQ(windows->requests.back().frame, expected);
  }
}

TEST_F(DocumentOpenCoordinatorTest, PaginationKeysReachTheSessionWhileItLives) {
  auto coordinator = makeCoordinator();
  openBook(*coordinator, writeBook("a.epub", "a"));
  auto handler = windows->requests.back().handlePaginationKey;
  EXPECT_TRUE(handler(ReaderNavigationDirection::next));
  EXPECT_EQ(sessions->sessions.front()->pageKeys,
            std::vector<ReaderNavigationDirection>{ReaderNavigationDirection::next});
  sessions->sessions.front()->takesPageKeys = false;
  EXPECT_FALSE(handler(ReaderNavigationDirection::previous));
  windows->readerWindows.front()->close();
  windows->requests.clear();
  windows->readerWindows.clear();
  sessions->sessions.clear();
  EXPECT_FALSE(handler(ReaderNavigationDirection::next));
}

TEST_F(DocumentOpenCoordinatorTest, LaunchWithFilesOpensThemWithoutRestoring) {
  quitWith({writeBook("old.epub", "old")});
  auto coordinator = makeCoordinator();
  coordinator->start({writeBook("new.epub", "new")});
  ASSERT_TRUE(iterateUntil([&] { return coordinator->openWindows().size() == 1; }));
  const auto fingerprint = windows->readerWindows.front()->identifier();
  // The new window rewrote the file: the old book is forgotten for the next launch.
  EXPECT_EQ(restorationFile(), restorationOf({fingerprint}));
  EXPECT_EQ(windows->readerWindows.front()->title, "A Title \u2014 An Author");

  openSentinelBook(*coordinator);
  EXPECT_EQ(windows->readerWindows.size(), 2u);
  EXPECT_EQ(coordinator->activeOpenOperations(), 0);
  EXPECT_TRUE(windows->openDocumentWindows.empty());
  EXPECT_TRUE(platform->alerts.empty());
}

TEST_F(DocumentOpenCoordinatorTest, LaunchRestoresTheBooksOpenAtQuit) {
  // The windows closing at quit stay in the restoration file.
  const auto fingerprints = quitWith({writeBook("a.epub", "a"), writeBook("b.epub", "b")});
  EXPECT_EQ(restorationFile(), restorationOf(fingerprints));

  auto coordinator = makeCoordinator();
  coordinator->start({});
  ASSERT_TRUE(iterateUntil([&] { return coordinator->openWindows().size() == 2; }));
  EXPECT_TRUE(windows->openDocumentWindows.empty());
  EXPECT_TRUE(platform->alerts.empty());
  // Restoration does not touch the recent documents.
  EXPECT_TRUE(platform->recent.empty());
  EXPECT_EQ(restorationFile(), restorationOf(fingerprints));
}

TEST_F(DocumentOpenCoordinatorTest,
       LaunchWithNothingRestorableRemovesTheFileAndShowsTheOpenWindow) {
  std::filesystem::create_directories(restorationFileName().parent_path());
  std::ofstream(restorationFileName()) << restorationOf({std::string(64, 'c')}).dump();
  auto coordinator = makeCoordinator();
  platform->alertAnswers = {0};  // "Not Now"
  coordinator->start({});
  ASSERT_TRUE(iterateUntil([&] { return !windows->openDocumentWindows.empty(); }));

  ASSERT_EQ(platform->alerts.size(), 1u);
  EXPECT_EQ(platform->alerts.front().message, "The original EPUB can\u2019t be accessed");
  EXPECT_EQ(platform->alerts.front().information,
            "Locate the same EPUB to restore this reading window. A different file or edition "
            "won\u2019t be accepted.");
  EXPECT_EQ(platform->alerts.front().buttons,
            (std::vector<std::string>{"Not Now", "Locate EPUB\u2026"}));
  EXPECT_TRUE(platform->selections.empty());
  EXPECT_FALSE(std::filesystem::exists(coordinator->restorationFileURL()));
  EXPECT_TRUE(windows->openDocumentWindows.front()->visible);
  EXPECT_EQ(coordinator->openDocumentWindow(), windows->openDocumentWindows.front());
}

TEST_F(DocumentOpenCoordinatorTest, MalformedRestorationFileGivesAnEmptyList) {
  const auto file = directory / "restoration.json";
  for (const std::string contents :
       {"not json", "[]", "{\"fingerprints\": \"x\"}", "{\"fingerprints\": [1]}", "{}"}) {
    std::ofstream(file) << contents;
    EXPECT_TRUE(DocumentOpenCoordinator::readRestorationList(file).empty()) << contents;
  }
  EXPECT_TRUE(DocumentOpenCoordinator::readRestorationList(directory / "missing.json").empty());
  std::ofstream(file) << "{\"fingerprints\": [\"b\", \"a\"], \"other\": 1}";
  EXPECT_EQ(DocumentOpenCoordinator::readRestorationList(file),
            (std::vector<std::string>{"b", "a"}));
}

// Without a restoration file the launch shows the open window; a book opened from it closes it,
// and with a book open it is not shown again.
TEST_F(DocumentOpenCoordinatorTest, LaunchWithNoRestorationFileShowsTheOpenWindowUntilABookOpens) {
  auto coordinator = makeCoordinator();
  coordinator->start({});
  ASSERT_EQ(windows->openDocumentWindows.size(), 1u);
  auto openWindow = windows->openDocumentWindows.front();
  EXPECT_TRUE(openWindow->visible);
  EXPECT_EQ(openWindow->title, "Tomekeeper");
  EXPECT_EQ(coordinator->openDocumentWindow(), openWindow);

  openWindow->open(writeBook("a.epub", "a"));
  ASSERT_TRUE(iterateUntil([&] { return coordinator->openWindows().size() == 1; }));
  EXPECT_TRUE(openWindow->closed);
  EXPECT_EQ(coordinator->openDocumentWindow(), nullptr);
  coordinator->showOpenDocumentWindow();
  EXPECT_EQ(windows->openDocumentWindows.size(), 1u);
}

TEST_F(DocumentOpenCoordinatorTest, LostBookIsLocatedAndOpenedFromItsNewPlace) {
  const auto book = writeBook("lost.epub", "lost");
  const auto fingerprints = quitWith({book});
  const auto moved = directory / "elsewhere" / "found.epub";
  std::filesystem::create_directories(moved.parent_path());
  std::filesystem::copy_file(book, moved);
  std::filesystem::remove(book);

  auto coordinator = makeCoordinator();
  platform->alertAnswers = {1};  // "Locate EPUB…"
  platform->fileChoices = {{moved}};
  coordinator->start({});
  ASSERT_TRUE(iterateUntil([&] { return coordinator->openWindows().size() == 1; }));
  EXPECT_EQ(coordinator->openWindows().begin()->first, fingerprints.front());
  EXPECT_EQ(platform->selections, std::vector<FileSelection>{FileSelection::single});
  EXPECT_EQ(platform->recent, std::vector<std::filesystem::path>{moved});
  openSentinelBook(*coordinator);
  EXPECT_EQ(platform->alerts.size(), 1u);
  EXPECT_TRUE(windows->openDocumentWindows.empty());
}

TEST_F(DocumentOpenCoordinatorTest, RelocatingToAnotherEditionIsRefusedAndChangesNothing) {
  const auto book = writeBook("lost.epub", "first edition");
  const auto fingerprints = quitWith({book});
  // Written while the first edition still exists, so that the file system cannot hand the new
  // file the inode of the removed one: the source bookmark would take that for a rename.
  const auto other = writeBook("other.epub", "second edition");
  std::filesystem::remove(book);
  const auto positionDirectory = directory / "support" / "Publications" / fingerprints.front();
  const auto before = entriesOf(positionDirectory);

  auto coordinator = makeCoordinator();
  platform->alertAnswers = {1};  // "Locate EPUB…"
  platform->fileChoices = {{other}};
  coordinator->start({});
  ASSERT_TRUE(iterateUntil([&] { return platform->alerts.size() == 2; }));
  EXPECT_EQ(platform->alerts[1],
            (AlertContent{AlertStyle::warning,
                          "This isn\u2019t the same EPUB",
                          "Tomekeeper kept the existing reading position and annotations "
                          "unchanged. Choose the original file or an identical copy.",
                          {"OK"}}));
  ASSERT_TRUE(iterateUntil([&] { return !windows->openDocumentWindows.empty(); }));
  EXPECT_TRUE(coordinator->openWindows().empty());
  EXPECT_TRUE(sessions->sessions.empty());
  EXPECT_EQ(entriesOf(positionDirectory), before);
}

// A slow open shows progress with the book's name until it is prepared; meanwhile, and while
// the book is open, the cache cannot be cleared.
TEST_F(DocumentOpenCoordinatorTest, ClearingTheCacheIsRefusedWhileAnOpenRunsOrABookIsOpen) {
  auto gated = std::make_shared<GatedPublicationCache>(directory / "caches");
  publicationCache = gated;
  auto coordinator = makeCoordinator();
  coordinator->requestOpen(writeBook("Large Book.epub", "large"));
  ASSERT_TRUE(iterateUntil([&] { return platform->progressShownCount == 1; }));
  EXPECT_EQ(platform->progressNames, std::vector<std::string>{"Large Book.epub"});
  EXPECT_EQ(coordinator->activeOpenOperations(), 1);
  expectRefused(coordinator->clearReadingCache(), ReadingCacheMaintenanceError::readersAreOpen);

  gated->gate->resolve();
  ASSERT_TRUE(iterateUntil([&] { return coordinator->openWindows().size() == 1; }));
  EXPECT_EQ(platform->progressShownCount, 0);
  expectRefused(coordinator->clearReadingCache(), ReadingCacheMaintenanceError::readersAreOpen);
  EXPECT_TRUE(std::filesystem::exists(directory / "caches"));
}

// While the clear runs, opens and a second clear fail at once; it keeps the reading state, and
// the next open extracts the book again.
TEST_F(DocumentOpenCoordinatorTest, ClearRemovesTheCacheKeepsReadingStateAndRefusesOpensMeanwhile) {
  auto coordinator = makeCoordinator();
  const auto book = writeBook("a.epub", "a");
  openBook(*coordinator, book);
  const auto fingerprint = windows->readerWindows.front()->identifier();
  windows->readerWindows.front()->close();
  EXPECT_GT(async::runUntilDone(coordinator->readingCacheSize()), 0);

  bool cleared = false;
  async::spawn([](async::Task<void> clear, bool& done) -> async::Task<void> {
    co_await std::move(clear);
    done = true;
  }(coordinator->clearReadingCache(), cleared));
  ASSERT_TRUE(coordinator->isClearingReadingCache());
  expectRefused(coordinator->open(book, RecentDocumentUse::remember, std::nullopt),
                ReadingCacheMaintenanceError::maintenanceInProgress);
  EXPECT_EQ(coordinator->activeOpenOperations(), 0);
  expectRefused(coordinator->clearReadingCache(),
                ReadingCacheMaintenanceError::maintenanceInProgress);
  ASSERT_TRUE(iterateUntil([&] { return cleared; }));

  EXPECT_FALSE(coordinator->isClearingReadingCache());
  EXPECT_FALSE(std::filesystem::exists(directory / "caches"));
  EXPECT_EQ(async::runUntilDone(coordinator->readingCacheSize()), 0);
  EXPECT_TRUE(std::filesystem::exists(directory / "support" / "Publications" / fingerprint /
                                      "source-bookmark.data"));
  openBook(*coordinator, book);
  EXPECT_TRUE(std::filesystem::exists(directory / "caches" / fingerprint / "Extracted"));
}

// The sentinel is a held open started after the cached one has ended: its progress shows after
// the same delay, so the cached open's would have shown first.
TEST_F(DocumentOpenCoordinatorTest, BookFromTheCacheShowsNoProgress) {
  auto gated = std::make_shared<GatedPublicationCache>(directory / "caches");
  gated->gate->resolve();
  publicationCache = gated;
  auto coordinator = makeCoordinator();
  const auto book = writeBook("a.epub", "a");
  openBook(*coordinator, book);
  windows->readerWindows.front()->close();
  // The first open extracts the book, which on a loaded machine may take long enough to show.
  platform->progressNames.clear();
  openBook(*coordinator, book);

  gated->gate = std::make_shared<async::Completion<void>>();
  coordinator->requestOpen(writeBook("held.epub", "held"));
  ASSERT_TRUE(iterateUntil([&] { return platform->progressShownCount == 1; }));
  EXPECT_EQ(platform->progressNames, std::vector<std::string>{"held.epub"});
  gated->gate->resolve();
  ASSERT_TRUE(iterateUntil([&] { return coordinator->activeOpenOperations() == 0; }));
}

// A title or creators whose book declares a direction stand in an isolate of it, so that their
// neutral characters stay on their side; undeclared ones keep the first-strong-character rule.
// Without a title the file's name stands in; blank creators are left out.
TEST(DocumentOpenCoordinatorWindowTitle, IsolatesNamesInTheDirectionTheBookDeclares) {
  const struct {
    std::optional<PublicationTitle> publication;
    const char* expected;
  } cases[] = {
      {std::nullopt, "My Book"},
      {PublicationTitle{" \t", {"Author"}}, "My Book \u2014 Author"},
      {PublicationTitle{"Title", {" ", ""}}, "Title"},
      {PublicationTitle{"\u05E1\u05E4\u05E8 (1)", {"\u05E9\u05DD"}, "rtl", "rtl"},
       "\u2067\u05E1\u05E4\u05E8 (1)\u2069 \u2014 \u2067\u05E9\u05DD\u2069"},
      {PublicationTitle{"Title (2)", {"Author"}, "ltr", std::nullopt},
       "\u2066Title (2)\u2069 \u2014 Author"},
      {PublicationTitle{"Title", {"A", "B"}, std::nullopt, "rtl"}, "Title \u2014 \u2067A, B\u2069"},
      {PublicationTitle{"Title", {}, std::nullopt, std::nullopt}, "Title"},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.expected);
    EXPECT_EQ(DocumentOpenCoordinator::windowTitle(testCase.publication, "/b/My Book.epub"),
              testCase.expected);
  }
}

}  // namespace
}  // namespace tomekeeper::testing
