// The real reader runtime page in a real WebKitGTK web view, driven through the bridge as the
// session drives it: opening, navigation, locators, presentation, search, highlights, bookmarks
// and the sample corpus. These tests need a display (label display).
#include <cctype>

#include "ReaderRuntimeDisplayFixture.h"

namespace tomekeeper {
namespace {

using namespace std::chrono_literals;
using json = nlohmann::json;
using testing::chapterDocument;
using testing::iterateUntil;
using testing::ReaderRuntimeDisplayTest;

constexpr const char* kNavigationDocument = R"(<?xml version="1.0" encoding="UTF-8"?>
<html xmlns="http://www.w3.org/1999/xhtml" xmlns:epub="http://www.idpf.org/2007/ops">
<head><title>Contents</title></head>
<body><nav epub:type="toc"><ol>
  <li><a href="text/chapter1.xhtml">The First Chapter</a></li>
  <li><a href="text/chapter2.xhtml">The Second Chapter</a>
    <ol><li><a href="text/chapter2.xhtml#c2p20">Deep in the second</a></li></ol></li>
  <li><a href="text/chapter3.xhtml">The Third Chapter</a></li>
</ol></nav></body></html>
)";

// The marker that a section's script would leave if it ran.
constexpr const char* kScriptMarker = "script-ran-in-the-book";

std::string keeperBook() {
  testing::PackageDescription package{.identifier = "urn:uuid:2b0b8c1e-3f43-4a5e-9e55-0c3c1c8f2d10",
                                      .title = "The Keeper of Tomes",
                                      .creators = {"Ada Shelfwright"}};
  package.manifest.push_back({"nav", "nav.xhtml", "application/xhtml+xml", "nav"});
  package.withChapters(3, "text/chapter");
  package.manifest[2].properties = "scripted";
  testing::EpubBuilder builder;
  builder.withPackageDocument(package);
  builder.addFile("OEBPS/nav.xhtml", kNavigationDocument);
  builder.addFile("OEBPS/text/chapter1.xhtml", chapterDocument(1, 30));
  builder.addFile(
      "OEBPS/text/chapter2.xhtml",
      chapterDocument(
          2, 30,
          std::string("<script>document.documentElement.setAttribute('data-marker', '") +
              kScriptMarker + "');</script>",
          std::string("<p id=\"needle\">A zebra marmalade stood on the last shelf.</p>\n"
                      "<script>document.title = '") +
              kScriptMarker + "';</script>\n"));
  builder.addFile("OEBPS/text/chapter3.xhtml", chapterDocument(3, 30));
  return builder.build();
}

// The cases below share one web view and one opened book per test: each runs as its own
// section, named as its behaviour, from a place it goes to first.

TEST_F(ReaderRuntimeDisplayTest, OpensABookAndMovesThroughItsPagesSectionsAndContents) {
  const OpenPublicationResult opened = openBook(keeperBook());
  const auto toTheStart = [&] { run(bridge().goTo(GoToRequest{"text/chapter1.xhtml"})); };
  {
    SCOPED_TRACE("OpensABookAndShowsItsFirstPage");
    EXPECT_EQ(opened.title, "The Keeper of Tomes");
    EXPECT_EQ(opened.authors, std::vector<std::string>{"Ada Shelfwright"});
    EXPECT_EQ(opened.spineItemCount, 3);
    EXPECT_NE(opened.initialResourceURL.find("text/chapter1.xhtml"), std::string::npos);
    const Locator locator = run(bridge().currentLocator());
    EXPECT_EQ(locator.spineIndex, 0);
    EXPECT_EQ(locator.spineHref, "text/chapter1.xhtml");
    EXPECT_EQ(locator.sectionProgression, 0.0);
    ASSERT_TRUE(locator.excerpt);
    EXPECT_EQ(locator.excerpt->exact.rfind("Chapter 1", 0), 0u) << locator.excerpt->exact;
    const json shown = visibleSection();
    ASSERT_FALSE(shown["visible"].empty()) << shown.dump();
    EXPECT_EQ(shown["visible"][0], "top");
    saveScreenshot("first-page");
  }
  {
    SCOPED_TRACE("NextTurnsToTheFollowingPageOfTheSection");
    const json before = visibleSection();
    const ReaderPositionResult position = run(bridge().next());
    EXPECT_EQ(position.spineIndex, 0);
    EXPECT_EQ(position.page, 2);
    EXPECT_GT(position.pageCount, 2);
    EXPECT_FALSE(position.atStart);
    EXPECT_FALSE(position.atEnd);
    const json after = visibleSection();
    ASSERT_FALSE(after["visible"].empty()) << after.dump();
    EXPECT_NE(after["visible"], before["visible"]);
    EXPECT_GT(run(bridge().currentLocator()).sectionProgression.value_or(0), 0.0);
  }
  {
    SCOPED_TRACE("SectionsAreReachedByNextSectionPreviousSectionAndHref");
    toTheStart();
    ReaderPositionResult position = run(bridge().nextSection());
    EXPECT_EQ(position.spineIndex, 1);
    EXPECT_EQ(position.page, 1);
    EXPECT_EQ(visibleSection()["visible"][0], "top");
    position = run(bridge().nextSection());
    EXPECT_EQ(position.spineIndex, 2);
    position = run(bridge().previousSection());
    EXPECT_EQ(position.spineIndex, 1);
    EXPECT_EQ(position.page, 1);
    position = run(bridge().goTo(GoToRequest{"text/chapter2.xhtml#c2p20"}));
    EXPECT_EQ(position.spineIndex, 1);
    EXPECT_GT(position.page, 1);
    const json shown = visibleSection();
    EXPECT_NE(std::find(shown["visible"].begin(), shown["visible"].end(), "c2p20"),
              shown["visible"].end())
        << shown.dump();
    position = run(bridge().goTo(GoToRequest{"text/chapter3.xhtml"}));
    EXPECT_EQ(position.spineIndex, 2);
    EXPECT_EQ(position.page, 1);
  }
  {
    SCOPED_TRACE("TheContentsComeFromTheNavigationDocument");
    toTheStart();
    const TableOfContentsResult contents = run(bridge().tableOfContents());
    ASSERT_EQ(contents.items.size(), 3u);
    EXPECT_EQ(contents.items[0].title, "The First Chapter");
    EXPECT_EQ(contents.items[0].href, "text/chapter1.xhtml");
    ASSERT_EQ(contents.items[1].children.size(), 1u);
    EXPECT_EQ(contents.items[1].children[0].href, "text/chapter2.xhtml#c2p20");
    // Each entry leads where it says.
    EXPECT_EQ(run(bridge().goTo(GoToRequest{contents.items[1].children[0].href})).spineIndex, 1);
  }
  {
    SCOPED_TRACE("WalksToTheEndAndBackToTheStart");
    toTheStart();
    std::vector<std::pair<std::int64_t, std::int64_t>> forward{{0, 1}};
    const auto atEnd = nextUntil([&](const ReaderPositionResult& position) {
      forward.emplace_back(position.spineIndex, position.page);
      return position.atEnd;
    });
    ASSERT_TRUE(atEnd) << "no end within 100 pages";
    EXPECT_EQ(atEnd->spineIndex, 2);
    EXPECT_EQ(atEnd->page, atEnd->pageCount);
    // Every page came once, in order.
    for (std::size_t step = 1; step < forward.size(); ++step) {
      EXPECT_LT(forward[step - 1], forward[step]) << "step " << step;
    }
    // Past the end nothing moves.
    const ReaderPositionResult stay = run(bridge().next());
    EXPECT_TRUE(stay.atEnd);
    EXPECT_EQ(stay.page, atEnd->page);
    std::vector<std::pair<std::int64_t, std::int64_t>> backward{{atEnd->spineIndex, atEnd->page}};
    for (int turn = 0; turn < 100; ++turn) {
      const ReaderPositionResult position = run(bridge().previous());
      backward.emplace_back(position.spineIndex, position.page);
      if (position.atStart) break;
    }
    std::reverse(backward.begin(), backward.end());
    EXPECT_EQ(backward, forward);
    EXPECT_EQ(visibleSection()["visible"][0], "top");
  }
  {
    SCOPED_TRACE("AScriptInASectionDoesNotRun");
    run(bridge().goTo(GoToRequest{"text/chapter2.xhtml"}));
    const json state = evaluate(R"(
      const frame = document.querySelector('iframe.section-frame:not(.preparing)');
      return { src: frame.src, title: frame.contentDocument.title,
               marker: frame.contentDocument.documentElement.getAttribute('data-marker') };
    )");
    EXPECT_NE(state["src"].get<std::string>().find("chapter2.xhtml"), std::string::npos);
    EXPECT_EQ(state["title"], "Chapter 2");
    EXPECT_EQ(state["marker"], nullptr);
  }
}

// From the third page of the second section; every change is undone before the next, except the
// larger type, which comes last.
TEST_F(ReaderRuntimeDisplayTest, TheReadersPlaceIsKeptByLocatorsAndThroughPresentationChanges) {
  const Locator before = standInTheMiddleOfTheBook(keeperBook());
  ASSERT_TRUE(before.cfi);
  ASSERT_TRUE(before.excerpt);
  const auto backToThePlace = [&] { run(bridge().goTo(GoToLocatorRequest{before})); };
  {
    SCOPED_TRACE("GoingToTheCurrentLocatorDoesNotDrift");
    for (int round = 0; round < 3; ++round) {
      const ReaderPositionResult position = run(bridge().goTo(GoToLocatorRequest{before}));
      EXPECT_EQ(position.page, 3);
      EXPECT_EQ(position.locatorResolution, "cfi");
      EXPECT_EQ(run(bridge().currentLocator()), before) << "round " << round;
    }
    // From elsewhere in the book, too.
    run(bridge().goTo(GoToRequest{"text/chapter3.xhtml"}));
    backToThePlace();
    EXPECT_EQ(run(bridge().currentLocator()), before);
  }
  {
    SCOPED_TRACE("ALocatorWithoutCfiIsFoundByItsExcerpt");
    run(bridge().goTo(GoToRequest{"text/chapter1.xhtml"}));
    Locator withoutCfi = before;
    withoutCfi.cfi.reset();
    const ReaderPositionResult position = run(bridge().goTo(GoToLocatorRequest{withoutCfi}));
    EXPECT_EQ(position.locatorResolution, "excerpt");
    EXPECT_EQ(position.page, 3);
    EXPECT_TRUE(isTextOnScreen(*before.excerpt));
  }
  {
    SCOPED_TRACE("ABookmarkIsVisibleOnlyOnItsPage");
    std::vector<std::set<Uuid>> changes;
    bridge().onBookmarkVisibilityChanged = [&](std::set<Uuid> visible) {
      changes.push_back(std::move(visible));
    };
    const Uuid bookmarkID = Uuid::random();
    const Uuid elsewhereID = Uuid::random();
    run(bridge().goTo(GoToRequest{"text/chapter3.xhtml"}));
    const Locator elsewhere = run(bridge().currentLocator());
    backToThePlace();
    const BookmarkVisibilityResult visible = run(bridge().configureBookmarkVisibility(
        ConfigureBookmarkVisibilityRequest{{{bookmarkID, before}, {elsewhereID, elsewhere}}}));
    EXPECT_EQ(visible.visibleBookmarkIDs, std::vector<Uuid>{bookmarkID});
    run(bridge().next());
    ASSERT_TRUE(iterateUntil([&] { return !changes.empty(); }, 2s));
    EXPECT_TRUE(changes.back().empty());
    run(bridge().previous());
    ASSERT_TRUE(iterateUntil([&] { return changes.size() >= 2; }, 2s));
    EXPECT_EQ(changes.back(), std::set<Uuid>{bookmarkID});
    run(bridge().goTo(GoToRequest{"text/chapter3.xhtml"}));
    ASSERT_TRUE(iterateUntil([&] { return changes.size() >= 3; }, 2s));
    EXPECT_EQ(changes.back(), std::set<Uuid>{elsewhereID});
    run(bridge().configureBookmarkVisibility(ConfigureBookmarkVisibilityRequest{}));
    bridge().onBookmarkVisibilityChanged = nullptr;
  }
  {
    SCOPED_TRACE("ADarkThemeKeepsTheFirstVisibleCharacter");
    backToThePlace();
    const ConfigureThemeResult result =
        run(bridge().configureTheme(ConfigureThemeRequest{{ReadingThemeSelection::dark}}));
    EXPECT_GT(result.configurationRevision, 0);
    EXPECT_EQ(result.computedBodyBackgroundColor, "rgb(28, 28, 30)");
    EXPECT_EQ(result.computedBodyColor, "rgb(227, 227, 227)");
    expectStillShown(before, "dark theme");
    saveScreenshot("dark-theme");
    run(bridge().configureTheme(ConfigureThemeRequest{{ReadingThemeSelection::light}}));
  }
  {
    SCOPED_TRACE("ScrolledModeKeepsTheFirstVisibleCharacter");
    backToThePlace();
    const ConfigureReadingModeResult result =
        run(bridge().configureReadingMode(ConfigureReadingModeRequest{ReadingMode::scrolled}));
    EXPECT_EQ(result.effectiveMode, ReadingMode::scrolled);
    EXPECT_EQ(result.computedContainerOverflow, "hidden auto");
    expectStillShown(before, "scrolled mode");
    saveScreenshot("scrolled-mode");
    // And back to pages, from where the scrolled view stands.
    const Locator scrolled = run(bridge().currentLocator());
    run(bridge().configureReadingMode(ConfigureReadingModeRequest{ReadingMode::paginated}));
    expectStillShown(scrolled, "paginated again");
  }
  {
    SCOPED_TRACE("TwoPagesASpreadKeepTheFirstVisibleCharacter");
    backToThePlace();
    const ConfigurePageLayoutResult result =
        run(bridge().configurePageLayout(ConfigurePageLayoutRequest{PageLayout::doublePage}));
    EXPECT_EQ(result.effectiveColumnCount, 2);
    expectStillShown(before, "double page");
    saveScreenshot("double-page");
    // A spread begins before the page that it holds; a single page again shows the reader's
    // place, not the spread's beginning.
    run(bridge().configurePageLayout(ConfigurePageLayoutRequest{PageLayout::singlePage}));
    EXPECT_EQ(run(bridge().currentLocator()).cfi, before.cfi);
  }
  {
    SCOPED_TRACE("ALargerFontKeepsTheFirstVisibleCharacter");
    backToThePlace();
    ConfigureTypographyRequest typography;
    typography.fontScale.mode = ResolvedTypographyFontScale::Mode::value;
    typography.fontScale.value = 1.6;
    const ConfigureTypographyResult result = run(bridge().configureTypography(typography));
    EXPECT_TRUE(result.applied);
    ASSERT_TRUE(result.computedRootFontSize);
    EXPECT_NEAR(*result.computedRootFontSize, 16 * 1.6, 0.5);
    expectStillShown(before, "font scale 1.6");
    const ReaderPositionResult position = run(bridge().goTo(GoToLocatorRequest{before}));
    EXPECT_GT(position.page, 3) << "larger type takes more pages to reach the same words";
  }
}

// The book's fonts may arrive after its section was laid out and move its text; the relayout
// that follows must start from where the reader was, not from what the moved text now shows.
TEST_F(ReaderRuntimeDisplayTest, AFontThatArrivesLateKeepsTheReadersPlace) {
  const Locator before = standInTheMiddleOfTheBook(keeperBook());
  int relayouts = 0;
  bridge().onLocatorChanged = [&](Locator) { ++relayouts; };
  // Wider letters, as a web font that replaces its fallback can give; then the font set says
  // that its loading is done, as it does when such a font arrives.
  evaluate(R"(
    const frame = document.querySelector('iframe.section-frame:not(.preparing)');
    const doc = frame.contentDocument;
    const style = doc.createElementNS('http://www.w3.org/1999/xhtml', 'style');
    style.textContent = 'p { letter-spacing: 0.3em; word-spacing: 0.5em; }';
    doc.head.appendChild(style);
    doc.fonts.dispatchEvent(new Event('loadingdone'));
    return true;
  )");
  ASSERT_TRUE(iterateUntil([&] { return relayouts > 0; }, 5s)) << "no relayout";
  bridge().onLocatorChanged = nullptr;
  expectStillShown(before, "late font");
}

// One search and the highlights placed from it; each highlight is removed before the next case.
TEST_F(ReaderRuntimeDisplayTest, SearchResultsAndTheHighlightsPlacedFromThemKeepToTheirWords) {
  openBook(keeperBook());
  std::vector<PublicationSearchResult> results;
  {
    SCOPED_TRACE("ASearchResultLeadsToItsMatch");
    bool complete = false;
    const Uuid searchID = Uuid::random();
    bridge().onSearchResults = [&](Uuid id, std::vector<PublicationSearchResult> batch,
                                   bool isComplete) {
      if (id != searchID) return;
      results.insert(results.end(), batch.begin(), batch.end());
      complete = complete || isComplete;
    };
    const StartSearchResult started =
        run(bridge().startSearch(StartSearchRequest{searchID, "Zebra  Marmalade"}));
    EXPECT_EQ(started.searchID, searchID);
    ASSERT_TRUE(iterateUntil([&] { return complete; }, 10s));
    bridge().onSearchResults = nullptr;
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].locator.spineIndex, 1);
    EXPECT_NE(results[0].excerpt.find("zebra marmalade"), std::string::npos) << results[0].excerpt;
    const ReaderPositionResult position =
        run(bridge().goTo(GoToLocatorRequest{results[0].locator}));
    EXPECT_EQ(position.spineIndex, 1);
    EXPECT_EQ(position.page, position.pageCount) << "the match is on the section's last page";
    EXPECT_TRUE(isTextOnScreen(TextContext{"zebra marmalade", std::nullopt, std::nullopt}));
  }
  RuntimeAnnotation annotation;
  annotation.locator = results[0].locator;
  annotation.selectedText = "zebra marmalade";
  {
    SCOPED_TRACE("AHighlightInASectionNotOnScreenIsPlacedAndDrawnLater");
    run(bridge().goTo(GoToRequest{"text/chapter1.xhtml"}));
    annotation.id = Uuid::random();
    const AnnotationRenderResult rendered =
        run(bridge().addAnnotation(AnnotationRequest{annotation}));
    EXPECT_TRUE(rendered.rendered);
    EXPECT_EQ(rendered.resolution, "cfi");
    run(bridge().goTo(GoToLocatorRequest{annotation.locator}));
    EXPECT_EQ(highlightedWordsOnScreen(), json::array({"zebra marmalade"}));
    saveScreenshot("highlight");
    EXPECT_TRUE(run(bridge().pulseAnnotation(AnnotationPulseRequest{annotation.id})).rendered);
    run(bridge().removeAnnotation(RemoveAnnotationRequest{annotation.id}));
  }
  {
    SCOPED_TRACE("AHighlightWhoseWordsAreGoneIsLeftUnresolved");
    std::set<Uuid> unresolved;
    bridge().onAnnotationResolutionChanged = [&](std::set<Uuid>, std::set<Uuid> ids) {
      unresolved = std::move(ids);
    };
    // Stored against an older text of the book: its place now holds other words.
    RuntimeAnnotation stale = annotation;
    stale.id = Uuid::random();
    stale.locator.excerpt = TextContext{"quince jelly", std::nullopt, std::nullopt};
    stale.selectedText = "quince jelly";
    const AnnotationRenderResult answer = run(bridge().addAnnotation(AnnotationRequest{stale}));
    EXPECT_FALSE(answer.rendered);
    EXPECT_EQ(answer.resolution, "unresolved");
    ASSERT_TRUE(iterateUntil([&] { return unresolved.contains(stale.id); }, 2s));
    bridge().onAnnotationResolutionChanged = nullptr;
    run(bridge().goTo(GoToLocatorRequest{results[0].locator}));
    EXPECT_EQ(highlightedWordsOnScreen(), json::array()) << "never drawn on the wrong words";
    run(bridge().removeAnnotation(RemoveAnnotationRequest{stale.id}));
  }
  {
    SCOPED_TRACE("ACancelledSearchSendsNothingMoreAndANewOneRunsOnItsOwn");
    const Uuid cancelledID = Uuid::random();
    const Uuid laterID = Uuid::random();
    std::size_t cancelledBatches = 0;
    bool cancelledCompleted = false;
    std::size_t laterResults = 0;
    bool laterCompleted = false;
    bridge().onSearchResults = [&](Uuid id, std::vector<PublicationSearchResult> batch,
                                   bool complete) {
      if (id == cancelledID) ++cancelledBatches, cancelledCompleted |= complete;
      if (id == laterID) laterResults += batch.size(), laterCompleted |= complete;
    };
    run(bridge().startSearch(StartSearchRequest{cancelledID, "paragraph"}));
    run(bridge().cancelSearch(CancelSearchRequest{cancelledID}));
    // Batches sent before the cancel arrive before its answer; nothing may follow it. A later
    // search for the same word runs to its end: the cancelled one, had it gone on, would have
    // sent its batches by then.
    const std::size_t batchesAtCancel = cancelledBatches;
    const bool completedAtCancel = cancelledCompleted;
    run(bridge().startSearch(StartSearchRequest{laterID, "paragraph"}));
    ASSERT_TRUE(iterateUntil([&] { return laterCompleted; }, 10s));
    EXPECT_GT(laterResults, 0u);
    EXPECT_EQ(cancelledBatches, batchesAtCancel);
    EXPECT_EQ(cancelledCompleted, completedAtCancel);
    bridge().onSearchResults = nullptr;
    EXPECT_EQ(searchAll("zebra marmalade").size(), 1u);
  }
  {
    SCOPED_TRACE("AHighlightStaysOnItsWordsThroughTypeAndLayoutChanges");
    annotation.id = Uuid::random();
    ASSERT_TRUE(run(bridge().addAnnotation(AnnotationRequest{annotation})).rendered);
    ConfigureTypographyRequest typography;
    typography.fontScale.mode = ResolvedTypographyFontScale::Mode::value;
    typography.fontScale.value = 1.6;
    run(bridge().configureTypography(typography));
    run(bridge().configurePageLayout(ConfigurePageLayoutRequest{PageLayout::doublePage}));
    run(bridge().goTo(GoToLocatorRequest{annotation.locator}));
    EXPECT_EQ(highlightedWordsOnScreen(), json::array({"zebra marmalade"}));
    EXPECT_TRUE(isTextOnScreen(TextContext{"zebra marmalade", std::nullopt, std::nullopt}));
  }
}

TEST_F(ReaderRuntimeDisplayTest, AHighlightIsDrawnOverItsWords) {
  openBook(keeperBook());
  std::optional<bool> lastAvailability;
  bridge().onSelectionAvailabilityChanged =
      [&](bool available, std::optional<ReaderSelectionRect>) { lastAvailability = available; };
  // The reader selects the words of the first paragraph's opening.
  evaluate(R"(
    const frame = document.querySelector('iframe.section-frame:not(.preparing)');
    const doc = frame.contentDocument;
    const text = doc.getElementById('c1p0').firstChild;
    const range = doc.createRange();
    range.setStart(text, 0);
    range.setEnd(text, 'Chapter 1 paragraph 0 begins here'.length);
    doc.getSelection().removeAllRanges();
    doc.getSelection().addRange(range);
    return true;
  )");
  const CurrentSelectionResult selection = run(bridge().currentSelection());
  ASSERT_TRUE(selection.selection);
  EXPECT_EQ(selection.selection->selectedText, "Chapter 1 paragraph 0 begins here");

  std::vector<std::set<Uuid>> resolvedReports;
  bridge().onAnnotationResolutionChanged = [&](std::set<Uuid> resolved, std::set<Uuid>) {
    resolvedReports.push_back(std::move(resolved));
  };
  // As the reader would, highlight once the selection has been offered.
  ASSERT_TRUE(iterateUntil([&] { return lastAvailability == true; }, 2s));
  RuntimeAnnotation annotation;
  annotation.id = Uuid::random();
  annotation.locator = selection.selection->locator;
  annotation.selectedText = selection.selection->selectedText;
  const AnnotationRenderResult rendered =
      run(bridge().addAnnotation(AnnotationRequest{annotation}));
  EXPECT_TRUE(rendered.rendered);
  EXPECT_EQ(rendered.resolution, "cfi");

  const json drawn = evaluate(R"(
    const frame = document.querySelector('iframe.section-frame:not(.preparing)');
    const view = frame.contentWindow;
    const highlights = view.CSS && view.CSS.highlights;
    if (highlights) {
      const highlight = highlights.get('tomekeeper-annotation');
      return { api: true, words: highlight ? [...highlight].map((range) => range.toString()) : [] };
    }
    const overlay = frame.contentDocument.querySelector('[data-tomekeeper-runtime="highlight-overlay"]');
    return { api: false, boxes: overlay ? overlay.children.length : 0 };
  )");
  if (drawn["api"] == true) {
    EXPECT_EQ(drawn["words"], json::array({"Chapter 1 paragraph 0 begins here"})) << drawn.dump();
  } else {
    EXPECT_GT(drawn["boxes"].get<int>(), 0) << drawn.dump();
  }
  ASSERT_TRUE(iterateUntil([&] { return !resolvedReports.empty(); }, 2s));
  EXPECT_TRUE(resolvedReports.back().contains(annotation.id));

  // The selection became the highlight: it is gone from the page, and the native side hears so
  // (its callout would otherwise come back at the next move of the page).
  ASSERT_TRUE(iterateUntil([&] { return lastAvailability == false; }, 2s));
  EXPECT_FALSE(run(bridge().currentSelection()).selection);
  run(bridge().next());
  // An event that the turn sends, at once or after the next frame, comes before the answer to a
  // later call.
  evaluate("await new Promise((drawn) => requestAnimationFrame(() => setTimeout(drawn)));");
  run(bridge().currentLocator());
  EXPECT_EQ(lastAvailability, false);

  const AnnotationRenderResult removed =
      run(bridge().removeAnnotation(RemoveAnnotationRequest{annotation.id}));
  EXPECT_FALSE(removed.rendered);
}

// ---- Every sample book of the shared corpus, when it is there --------------------------------

// One case per book of the corpus; without the corpus, one case that says it is missing.
class SampleBookDisplayTest : public ReaderRuntimeDisplayTest,
                              public ::testing::WithParamInterface<std::filesystem::path> {};

std::vector<std::filesystem::path> sampleBooksOrNone() {
  std::vector<std::filesystem::path> books = testing::sampleBooks();
  if (books.empty()) books.emplace_back();
  return books;
}

std::string caseNameOfBook(const ::testing::TestParamInfo<std::filesystem::path>& info) {
  std::string name = info.param.empty() ? "NoCorpus" : info.param.stem().string();
  for (char& character : name) {
    if (!std::isalnum(static_cast<unsigned char>(character))) character = '_';
  }
  return name;
}

TEST_P(SampleBookDisplayTest, OpensPagesToItsEndAndKeepsItsPlace) {
  const std::filesystem::path& book = GetParam();
  if (book.empty()) GTEST_SKIP() << "no sample corpus at " << testing::sampleCorpusDirectory();
  OpenPublicationResult opened;
  try {
    opened = openArchive(book);
  } catch (const ReaderBridgeFailure& failure) {
    FAIL() << "open failed: " << failure.payload().code << " " << failure.payload().message << " "
           << failure.payload().diagnostic.value_or("");
  }
  EXPECT_GT(opened.spineItemCount, 0);
  const Locator first = run(bridge().currentLocator());
  EXPECT_EQ(first.sectionProgression.value_or(1), 0.0);
  if (first.excerpt) EXPECT_TRUE(isTextOnScreen(*first.excerpt)) << first.excerpt->exact;
  saveScreenshot("sample-" + book.stem().string());

  // Every page to the end; each turn moves on, and the place halfway through is kept for the
  // presentation changes below.
  std::vector<Locator> passed;
  bridge().onLocatorChanged = [&](Locator locator) { passed.push_back(std::move(locator)); };
  ReaderPositionResult position{};
  std::pair<std::int64_t, std::int64_t> last{first.spineIndex, 1};
  int turns = 0;
  for (; turns < 20000; ++turns) {
    position = run(bridge().next());
    const std::pair<std::int64_t, std::int64_t> now{position.spineIndex, position.page};
    // At the end a turn stays where it is.
    if (position.atEnd && now == last) break;
    if (!(last < now)) {
      ADD_FAILURE() << "turn " << turns << " went from " << last.first << ":" << last.second
                    << " to " << now.first << ":" << now.second;
      break;
    }
    last = now;
  }
  ASSERT_TRUE(position.atEnd) << "no end after " << turns << " turns";
  EXPECT_EQ(position.page, position.pageCount);
  bridge().onLocatorChanged = nullptr;

  // By now every section's length is known, so the whole locator, progression included, must
  // come back unchanged.
  const Locator end = run(bridge().currentLocator());
  const ReaderPositionResult back = run(bridge().goTo(GoToLocatorRequest{end}));
  EXPECT_EQ(back.spineIndex, position.spineIndex);
  EXPECT_EQ(back.page, position.page) << "after " << turns << " turns";
  EXPECT_EQ(run(bridge().currentLocator()), end);

  // A book of one page has only its first.
  run(bridge().goTo(GoToLocatorRequest{passed.empty() ? first : passed[passed.size() / 2]}));
  const Locator before = run(bridge().currentLocator());
  // The words that stood first stay on screen through every change, whatever page each change
  // begins with, and the locator still leads to them; a page of a fixed-layout book may be only a
  // picture, whose locator must still lead to its section.
  const auto keepsItsPlaceThrough = [&](const std::string& change, const auto& apply) {
    apply();
    if (before.excerpt) {
      expectStillShown(before, change);
    } else {
      EXPECT_EQ(run(bridge().goTo(GoToLocatorRequest{before})).spineIndex, before.spineIndex)
          << change;
    }
  };
  // A new window size reaches the page as a resize, which lays the book out again and tells
  // the new place.
  const auto resizeWindow = [&](int width, int height) {
    int relayouts = 0;
    bridge().onLocatorChanged = [&](Locator) { ++relayouts; };
    gtk_window_set_default_size(GTK_WINDOW(window_), width, height);
    EXPECT_TRUE(iterateUntil([&] { return relayouts > 0; }, 5s)) << "no relayout after resize";
    EXPECT_EQ(gtk_widget_get_width(GTK_WIDGET(host_->webView())), width);
    // WebKit may then take seconds to draw a long section at a new width (epub30-spec: 7 s on a
    // busy machine) before the page answers again; the checks wait until it has drawn.
    EXPECT_EQ(
        evaluate("await new Promise((drawn) => requestAnimationFrame(() => setTimeout(drawn)));"
                 "return true;",
                 90s),
        true);
    bridge().onLocatorChanged = nullptr;
  };
  ConfigureTypographyRequest typography;
  keepsItsPlaceThrough("font scale 1.4", [&] {
    typography.fontScale = {ResolvedTypographyFontScale::Mode::value, 1.4};
    run(bridge().configureTypography(typography));
  });
  keepsItsPlaceThrough("line height 1.9", [&] {
    typography.lineHeight = {ResolvedTypographyLineHeight::Mode::value, 1.9};
    run(bridge().configureTypography(typography));
  });
  keepsItsPlaceThrough("wide margins", [&] {
    typography.pageMargins = {ResolvedTypographyPageMargins::Mode::preset, 12.0};
    run(bridge().configureTypography(typography));
  });
  keepsItsPlaceThrough("dark theme", [&] {
    run(bridge().configureTheme(ConfigureThemeRequest{{ReadingThemeSelection::dark}}));
  });
  keepsItsPlaceThrough("scrolled", [&] {
    run(bridge().configureReadingMode(ConfigureReadingModeRequest{ReadingMode::scrolled}));
  });
  keepsItsPlaceThrough("paginated again", [&] {
    run(bridge().configureReadingMode(ConfigureReadingModeRequest{ReadingMode::paginated}));
  });
  keepsItsPlaceThrough("two-page spread", [&] {
    run(bridge().configurePageLayout(ConfigurePageLayoutRequest{PageLayout::doublePage}));
  });
  keepsItsPlaceThrough("a narrower, taller window", [&] { resizeWindow(640, 900); });
  keepsItsPlaceThrough("the first window size", [&] {
    resizeWindow(testing::kDisplayWindowWidth, testing::kDisplayWindowHeight);
  });
}

INSTANTIATE_TEST_SUITE_P(SampleCorpus, SampleBookDisplayTest,
                         ::testing::ValuesIn(sampleBooksOrNone()), caseNameOfBook);

}  // namespace
}  // namespace tomekeeper
