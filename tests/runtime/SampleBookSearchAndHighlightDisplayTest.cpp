// A long real book from the sample corpus in the real reader runtime page: a search finds every
// occurrence of a word and each result leads to its words on screen; a highlight made on a page
// deep in the book stays drawn on its words through type and layout changes and a reopening.
// These tests need a display (label display) and skip themselves without the corpus.
#include <expat.h>

#include <map>

#include "ReaderRuntimeDisplayFixture.h"

namespace tomekeeper {
namespace {

using namespace std::chrono_literals;
using json = nlohmann::json;
using testing::iterateUntil;
using testing::ReaderRuntimeHighlightDisplayTest;

constexpr const char* kSampleBook = "moby-dick.epub";
constexpr const char* kSearchedWord = "whale";

std::string readFile(const std::filesystem::path& path) {
  std::ifstream input(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(input)), std::istreambuf_iterator<char>());
}

// The local part of an expat name read with namespaces ("uri|local").
std::string_view localName(const XML_Char* name) {
  const std::string_view full(name);
  const std::size_t separator = full.rfind('|');
  return separator == std::string_view::npos ? full : full.substr(separator + 1);
}

// Parses `document` with expat, giving each start tag (local name, attributes) and each piece of
// character data to the handlers; false when the document is not well formed.
struct XmlHandlers {
  std::function<void(std::string_view, const XML_Char**)> start;
  std::function<void(std::string_view)> end;
  std::function<void(std::string_view)> text;
};

bool parseXml(const std::string& document, XmlHandlers& handlers) {
  XML_Parser parser = XML_ParserCreateNS(nullptr, '|');
  XML_SetUserData(parser, &handlers);
  XML_SetElementHandler(
      parser,
      [](void* data, const XML_Char* name, const XML_Char** attributes) {
        auto* handlers = static_cast<XmlHandlers*>(data);
        if (handlers->start) handlers->start(localName(name), attributes);
      },
      [](void* data, const XML_Char* name) {
        auto* handlers = static_cast<XmlHandlers*>(data);
        if (handlers->end) handlers->end(localName(name));
      });
  XML_SetCharacterDataHandler(parser, [](void* data, const XML_Char* text, int length) {
    auto* handlers = static_cast<XmlHandlers*>(data);
    if (handlers->text) handlers->text(std::string_view(text, static_cast<std::size_t>(length)));
  });
  const bool parsed = XML_Parse(parser, document.data(), static_cast<int>(document.size()),
                                XML_TRUE) == XML_STATUS_OK;
  XML_ParserFree(parser);
  return parsed;
}

std::string attribute(const XML_Char** attributes, std::string_view name) {
  for (const XML_Char** pair = attributes; *pair != nullptr; pair += 2) {
    if (localName(pair[0]) == name) return pair[1];
  }
  return {};
}

// The files of the spine, in reading order, relative to the package document's folder.
std::vector<std::string> spineFiles(const std::filesystem::path& packageDocument) {
  std::map<std::string, std::string> manifest;
  std::vector<std::string> spine;
  XmlHandlers handlers;
  handlers.start = [&](std::string_view name, const XML_Char** attributes) {
    if (name == "item") manifest[attribute(attributes, "id")] = attribute(attributes, "href");
    if (name == "itemref") spine.push_back(attribute(attributes, "idref"));
  };
  EXPECT_TRUE(parseXml(readFile(packageDocument), handlers)) << packageDocument;
  std::vector<std::string> files;
  for (const std::string& idref : spine) files.push_back(manifest[idref]);
  return files;
}

// The character data inside the body of an XHTML document, as its text nodes hold it.
std::string bodyText(const std::filesystem::path& section) {
  std::string text;
  int bodyDepth = 0;
  XmlHandlers handlers;
  handlers.start = [&](std::string_view name, const XML_Char**) {
    if (bodyDepth > 0 || name == "body") ++bodyDepth;
  };
  handlers.end = [&](std::string_view) {
    if (bodyDepth > 0) --bodyDepth;
  };
  handlers.text = [&](std::string_view data) {
    if (bodyDepth > 0) text += data;
  };
  EXPECT_TRUE(parseXml(readFile(section), handlers)) << section;
  return text;
}

// Occurrences of the lower-case ASCII word `word` in `text`, ASCII letters compared without case.
// The sample book spells the word in plain ASCII letters only (no accented or compatibility
// forms, no soft hyphens inside it), so this is what a search that ignores case and diacritics
// must find there.
std::size_t countIgnoringCase(std::string text, std::string_view word) {
  std::transform(text.begin(), text.end(), text.begin(), [](char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a')
                                                : character;
  });
  std::size_t count = 0;
  for (std::size_t found = text.find(word); found != std::string::npos;
       found = text.find(word, found + word.size())) {
    ++count;
  }
  return count;
}

std::string lowerCase(std::string text) {
  for (char& character : text) {
    if (character >= 'A' && character <= 'Z') character = static_cast<char>(character - 'A' + 'a');
  }
  return text;
}

class SampleBookDisplayTest : public ReaderRuntimeHighlightDisplayTest {
 protected:
  void SetUp() override {
    ReaderRuntimeHighlightDisplayTest::SetUp();
    book_ = testing::sampleCorpusDirectory() / kSampleBook;
    if (!std::filesystem::exists(book_)) GTEST_SKIP() << "no sample book at " << book_;
  }

  std::filesystem::path extracted() const { return directory_ / "Extracted"; }

  std::filesystem::path book_;
};

TEST_F(SampleBookDisplayTest, ASearchFindsEveryOccurrenceAndEachResultLeadsToItsWords) {
  openArchive(book_);
  const std::vector<PublicationSearchResult> results = searchAll(kSearchedWord, 120s);

  // The count of each section, read from the unpacked files independently of the runtime.
  const std::filesystem::path packageDocument = extracted() / packageDocumentPath(extracted());
  const std::vector<std::string> files = spineFiles(packageDocument);
  std::map<std::int64_t, std::size_t> expected;
  std::size_t expectedTotal = 0;
  for (std::size_t spineIndex = 0; spineIndex < files.size(); ++spineIndex) {
    const std::size_t count = countIgnoringCase(
        bodyText(packageDocument.parent_path() / files[spineIndex]), kSearchedWord);
    if (count > 0) expected[static_cast<std::int64_t>(spineIndex)] = count;
    expectedTotal += count;
  }
  std::map<std::int64_t, std::size_t> found;
  for (const PublicationSearchResult& result : results) ++found[result.locator.spineIndex];
  EXPECT_GT(expectedTotal, 1000u) << "the book speaks of its whale throughout";
  EXPECT_EQ(results.size(), expectedTotal);
  EXPECT_EQ(found, expected);

  // Every result, in book order, leads to its own words on screen.
  std::size_t checked = 0;
  for (const PublicationSearchResult& result : results) {
    SCOPED_TRACE("result " + result.id);
    ASSERT_TRUE(result.locator.excerpt);
    EXPECT_EQ(lowerCase(result.locator.excerpt->exact), kSearchedWord);
    const ReaderPositionResult position = run(bridge().goTo(GoToLocatorRequest{result.locator}));
    EXPECT_EQ(position.spineIndex, result.locator.spineIndex);
    EXPECT_EQ(position.locatorResolution, "cfi");
    EXPECT_TRUE(isTextOnScreen(*result.locator.excerpt))
        << "\"" << result.locator.excerpt->prefix.value_or("") << "["
        << result.locator.excerpt->exact << "]" << result.locator.excerpt->suffix.value_or("")
        << "\" is not on screen";
    ++checked;
  }
  EXPECT_EQ(checked, expectedTotal);
}

TEST_F(SampleBookDisplayTest, AHighlightOnPageFortyStaysOnItsWordsThroughChangesAndAReopening) {
  openArchive(book_);
  for (int turn = 1; turn < 40; ++turn) run(bridge().next());

  std::optional<bool> offered;
  bridge().onSelectionAvailabilityChanged =
      [&](bool available, std::optional<ReaderSelectionRect>) { offered = available; };
  const json selected = selectWordsOnScreen(6, 10);
  ASSERT_TRUE(selected.is_string()) << "no words to select on page 40";
  const std::string words = selected.get<std::string>();
  ASSERT_TRUE(iterateUntil([&] { return offered == true; }, 2s));
  const std::optional<RuntimeAnnotation> annotation = highlightSelection();
  ASSERT_TRUE(annotation);
  EXPECT_EQ(annotation->selectedText, words);
  const json drawnWords = json::array({words});

  // Drawn where it was made, on screen.
  auto expectDrawnOnItsWords = [&](const std::string& what) {
    SCOPED_TRACE(what);
    EXPECT_EQ(highlightedWordsOnScreen(), drawnWords) << "before going to the highlight";
    const ReaderPositionResult position =
        run(bridge().goTo(GoToLocatorRequest{annotation->locator}));
    EXPECT_EQ(position.spineIndex, annotation->locator.spineIndex);
    const json drawn = drawnHighlights();
    ASSERT_EQ(drawn.size(), 1u) << drawn.dump();
    EXPECT_EQ(drawn[0]["words"], words);
    EXPECT_TRUE(drawn[0]["onScreen"].get<bool>()) << drawn.dump();
    ASSERT_TRUE(annotation->locator.excerpt);
    EXPECT_TRUE(isTextOnScreen(*annotation->locator.excerpt));
  };
  expectDrawnOnItsWords("as made");
  saveScreenshot("sample-highlight-page-40");

  ConfigureTypographyRequest typography;
  typography.fontScale.mode = ResolvedTypographyFontScale::Mode::value;
  typography.fontScale.value = 1.5;
  ASSERT_TRUE(run(bridge().configureTypography(typography)).applied);
  expectDrawnOnItsWords("font scale 1.5");

  run(bridge().configurePageLayout(ConfigurePageLayoutRequest{PageLayout::doublePage}));
  expectDrawnOnItsWords("two pages a spread");
  saveScreenshot("sample-highlight-spread");
  run(bridge().configurePageLayout(ConfigurePageLayoutRequest{PageLayout::singlePage}));
  expectDrawnOnItsWords("a single page again");

  run(bridge().configureReadingMode(ConfigureReadingModeRequest{ReadingMode::scrolled}));
  expectDrawnOnItsWords("scrolled");
  run(bridge().configureReadingMode(ConfigureReadingModeRequest{ReadingMode::paginated}));
  expectDrawnOnItsWords("paginated again");

  // A fresh web view opens the same unpacked book; the session gives it its highlights again.
  bridge().onSelectionAvailabilityChanged = nullptr;
  TearDown();
  SetUp();
  openExtracted(extracted());
  const AnnotationRenderResult again = run(bridge().addAnnotation(AnnotationRequest{*annotation}));
  EXPECT_TRUE(again.rendered);
  EXPECT_EQ(again.resolution, "cfi");
  const ReaderPositionResult position = run(bridge().goTo(GoToLocatorRequest{annotation->locator}));
  EXPECT_EQ(position.spineIndex, annotation->locator.spineIndex);
  expectDrawnOnItsWords("reopened");
}

}  // namespace
}  // namespace tomekeeper
