// The reading session over the real reader runtime in a real WebKitGTK web view, with the real
// JSON stores on a temporary directory: what one session leaves in the stores when it closes
// is what the next session over the same stores opens with. These tests need a display (label
// display).
#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "../runtime/ReaderRuntimeDisplayFixture.h"
#include "SessionTestSupport.h"
#include "async/RunUntilDone.h"
#include "intake/PublicationExtractionCache.h"
#include "opening/PublicationFingerprintService.h"
#include "persistence/JSONPreferenceValueRepository.h"
#include "persistence/JSONTypographyPreferencesRepository.h"
#include "persistence/PublicationStateRepositoryFactory.h"
#include "session/ReaderSession.h"
#include "session/WebKitReaderHosting.h"

namespace tomekeeper {
namespace {

using namespace std::chrono_literals;
using json = nlohmann::json;
using testing::chapterDocument;
using testing::iterateFor;
using testing::iterateUntil;

// The longest any one step of a test may take: the bridge's own timeout is ten seconds, and a
// runtime load under a busy display takes a few.
constexpr auto kStepLimit = 30s;

constexpr const char* kNavigationDocument = R"(<?xml version="1.0" encoding="UTF-8"?>
<html xmlns="http://www.w3.org/1999/xhtml" xmlns:epub="http://www.idpf.org/2007/ops">
<head><title>Contents</title></head>
<body><nav epub:type="toc"><ol>
  <li><a href="text/chapter1.xhtml">The First Chapter</a></li>
  <li><a href="text/chapter2.xhtml">The Second Chapter</a></li>
  <li><a href="text/chapter3.xhtml">The Third Chapter</a></li>
</ol></nav></body></html>
)";

// Three sections, each several pages long in the test window.
std::string ledgerBook() {
  testing::PackageDescription package{.identifier = "urn:uuid:5d0e2f9a-8c61-4b7e-a0f3-2e9d7c4b1a06",
                                      .title = "The Keeper's Ledger",
                                      .creators = {"Ada Shelfwright"}};
  package.manifest.push_back({"nav", "nav.xhtml", "application/xhtml+xml", "nav"});
  package.withChapters(3, "text/chapter");
  testing::EpubBuilder builder;
  builder.withPackageDocument(package);
  builder.addFile("OEBPS/nav.xhtml", kNavigationDocument);
  builder.addFile("OEBPS/text/chapter1.xhtml", chapterDocument(1, 30));
  builder.addFile("OEBPS/text/chapter2.xhtml", chapterDocument(2, 30));
  builder.addFile("OEBPS/text/chapter3.xhtml", chapterDocument(3, 30));
  return builder.build();
}

// One field of a location log line: the text between "<label>=" and the next label.
std::string logField(const std::string& line, const std::string& label, const std::string& next) {
  const std::string start = " " + label + "=";
  const std::size_t begin = line.find(start);
  if (begin == std::string::npos) return {};
  const std::size_t valueBegin = begin + start.size();
  const std::size_t end = line.find(" " + next + "=", valueBegin);
  return line.substr(valueBegin, end == std::string::npos ? std::string::npos : end - valueBegin);
}

// Where a log line says the reader was: the spine index, the (cleaned) CFI and the progression
// in the section. A page without text (a full-page picture) has no CFI, only its progression.
struct LoggedPlace {
  std::string spine;
  std::string cfi;
  std::string fraction;
  bool operator==(const LoggedPlace&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const LoggedPlace& place) {
  return stream << "spine=" << place.spine << " cfi=" << place.cfi
                << " fraction=" << place.fraction;
}

LoggedPlace loggedPlace(const std::string& line) {
  return {logField(line, "spine", "cfi"), logField(line, "cfi", "fraction"),
          logField(line, "fraction", "page")};
}

// The diagnostic of the exception being handled, for a failure message.
std::string describeCurrentFailure() {
  return ReaderError::from(std::current_exception()).diagnosticCause();
}

// A reader window without the shell: a window showing the web view of one session's host.
struct ReaderWindow {
  std::shared_ptr<ReaderSession> session;
  GtkWidget* window = nullptr;
  WebKitWebView* webView = nullptr;
  std::shared_ptr<testing::RecordingLocationLog> log;
  std::shared_ptr<ReadingPositionRepository> positions;
};

class ReaderSessionDisplayTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { gtk_init(); }

  void TearDown() override {
    while (!windows_.empty()) releaseWindow();
  }

  // Puts `epub` on disk as the user's file and takes its fingerprint, as an open does.
  void placeBook(const std::string& epub) {
    bookFile_ = directory_ / "Books" / "ledger.epub";
    std::filesystem::create_directories(bookFile_.parent_path());
    std::ofstream(bookFile_, std::ios::binary) << epub;
    fingerprint_ = run(PublicationFingerprintService().fingerprint(bookFile_));
  }

  void placeBookFile(const std::filesystem::path& file) {
    bookFile_ = file;
    fingerprint_ = run(PublicationFingerprintService().fingerprint(bookFile_));
  }

  // A new session over the stores of the support directory, its web view in a new window, as
  // the coordinator makes one for each open.
  ReaderWindow& makeWindow() {
    const std::filesystem::path support = directory_ / "Support";
    PublicationStateRepositories repositories =
        PublicationStateRepositoryFactory{support / "Publications"}.makeRepositories(fingerprint_);
    std::shared_ptr<WebKitReaderHosting> host = makeWebKitReaderHosting();

    ReaderWindow entry;
    entry.webView = WEBKIT_WEB_VIEW(host->webView());
    entry.log = std::make_shared<testing::RecordingLocationLog>();
    entry.positions = repositories.position;
    ReaderSessionDependencies dependencies;
    dependencies.host = host;
    dependencies.positionRepository = std::move(repositories.position);
    dependencies.bookmarkRepository = std::move(repositories.bookmarks);
    dependencies.annotationRepository = std::move(repositories.annotations);
    dependencies.typographyRepository = std::make_shared<JSONTypographyPreferencesRepository>(
        JSONTypographyPreferencesRepository::fileURLIn(support));
    dependencies.themeRepository = std::make_shared<JSONReadingThemeRepository>(
        JSONReadingThemeRepository::fileURLIn(support));
    dependencies.readingModeRepository =
        std::make_shared<JSONReadingModeRepository>(JSONReadingModeRepository::fileURLIn(support));
    dependencies.pageLayoutRepository =
        std::make_shared<JSONPageLayoutRepository>(JSONPageLayoutRepository::fileURLIn(support));
    dependencies.scrolledContentWidthRepository =
        std::make_shared<JSONScrolledContentWidthRepository>(
            JSONScrolledContentWidthRepository::fileURLIn(support));
    dependencies.locationDiagnosticsSetting =
        std::make_shared<testing::SwitchableDiagnosticsSetting>();
    dependencies.locationDiagnosticLog = entry.log;
    entry.session = ReaderSession::create(std::move(dependencies));

    entry.window = gtk_window_new();
    gtk_window_set_default_size(GTK_WINDOW(entry.window), testing::kDisplayWindowWidth,
                                testing::kDisplayWindowHeight);
    gtk_window_set_child(GTK_WINDOW(entry.window), host->webView());
    gtk_window_present(GTK_WINDOW(entry.window));
    windows_.push_back(std::move(entry));
    return windows_.back();
  }

  // Opens the placed book in a new window: the extraction cache prepares it (a hit after the
  // first open, with a new publication identifier each time) and the session opens it.
  ReaderWindow& openWindow() {
    ReaderWindow& entry = makeWindow();
    const PreparedPublicationResources resources =
        run(PublicationExtractionCache(directory_ / "Caches").prepare(bookFile_, fingerprint_));
    run(entry.session->open(resources.descriptor, resources.extractedRoot,
                            TOMEKEEPER_RUNTIME_PAGE_DIRECTORY, fingerprint_));
    EXPECT_EQ(entry.session->state().value(), ReaderSession::State::ready);
    return entry;
  }

  // Closes the newest window's session and waits for the position save that close starts,
  // when it starts one.
  enum class CloseSave { expected, none };
  void closeWindow(CloseSave save) {
    ReaderWindow& entry = windows_.back();
    entry.session->close();
    EXPECT_EQ(entry.session->state().value(), ReaderSession::State::closed);
    if (save == CloseSave::expected) {
      EXPECT_TRUE(iterateUntil(
          [&] { return entry.log->lineOf("close.saved") || entry.log->lineOf("close.saveFailed"); },
          10s));
      EXPECT_TRUE(entry.log->lineOf("close.saved")) << ::testing::PrintToString(entry.log->lines);
    } else {
      // A save that this close started would reach the store before this read.
      run(entry.positions->locator(fingerprint_));
      EXPECT_FALSE(entry.log->lineOf("close.saved"));
    }
  }

  void releaseWindow() {
    ReaderWindow& entry = windows_.back();
    if (entry.session->state().value() != ReaderSession::State::closed) entry.session->close();
    entry.session.reset();
    gtk_window_destroy(GTK_WINDOW(entry.window));
    windows_.pop_back();
    iterateFor(20ms);
  }

  template <typename Result>
  Result run(async::Task<Result> task) {
    return async::runUntilDone(std::move(task), kStepLimit);
  }

  // Runs `body` as an async function in the runtime page of `entry` and gives its JSON-able
  // result. Measures the page's DOM independently of the runtime.
  json evaluate(const ReaderWindow& entry, const std::string& body) {
    return testing::evaluateInPage(entry.webView, body);
  }

  // Whether the first character of `context.exact` lies inside the viewport, in the section on
  // screen.
  bool isTextOnScreen(const ReaderWindow& entry, const TextContext& context) {
    return evaluate(entry, testing::textOnScreenScript(context)) == true;
  }

  // Selects, as the reader would with the mouse, the first `length` characters of the
  // paragraph `paragraphID` in the section on screen.
  void selectOpeningWords(const ReaderWindow& entry, const std::string& paragraphID,
                          std::size_t length) {
    const json selected = evaluate(entry, "const paragraphID = " + json(paragraphID).dump() +
                                              ", length = " + std::to_string(length) + ";" + R"(
      const frame = document.querySelector('iframe.section-frame:not(.preparing)');
      const doc = frame.contentDocument;
      const text = doc.getElementById(paragraphID).firstChild;
      const range = doc.createRange();
      range.setStart(text, 0);
      range.setEnd(text, length);
      doc.getSelection().removeAllRanges();
      doc.getSelection().addRange(range);
      return doc.getSelection().toString();
    )");
    ASSERT_TRUE(selected.is_string());
    ASSERT_EQ(selected.get<std::string>().size(), length);
  }

  // The words that the runtime has painted as highlights in the section on screen.
  json highlightedWords(const ReaderWindow& entry) {
    return evaluate(entry, R"(
      const frame = document.querySelector('iframe.section-frame:not(.preparing)');
      const view = frame.contentWindow;
      const highlights = view.CSS && view.CSS.highlights;
      if (highlights) {
        const highlight = highlights.get('tomekeeper-annotation');
        return highlight ? [...highlight].map((range) => range.toString()) : [];
      }
      const overlay = frame.contentDocument.querySelector('[data-tomekeeper-runtime="highlight-overlay"]');
      return overlay && overlay.children.length > 0 ? ['(drawn without the highlight API)'] : [];
    )");
  }

  Locator scrollThreeScreensIntoTheSecondSection(ReaderWindow& entry);

  testing::TemporaryDirectory directory_;
  std::filesystem::path bookFile_;
  std::string fingerprint_;
  std::vector<ReaderWindow> windows_;
};

TEST_F(ReaderSessionDisplayTest, AReopenedBookShowsThePageWhereTheLastSessionClosed) {
  placeBook(ledgerBook());
  ReaderWindow& first = openWindow();
  ASSERT_EQ(first.session->state().value(), ReaderSession::State::ready);
  EXPECT_FALSE(first.log->lineOf("open.saved")) << "a new book has no saved position";
  run(first.session->nextPage());
  run(first.session->nextSection());
  run(first.session->nextPage());
  run(first.session->nextPage());
  ASSERT_TRUE(first.session->position().value());
  const ReaderPositionResult before = *first.session->position().value();
  EXPECT_EQ(before.spineIndex, 1);
  EXPECT_EQ(before.page, 3);
  ASSERT_TRUE(first.session->locator().value());
  const Locator closed = *first.session->locator().value();
  ASSERT_TRUE(closed.cfi);
  ASSERT_TRUE(closed.excerpt);
  EXPECT_TRUE(isTextOnScreen(first, *closed.excerpt));
  closeWindow(CloseSave::expected);
  releaseWindow();

  ReaderWindow& second = openWindow();
  ASSERT_EQ(second.session->state().value(), ReaderSession::State::ready);
  EXPECT_FALSE(second.session->error().value());
  ASSERT_TRUE(second.session->locator().value());
  const Locator reopened = *second.session->locator().value();
  EXPECT_EQ(reopened.spineIndex, closed.spineIndex);
  EXPECT_EQ(reopened.cfi, closed.cfi);
  ASSERT_TRUE(second.session->position().value());
  EXPECT_EQ(second.session->position().value()->spineIndex, before.spineIndex);
  EXPECT_EQ(second.session->position().value()->page, before.page);
  EXPECT_EQ(second.session->position().value()->locatorResolution, "cfi");
  EXPECT_TRUE(isTextOnScreen(second, *closed.excerpt))
      << "\"" << closed.excerpt->exact << "\" is not on screen after the reopen";
  EXPECT_EQ(second.session->pageLabel(), "Page 3 / " + std::to_string(before.pageCount));
}

// Text size up twice and down twice through the session, as Ctrl+plus and Ctrl+minus do, a few
// pages into a chapter: the place the session holds, and the one its close saves, stay the place
// from before, in pages and scrolled.
TEST_F(ReaderSessionDisplayTest, SizeChangesThatEndWhereTheyBeganKeepTheSavedPlace) {
  placeBook(ledgerBook());
  ReaderWindow& entry = openWindow();
  for (const ReadingMode mode : {ReadingMode::paginated, ReadingMode::scrolled}) {
    SCOPED_TRACE(mode == ReadingMode::paginated ? "paginated" : "scrolled");
    run(entry.session->setReadingMode(mode));
    run(entry.session->nextSection());
    for (int turn = 0; turn < 4; ++turn) run(entry.session->nextPage());
    ASSERT_TRUE(entry.session->locator().value());
    const Locator before = *entry.session->locator().value();
    ASSERT_TRUE(before.cfi);
    for (const double scale : {1.1, 1.21, 1.1, 1.0}) {
      run(entry.session->setFontScale(TypographyFontScaleSelection::value(scale)));
      ASSERT_TRUE(entry.session->locator().value());
      EXPECT_EQ(entry.session->locator().value()->cfi, before.cfi) << "after scale " << scale;
    }
    ASSERT_TRUE(before.excerpt);
    EXPECT_TRUE(isTextOnScreen(entry, *before.excerpt));
  }
  const Locator kept = *entry.session->locator().value();
  closeWindow(CloseSave::expected);
  const std::optional<Locator> saved = run(entry.positions->locator(fingerprint_));
  ASSERT_TRUE(saved);
  EXPECT_EQ(saved->cfi, kept.cfi);
}

TEST_F(ReaderSessionDisplayTest, AHighlightAndItsNoteMadeFromASelectionAreThereAfterAReopen) {
  placeBook(ledgerBook());
  ReaderWindow& first = openWindow();
  ASSERT_EQ(first.session->state().value(), ReaderSession::State::ready);
  const std::string words = "Chapter 1 paragraph 0 begins here";
  selectOpeningWords(first, "c1p0", words.size());
  // The runtime reports the selection, and the session reads it for the callout.
  EXPECT_TRUE(
      iterateUntil([&] { return first.session->currentTextSelection().value().has_value(); }, 5s));

  run(first.session->addHighlight());
  EXPECT_FALSE(first.session->error().value());
  ASSERT_EQ(first.session->annotations().value().size(), 1u);
  const Annotation highlight = first.session->annotations().value().front();
  EXPECT_EQ(highlight.selectedText, words);
  EXPECT_EQ(highlight.bookFingerprint, fingerprint_);
  EXPECT_EQ(highlight.locator.spineIndex, 0);
  EXPECT_FALSE(first.session->currentTextSelection().value());
  EXPECT_EQ(highlightedWords(first), json::array({words}));

  run(first.session->saveNote(highlight, "  The ledger starts with its own name.\n"));
  ASSERT_EQ(first.session->annotations().value().size(), 1u);
  EXPECT_EQ(first.session->annotations().value().front().note,
            "The ledger starts with its own name.");
  closeWindow(CloseSave::expected);
  releaseWindow();

  ReaderWindow& second = openWindow();
  ASSERT_EQ(second.session->state().value(), ReaderSession::State::ready);
  EXPECT_FALSE(second.session->error().value());
  ASSERT_EQ(second.session->annotations().value().size(), 1u);
  const Annotation reopened = second.session->annotations().value().front();
  EXPECT_EQ(reopened.id, highlight.id);
  EXPECT_EQ(reopened.selectedText, words);
  EXPECT_EQ(reopened.locator, highlight.locator);
  EXPECT_EQ(reopened.note, "The ledger starts with its own name.");
  EXPECT_TRUE(second.session->unresolvedAnnotationIDs().value().empty());
  // Drawn again by the open, over the same words.
  EXPECT_TRUE(iterateUntil([&] { return highlightedWords(second) == json::array({words}); }, 5s))
      << highlightedWords(second).dump();
}

TEST_F(ReaderSessionDisplayTest,
       AfterClearingTheReadingDataTheBookReopensAtItsStartWithNothingMarked) {
  placeBook(ledgerBook());
  ReaderWindow& first = openWindow();
  ASSERT_EQ(first.session->state().value(), ReaderSession::State::ready);
  selectOpeningWords(first, "c1p0", 9);
  run(first.session->addHighlight());
  ASSERT_EQ(first.session->annotations().value().size(), 1u);
  run(first.session->nextSection());
  run(first.session->nextPage());
  EXPECT_EQ(run(first.session->toggleBookmark()), BookmarkToggle::added);
  ASSERT_EQ(first.session->bookmarks().value().size(), 1u);
  closeWindow(CloseSave::expected);
  releaseWindow();

  // The marks and the place are all there before they are cleared.
  ReaderWindow& second = openWindow();
  ASSERT_EQ(second.session->state().value(), ReaderSession::State::ready);
  EXPECT_EQ(second.session->annotations().value().size(), 1u);
  EXPECT_EQ(second.session->bookmarks().value().size(), 1u);
  ASSERT_TRUE(second.session->position().value());
  EXPECT_EQ(second.session->position().value()->spineIndex, 1);
  const std::optional<Locator> shown = second.session->locator().value();

  run(second.session->clearReadingData());
  EXPECT_FALSE(second.session->error().value());
  EXPECT_TRUE(second.session->annotations().value().empty());
  EXPECT_TRUE(second.session->bookmarks().value().empty());
  EXPECT_EQ(second.session->locator().value(), shown) << "clearing does not move the reader";
  closeWindow(CloseSave::none);
  releaseWindow();

  ReaderWindow& third = openWindow();
  ASSERT_EQ(third.session->state().value(), ReaderSession::State::ready);
  EXPECT_FALSE(third.session->error().value());
  EXPECT_FALSE(third.log->lineOf("open.saved")) << "no position is left to restore";
  ASSERT_TRUE(third.session->locator().value());
  EXPECT_EQ(third.session->locator().value()->spineIndex, 0);
  EXPECT_EQ(third.session->locator().value()->sectionProgression.value_or(1), 0.0);
  EXPECT_TRUE(third.session->annotations().value().empty());
  EXPECT_TRUE(third.session->bookmarks().value().empty());
  EXPECT_EQ(highlightedWords(third), json::array());
}

// Opens the ledger in scrolled mode on its second section and scrolls three screens down, as a
// reader does with the wheel: no bridge call, only the page moves. Gives the runtime's own
// locator of the place reached, once the session has saved the runtime's report of it.
Locator ReaderSessionDisplayTest::scrollThreeScreensIntoTheSecondSection(ReaderWindow& entry) {
  run(entry.session->nextSection());
  run(entry.session->setReadingMode(ReadingMode::scrolled));
  EXPECT_EQ(entry.session->readingMode().value(), ReadingMode::scrolled);
  const std::optional<Locator> beforeScrolling = entry.session->locator().value();

  const json scrolled = evaluate(entry, R"(
    const viewport = document.getElementById('reader-viewport');
    viewport.scrollTop += 3 * viewport.clientHeight;
    return viewport.scrollTop;
  )");
  EXPECT_TRUE(scrolled.is_number() && scrolled.get<double>() > 0) << scrolled.dump();
  const Locator shown = run(entry.session->host()->bridge()->currentLocator());
  EXPECT_TRUE(beforeScrolling && shown.cfi != beforeScrolling->cfi)
      << "the scroll did not move the reader";
  // The sentinel is the save of the scrolled place itself; a save of the place the mode
  // change left has another CFI.
  const auto scrolledPlaceSaved = [&] {
    return std::any_of(entry.log->lines.begin(), entry.log->lines.end(), [&](const auto& line) {
      return line.find(" stage=runtime.saved ") != std::string::npos &&
             loggedPlace(line).cfi == cleanedCFIForLog(shown.cfi);
    });
  };
  EXPECT_TRUE(iterateUntil(scrolledPlaceSaved, 5s))
      << "the scrolled place was never saved: " << ::testing::PrintToString(entry.log->lines);
  EXPECT_EQ(entry.session->locator().value(), shown);
  return shown;
}

// The reader stops scrolling with a line straddling the top edge; the reopen must put that line
// first on screen, not scroll to the start of the screenful that holds it.
TEST_F(ReaderSessionDisplayTest, AScrolledPlaceIsSavedAndTheReopenShowsTheLineThatStoodFirst) {
  placeBook(ledgerBook());
  ReaderWindow& first = openWindow();
  ASSERT_EQ(first.session->state().value(), ReaderSession::State::ready);
  const Locator shown = scrollThreeScreensIntoTheSecondSection(first);
  ASSERT_TRUE(shown.cfi);
  ASSERT_TRUE(shown.excerpt);
  closeWindow(CloseSave::expected);
  const std::optional<std::string> saved = first.log->lineOf("close.saved");
  releaseWindow();
  ASSERT_TRUE(saved);
  EXPECT_EQ(loggedPlace(*saved).cfi, cleanedCFIForLog(shown.cfi));

  ReaderWindow& second = openWindow();
  ASSERT_EQ(second.session->state().value(), ReaderSession::State::ready);
  EXPECT_EQ(second.session->readingMode().value(), ReadingMode::scrolled);
  const std::optional<std::string> restored = second.log->lineOf("open.saved");
  ASSERT_TRUE(restored) << ::testing::PrintToString(second.log->lines);
  EXPECT_EQ(loggedPlace(*restored), loggedPlace(*saved));
  ASSERT_TRUE(second.session->locator().value());
  EXPECT_EQ(second.session->locator().value()->spineIndex, shown.spineIndex);
  EXPECT_EQ(second.session->locator().value()->cfi, shown.cfi)
      << ::testing::PrintToString(second.log->lines);
  EXPECT_TRUE(isTextOnScreen(second, *shown.excerpt))
      << "\"" << shown.excerpt->exact << "\" is not on screen after the reopen";
}

TEST_F(ReaderSessionDisplayTest, EverySampleBookReopensAtTheLocatorThatItsCloseSaved) {
  const std::vector<std::filesystem::path> books = testing::sampleBooks();
  if (books.empty()) GTEST_SKIP() << "no sample corpus at " << testing::sampleCorpusDirectory();
  // Each book takes a bounded number of steps, each bounded by kStepLimit.
  constexpr int kPageTurns = 4;
  for (const std::filesystem::path& book : books) {
    SCOPED_TRACE(book.filename().string());
    placeBookFile(book);
    std::optional<std::string> saved;
    std::optional<Locator> closedAt;
    std::optional<ReaderPositionResult> positionAtClose;
    try {
      ReaderWindow& first = openWindow();
      // A few pages in; a short book may end sooner, which the runtime answers in place.
      for (int turn = 0; turn < kPageTurns; ++turn) run(first.session->nextPage());
      positionAtClose = first.session->position().value();
      closeWindow(CloseSave::expected);
      saved = first.log->lineOf("close.saved");
      closedAt = first.session->locator().value();
    } catch (...) {
      ADD_FAILURE() << "the first session failed: " << describeCurrentFailure();
    }
    releaseWindow();
    if (!saved || !closedAt) continue;

    try {
      ReaderWindow& second = openWindow();
      const std::optional<std::string> restored = second.log->lineOf("open.saved");
      const std::optional<std::string> corrected = second.log->lineOf("open.finalCorrection");
      EXPECT_TRUE(restored && corrected) << ::testing::PrintToString(second.log->lines);
      if (restored) {
        EXPECT_EQ(loggedPlace(*restored), loggedPlace(*saved)) << *restored << "\n" << *saved;
      }
      if (corrected) {
        EXPECT_EQ(loggedPlace(*corrected), loggedPlace(*saved)) << *corrected << "\n" << *saved;
      }
      // The page itself: the same page of the same section, with the text that stood first on
      // it still on screen.
      const std::optional<ReaderPositionResult>& position = second.session->position().value();
      if (position && positionAtClose) {
        EXPECT_EQ(position->spineIndex, positionAtClose->spineIndex);
        EXPECT_EQ(position->page, positionAtClose->page);
      }
      if (closedAt->excerpt) {
        EXPECT_TRUE(isTextOnScreen(second, *closedAt->excerpt))
            << "\"" << closedAt->excerpt->exact << "\" is not on screen after the reopen";
      }
    } catch (...) {
      ADD_FAILURE() << "the reopen failed: " << describeCurrentFailure();
    }
    releaseWindow();
  }
}

}  // namespace
}  // namespace tomekeeper
