// The real reader runtime page in a real WebKitGTK web view, with books that ask more of the
// layout: obfuscated fonts, right-to-left and vertical writing, fixed-layout pages. These tests
// need a display (label display).
#include <openssl/evp.h>

#include <array>

#include "ReaderRuntimeDisplayFixture.h"

namespace tomekeeper {
namespace {

using namespace std::chrono_literals;
using json = nlohmann::json;
using testing::chapterDocument;

class ReaderRuntimeLayoutDisplayTest : public testing::ReaderRuntimeDisplayTest {
 protected:
  void walkToTheEndAndBack(const std::string& what);
};

// ---- Obfuscated fonts ------------------------------------------------------------------------

constexpr const char* kFontDirectory = "/usr/share/fonts/truetype/dejavu";

std::string readFile(const std::filesystem::path& path) {
  std::ifstream input(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(input)), std::istreambuf_iterator<char>());
}

std::string sha1(const std::string& text) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  EVP_Digest(text.data(), text.size(), digest.data(), &length, EVP_sha1(), nullptr);
  return std::string(reinterpret_cast<const char*>(digest.data()), length);
}

// What a book's producer does to a font: XOR its head with the key.
std::string obfuscated(std::string font, const std::string& key, std::size_t headLength) {
  for (std::size_t index = 0; index < std::min(headLength, font.size()); ++index) {
    font[index] = static_cast<char>(font[index] ^ key[index % key.size()]);
  }
  return font;
}

constexpr const char* kObfuscatedFontPackage = R"(<?xml version="1.0" encoding="UTF-8"?>
<package xmlns="http://www.idpf.org/2007/opf" version="3.0" unique-identifier="id">
  <metadata xmlns:dc="http://purl.org/dc/elements/1.1/">
    <dc:identifier id="isbn">urn:isbn:9780000000002</dc:identifier>
    <dc:identifier id="id">
      urn:uuid:2b0b8c1e-3f43-4a5e-9e55-0c3c1c8f2d10
    </dc:identifier>
    <dc:title>Hidden Faces</dc:title>
    <dc:language>en</dc:language>
    <meta property="dcterms:modified">2025-01-01T00:00:00Z</meta>
  </metadata>
  <manifest>
    <item id="style" href="style/book.css" media-type="text/css"/>
    <item id="one" href="fonts/one.ttf" media-type="font/ttf"/>
    <item id="two" href="fonts/two.ttf" media-type="font/ttf"/>
    <item id="chapter1" href="text/chapter1.xhtml" media-type="application/xhtml+xml"/>
  </manifest>
  <spine><itemref idref="chapter1"/></spine>
</package>
)";

// Two faces: one under each algorithm. Monospace is the fallback, so a face that did not load
// shows as equal widths of "i" and "M".
constexpr const char* kObfuscatedFontStyle = R"(
@font-face { font-family: "Obscured One"; src: url(../fonts/one.ttf) format("truetype"); }
@font-face { font-family: 'Obscured Two'; font-style: normal; src: url("../fonts/two.ttf"); }
body { font-family: "Obscured One", monospace; }
.two { font-family: "Obscured Two", monospace; }
.fallback { font-family: monospace; }
)";

constexpr const char* kObfuscatedFontChapter = R"(<?xml version="1.0" encoding="UTF-8"?>
<html xmlns="http://www.w3.org/1999/xhtml" xml:lang="en"><head><title>Faces</title>
<link rel="stylesheet" type="text/css" href="../style/book.css"/></head>
<body>
<p><span id="one-narrow">iiiiiiiiiiiiiiiiiiii</span></p>
<p><span id="one-wide">MMMMMMMMMMMMMMMMMMMM</span></p>
<p class="two"><span id="two-narrow">iiiiiiiiiiiiiiiiiiii</span></p>
<p class="two"><span id="two-wide">MMMMMMMMMMMMMMMMMMMM</span></p>
<p class="fallback"><span id="fallback-narrow">iiiiiiiiiiiiiiiiiiii</span></p>
<p class="fallback"><span id="fallback-wide">MMMMMMMMMMMMMMMMMMMM</span></p>
</body></html>
)";

std::string obfuscatedFontBook() {
  const std::string uuid = "urn:uuid:2b0b8c1e-3f43-4a5e-9e55-0c3c1c8f2d10";
  const std::string idpfKey = sha1(uuid);
  const std::string adobeKey = {'\x2b', '\x0b', '\x8c', '\x1e', '\x3f', '\x43', '\x4a', '\x5e',
                                '\x9e', '\x55', '\x0c', '\x3c', '\x1c', '\x8f', '\x2d', '\x10'};
  testing::EpubBuilder builder;
  builder.replaceFile(testing::EpubBuilder::kPackageDocumentPath, kObfuscatedFontPackage);
  builder.addFile("OEBPS/style/book.css", kObfuscatedFontStyle);
  builder.addFile("OEBPS/fonts/one.ttf",
                  obfuscated(readFile(std::filesystem::path(kFontDirectory) / "DejaVuSans.ttf"),
                             idpfKey, 1040));
  builder.addFile("OEBPS/fonts/two.ttf",
                  obfuscated(readFile(std::filesystem::path(kFontDirectory) / "DejaVuSerif.ttf"),
                             adobeKey, 1024));
  builder.addFile("OEBPS/text/chapter1.xhtml", kObfuscatedFontChapter);
  builder.withEncryptionXML(R"(<?xml version="1.0" encoding="UTF-8"?>
<encryption xmlns="urn:oasis:names:tc:opendocument:xmlns:container">
  <EncryptedData xmlns="http://www.w3.org/2001/04/xmlenc#">
    <EncryptionMethod Algorithm="http://www.idpf.org/2008/embedding"/>
    <CipherData><CipherReference URI="OEBPS/fonts/one.ttf"/></CipherData>
  </EncryptedData>
  <EncryptedData xmlns="http://www.w3.org/2001/04/xmlenc#">
    <EncryptionMethod Algorithm="http://ns.adobe.com/pdf/enc#RC"/>
    <CipherData><CipherReference URI="OEBPS/fonts/two.ttf"/></CipherData>
  </EncryptedData>
</encryption>
)");
  return builder.build();
}

// Widths of the spans of the section on screen, by id, and the loaded faces of its font set.
constexpr const char* kMeasureSpans = R"(
  const frame = document.querySelector('iframe.section-frame:not(.preparing)');
  const doc = frame.contentDocument;
  const widths = {};
  for (const span of doc.querySelectorAll('span[id]')) widths[span.id] = span.getBoundingClientRect().width;
  const loaded = [...doc.fonts].filter((face) => face.status === 'loaded').map((face) => face.family);
  return { widths, loaded };
)";

TEST_F(ReaderRuntimeLayoutDisplayTest, ObfuscatedFontsOfBothAlgorithmsAreShown) {
  if (!std::filesystem::exists(std::filesystem::path(kFontDirectory) / "DejaVuSans.ttf")) {
    GTEST_SKIP() << "no DejaVu fonts in " << kFontDirectory;
  }
  openBook(obfuscatedFontBook());
  const json measured = evaluate(kMeasureSpans);
  const json& widths = measured["widths"];
  ASSERT_TRUE(widths.contains("one-narrow")) << measured.dump();
  // The fallback is monospace: both runs are as wide.
  EXPECT_NEAR(widths["fallback-narrow"].get<double>(), widths["fallback-wide"].get<double>(), 1.0)
      << measured.dump();
  // The restored faces are proportional: "i" is far narrower than "M".
  EXPECT_LT(widths["one-narrow"].get<double>(), 0.5 * widths["one-wide"].get<double>())
      << measured.dump();
  EXPECT_LT(widths["two-narrow"].get<double>(), 0.5 * widths["two-wide"].get<double>())
      << measured.dump();
  const std::vector<std::string> loaded = measured["loaded"].get<std::vector<std::string>>();
  EXPECT_NE(std::find(loaded.begin(), loaded.end(), "Obscured One"), loaded.end())
      << measured.dump();
  EXPECT_NE(std::find(loaded.begin(), loaded.end(), "Obscured Two"), loaded.end())
      << measured.dump();
  saveScreenshot("obfuscated-fonts");
}

TEST_F(ReaderRuntimeLayoutDisplayTest, TheObfuscatedSampleBookShowsItsOwnFonts) {
  const std::filesystem::path book = testing::sampleCorpusDirectory() / "wasteland-otf-obf.epub";
  if (!std::filesystem::exists(book)) GTEST_SKIP() << "no sample book at " << book;
  openArchive(book);
  const json shown = evaluate(R"(
    const frame = document.querySelector('iframe.section-frame:not(.preparing)');
    const doc = frame.contentDocument;
    const loaded = [...doc.fonts].filter((face) => face.status === 'loaded' && face.family === 'OldStandard');
    return { loaded: loaded.map((face) => face.style + ' ' + face.weight),
             check: doc.fonts.check('16px OldStandard'),
             checkItalic: doc.fonts.check('italic 16px OldStandard') };
  )");
  EXPECT_EQ(shown["loaded"].size(), 3u) << shown.dump();
  EXPECT_EQ(shown["check"], true) << shown.dump();
  EXPECT_EQ(shown["checkItalic"], true) << shown.dump();
  saveScreenshot("wasteland-obfuscated");
}

// ---- Right-to-left and vertical books -------------------------------------------------------

// A sentence of a script, numbered so that every excerpt names one place.
using SentenceMaker = std::function<std::string(int number)>;

std::string arabicSentence(int number) {
  return "مشى حارس الكتب في الممر الطويل رقم " + std::to_string(number) +
         " وعدّ الرفوف واحدا واحدا. ";
}

std::string hebrewSentence(int number) {
  return "שומר הספרים הלך במסדרון הארוך מספר " + std::to_string(number) +
         " וספר את המדפים אחד אחד. ";
}

std::string japaneseSentence(int number) {
  return "本の番人は長い廊下の" + std::to_string(number) + "番を歩き、棚を一つずつ数えた。";
}

std::string scriptSection(int section, const std::string& language, const std::string& direction,
                          const SentenceMaker& sentence, int paragraphs) {
  std::string body;
  body += "<h1 id=\"top\">" + sentence(section * 1000) + "</h1>\n";
  for (int paragraph = 0; paragraph < paragraphs; ++paragraph) {
    std::string text;
    for (int index = 0; index < 5; ++index)
      text += sentence(section * 1000 + paragraph * 10 + index);
    body += "<p id=\"s" + std::to_string(section) + "p" + std::to_string(paragraph) + "\">" + text +
            "</p>\n";
  }
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<html xmlns=\"http://www.w3.org/1999/xhtml\" xml:lang=\"" +
         language + "\" lang=\"" + language + "\" dir=\"" + direction + "\"><head><title>Section " +
         std::to_string(section) +
         "</title><link rel=\"stylesheet\" type=\"text/css\" href=\"book.css\"/></head>\n<body>\n" +
         body + "</body></html>\n";
}

std::string englishSentence(int number) {
  return "The keeper of tomes walked the long corridor number " + std::to_string(number) +
         " and counted the shelves one by one. ";
}

// A book of three sections in the given scripts and writing mode, read from right to left unless
// `progression` says otherwise.
std::string directionalBook(const std::string& language, const std::string& style,
                            const std::vector<SentenceMaker>& sentences, int paragraphs,
                            const std::string& progression = "rtl") {
  testing::PackageDescription package{
      .identifier = "urn:uuid:5d1f2c3b-1a2b-4c3d-8e4f-5a6b7c8d9e0f",
      .title = "Directions",
      .language = language,
      .spineAttributes = "page-progression-direction=\"" + progression + "\""};
  package.manifest.push_back({"style", "book.css", "text/css"});
  testing::EpubBuilder builder;
  for (std::size_t index = 0; index < sentences.size(); ++index) {
    const std::string name = "section" + std::to_string(index + 1);
    package.manifest.push_back({name, name + ".xhtml"});
    package.spine.push_back(name);
    builder.addFile("OEBPS/" + name + ".xhtml",
                    scriptSection(static_cast<int>(index + 1), language,
                                  language == "ar" ? "rtl" : "ltr", sentences[index], paragraphs));
  }
  builder.withPackageDocument(package);
  builder.addFile("OEBPS/book.css", style);
  return builder.build();
}

std::string rightToLeftBook() {
  return directionalBook("ar", "body { line-height: 1.6; }\n",
                         {arabicSentence, hebrewSentence, arabicSentence}, 24);
}

std::string leftToRightBook() {
  return directionalBook("en", "body { line-height: 1.5; }\n",
                         {englishSentence, englishSentence, englishSentence}, 24, "ltr");
}

std::string verticalBook() {
  return directionalBook(
      "ja",
      "html, body { writing-mode: vertical-rl; -epub-writing-mode: vertical-rl; }\n"
      "body { line-height: 1.7; }\n",
      {japaneseSentence, japaneseSentence, japaneseSentence}, 30);
}

// Pages through the open book to its end and back, and at every page checks that what the
// locator names is on screen and that going to the locator stays on that page with that locator.
void ReaderRuntimeLayoutDisplayTest::walkToTheEndAndBack(const std::string& what) {
  std::vector<std::pair<std::int64_t, std::int64_t>> forward{{0, 1}};
  const auto keepsItsPlace = [&](const ReaderPositionResult& position) {
    const Locator here = run(bridge().currentLocator());
    ASSERT_TRUE(here.excerpt) << what << " at " << position.spineIndex << ":" << position.page;
    EXPECT_TRUE(isTextOnScreen(*here.excerpt))
        << what << ": \"" << here.excerpt->exact << "\" is not on screen at " << position.spineIndex
        << ":" << position.page;
    const ReaderPositionResult back = run(bridge().goTo(GoToLocatorRequest{here}));
    EXPECT_EQ(back.spineIndex, position.spineIndex) << what;
    EXPECT_EQ(back.page, position.page) << what << " at " << json(here).dump();
    EXPECT_EQ(back.locatorResolution, "cfi") << what;
    Locator again = run(bridge().currentLocator());
    again.totalProgression = here.totalProgression;
    EXPECT_EQ(again, here) << what;
  };
  keepsItsPlace(ReaderPositionResult{0, 1, 1, true, false, std::nullopt});
  std::optional<ReaderPositionResult> end;
  for (int turn = 0; turn < 200 && !end; ++turn) {
    const ReaderPositionResult position = run(bridge().next());
    forward.emplace_back(position.spineIndex, position.page);
    keepsItsPlace(position);
    if (position.atEnd) end = position;
  }
  ASSERT_TRUE(end) << what << ": no end within 200 pages";
  EXPECT_EQ(end->spineIndex, 2) << what;
  EXPECT_EQ(end->page, end->pageCount) << what;
  EXPECT_GT(forward.size(), 6u) << what << ": each section should take more than one page";
  for (std::size_t step = 1; step < forward.size(); ++step) {
    EXPECT_LT(forward[step - 1], forward[step]) << what << ", step " << step;
  }
  std::vector<std::pair<std::int64_t, std::int64_t>> backward{{end->spineIndex, end->page}};
  for (int turn = 0; turn < 200; ++turn) {
    const ReaderPositionResult position = run(bridge().previous());
    backward.emplace_back(position.spineIndex, position.page);
    if (position.atStart) break;
  }
  std::reverse(backward.begin(), backward.end());
  EXPECT_EQ(backward, forward) << what;
}

// A right-to-left and a vertical book, each paged to its end and back without drift, then kept
// in place through larger type and two pages a spread from the middle of the book.
struct DirectionalCase {
  const char* name;
  std::string (*book)();
  const char* writingMode;
};

void PrintTo(const DirectionalCase& directional, std::ostream* stream) {
  *stream << directional.name;
}

class DirectionalBookDisplayTest : public ReaderRuntimeLayoutDisplayTest,
                                   public ::testing::WithParamInterface<DirectionalCase> {};

TEST_P(DirectionalBookDisplayTest, PagesToItsEndAndBackAndKeepsItsPlaceThroughPresentationChanges) {
  const std::string what = GetParam().name;
  openBook(GetParam().book());
  const json writing = evaluate(R"(
    const frame = document.querySelector('iframe.section-frame:not(.preparing)');
    return frame.contentWindow.getComputedStyle(frame.contentDocument.body).writingMode;
  )");
  EXPECT_EQ(writing, GetParam().writingMode);
  saveScreenshot(what);
  walkToTheEndAndBack(what);

  run(bridge().nextSection());
  run(bridge().next());
  ASSERT_EQ(run(bridge().next()).page, 3);
  const Locator before = run(bridge().currentLocator());
  ConfigureTypographyRequest typography;
  typography.fontScale.mode = ResolvedTypographyFontScale::Mode::value;
  typography.fontScale.value = 1.4;
  run(bridge().configureTypography(typography));
  expectStillShown(before, what + ", font scale 1.4");
  const Locator larger = run(bridge().currentLocator());
  run(bridge().configurePageLayout(ConfigurePageLayoutRequest{PageLayout::doublePage}));
  expectStillShown(larger, what + ", double page");
}

INSTANTIATE_TEST_SUITE_P(
    Books, DirectionalBookDisplayTest,
    ::testing::Values(DirectionalCase{"RightToLeft", rightToLeftBook, "horizontal-tb"},
                      DirectionalCase{"Vertical", verticalBook, "vertical-rl"}),
    [](const ::testing::TestParamInfo<DirectionalCase>& info) {
      return std::string(info.param.name);
    });

TEST_F(ReaderRuntimeLayoutDisplayTest, AVerticalBookScrollsSidewaysAndKeepsItsPlace) {
  const Locator before = standInTheMiddleOfTheBook(verticalBook());
  const ConfigureReadingModeResult result =
      run(bridge().configureReadingMode(ConfigureReadingModeRequest{ReadingMode::scrolled}));
  EXPECT_EQ(result.effectiveMode, ReadingMode::scrolled);
  EXPECT_EQ(result.computedContainerOverflow, "auto hidden");
  expectStillShown(before, "vertical, scrolled");
  saveScreenshot("vertical-scrolled");
  // Forward is to the left, and back again to the same place.
  const ReaderPositionResult forward = run(bridge().next());
  const Locator further = run(bridge().currentLocator());
  EXPECT_NE(further.cfi, before.cfi);
  ASSERT_TRUE(further.excerpt);
  EXPECT_TRUE(isTextOnScreen(*further.excerpt));
  const ReaderPositionResult back = run(bridge().goTo(GoToLocatorRequest{further}));
  EXPECT_EQ(back.page, forward.page);
  // And back to pages, from where the scrolled view stands.
  run(bridge().configureReadingMode(ConfigureReadingModeRequest{ReadingMode::paginated}));
  expectStillShown(further, "vertical, paginated again");
}

// A sentence with a smaller-set aside: in vertical text, where a line starts in the aside, the
// characters of that line do not all end at one edge.
std::string japaneseSentenceWithAside(int number) {
  return "わたしは" + std::to_string(number) +
         "番の本<span style=\"font-size: 70%\">（東民のエッセイ集『市長随筆』）</span>"
         "によって教えられたと鎌田はいう。";
}

// At every screen of a book scrolled sideways, larger type and back leave the screen's place.
TEST_F(ReaderRuntimeLayoutDisplayTest,
       EveryScreenOfASidewaysScrolledBookKeepsItsPlaceThroughRelayout) {
  openBook(directionalBook(
      "ja", "html, body { writing-mode: vertical-rl; }\nbody { line-height: 1.7; }\n",
      {japaneseSentenceWithAside}, 16));
  run(bridge().configureReadingMode(ConfigureReadingModeRequest{ReadingMode::scrolled}));
  ConfigureTypographyRequest typography;
  typography.fontScale = {ResolvedTypographyFontScale::Mode::value, 1.0};
  int screens = 0;
  for (bool atEnd = false; !atEnd && screens < 60; ++screens) {
    const Locator here = run(bridge().currentLocator());
    ASSERT_TRUE(here.cfi) << "screen " << screens;
    for (const double scale : {1.21, 1.0}) {
      typography.fontScale.value = scale;
      run(bridge().configureTypography(typography));
    }
    EXPECT_EQ(run(bridge().currentLocator()).cfi, here.cfi) << "screen " << screens;
    atEnd = run(bridge().next()).atEnd;
  }
  EXPECT_GT(screens, 4);
}

// ---- Fixed-layout books ----------------------------------------------------------------------

std::string fixedLayoutPage(int number) {
  return R"(<?xml version="1.0" encoding="UTF-8"?>
<html xmlns="http://www.w3.org/1999/xhtml" xml:lang="en"><head><title>Page</title>
<meta name="viewport" content="width=600, height=800"/>
<style>html, body { margin: 0; width: 600px; height: 800px; }
#sheet { width: 600px; height: 800px; background: rgb(200, 220, 255); overflow: hidden; }</style></head>
<body><div id="sheet"><p id="words">Page )" +
         std::to_string(number) + R"( of a book laid out by hand.</p></div></body></html>
)";
}

std::string fixedLayoutBook() {
  testing::PackageDescription package{
      .identifier = "urn:uuid:0f1e2d3c-4b5a-4968-8776-a5b4c3d2e1f0",
      .title = "Pages by Hand",
      .packageAttributes = "prefix=\"rendition: http://www.idpf.org/vocab/rendition/#\"",
      .extraMetadata = "    <meta property=\"rendition:layout\">pre-paginated</meta>\n",
      .manifest = {{"page1", "page1.xhtml"}, {"page2", "page2.xhtml"}},
      .spine = {"page1", "page2"}};
  testing::EpubBuilder builder;
  builder.withPackageDocument(package);
  builder.addFile("OEBPS/page1.xhtml", fixedLayoutPage(1));
  builder.addFile("OEBPS/page2.xhtml", fixedLayoutPage(2));
  return builder.build();
}

TEST_F(ReaderRuntimeLayoutDisplayTest, AFixedLayoutPageIsScaledToFitTheView) {
  openBook(fixedLayoutBook());
  for (int page = 1; page <= 2; ++page) {
    SCOPED_TRACE("page " + std::to_string(page));
    const json placed = evaluate(R"(
      const frame = document.querySelector('iframe.section-frame:not(.preparing)');
      const sheet = frame.getBoundingClientRect();
      const view = document.getElementById('reader-viewport').getBoundingClientRect();
      return { sheet: [sheet.left, sheet.top, sheet.width, sheet.height],
               view: [view.left, view.top, view.width, view.height],
               words: frame.contentDocument.getElementById('words').textContent };
    )");
    const double left = placed["sheet"][0], top = placed["sheet"][1];
    const double width = placed["sheet"][2], height = placed["sheet"][3];
    const double viewLeft = placed["view"][0], viewTop = placed["view"][1];
    const double viewWidth = placed["view"][2], viewHeight = placed["view"][3];
    EXPECT_EQ(placed["words"], "Page " + std::to_string(page) + " of a book laid out by hand.");
    // The whole page is inside the view, keeps its proportions, and fills the tighter side.
    EXPECT_GE(left, viewLeft - 1) << placed.dump();
    EXPECT_GE(top, viewTop - 1) << placed.dump();
    EXPECT_LE(left + width, viewLeft + viewWidth + 1) << placed.dump();
    EXPECT_LE(top + height, viewTop + viewHeight + 1) << placed.dump();
    EXPECT_NEAR(width / height, 600.0 / 800.0, 0.01) << placed.dump();
    EXPECT_NEAR(std::max(width / viewWidth, height / viewHeight), 1.0, 0.02) << placed.dump();
    // And it stands in the middle.
    EXPECT_NEAR(left + width / 2, viewLeft + viewWidth / 2, 2.0) << placed.dump();
    EXPECT_NEAR(top + height / 2, viewTop + viewHeight / 2, 2.0) << placed.dump();
    if (page == 1) {
      saveScreenshot("fixed-layout");
      const ReaderPositionResult position = run(bridge().next());
      EXPECT_EQ(position.spineIndex, 1);
      EXPECT_EQ(position.pageCount, 1);
      EXPECT_TRUE(position.atEnd);
    }
  }
}

// The page keeps the mode asked for: a fixed-layout book shows pages, and the next book opened in
// the same page scrolls again without being asked twice.
TEST_F(ReaderRuntimeLayoutDisplayTest, AFixedLayoutBookLeavesTheScrolledModeToTheNextBook) {
  openBook(fixedLayoutBook());
  EXPECT_EQ(run(bridge().configureReadingMode(ConfigureReadingModeRequest{ReadingMode::scrolled}))
                .effectiveMode,
            ReadingMode::paginated);
  openBook(leftToRightBook(), RuntimePage::keep);
  EXPECT_EQ(evaluate(R"(
    const frame = document.querySelector('iframe.section-frame:not(.preparing)');
    return frame.offsetHeight > document.getElementById('reader-viewport').clientHeight;
  )"),
            true);
}

// ---- Manifest fallbacks ------------------------------------------------------------------------

std::string fallbackPage(const std::string& words, const std::string& body = "") {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<html xmlns=\"http://www.w3.org/1999/xhtml\">"
         "<head><title>Page</title></head><body><p>" +
         words + "</p>" + body + "</body></html>\n";
}

// A spine of a JSON item and an XML item that fall back to XHTML pages, a JSON item without a
// fallback, and a page whose image is of a type no browser draws, with an SVG fallback.
std::string fallbackBook() {
  testing::EpubBuilder builder;
  builder.replaceFile(testing::EpubBuilder::kPackageDocumentPath,
                      R"(<?xml version="1.0" encoding="UTF-8"?>
<package xmlns="http://www.idpf.org/2007/opf" version="3.0" unique-identifier="id">
  <metadata xmlns:dc="http://purl.org/dc/elements/1.1/">
    <dc:identifier id="id">urn:uuid:1f0e2d3c-4b5a-4968-8776-a5b4c3d2e1f9</dc:identifier>
    <dc:title>Fallbacks</dc:title><dc:language>en</dc:language>
    <meta property="dcterms:modified">2025-01-01T00:00:00Z</meta>
  </metadata>
  <manifest>
    <item id="data" href="data.json" media-type="application/json" fallback="one"/>
    <item id="dtc" href="book.dtc" media-type="application/dtc+xml" fallback="two"/>
    <item id="lost" href="lost.json" media-type="application/json"/>
    <item id="one" href="one.xhtml" media-type="application/xhtml+xml"/>
    <item id="two" href="two.xhtml" media-type="application/xhtml+xml"/>
    <item id="three" href="three.xhtml" media-type="application/xhtml+xml"/>
    <item id="photo" href="photo.tiff" media-type="image/tiff" fallback="drawing"/>
    <item id="drawing" href="drawing.svg" media-type="image/svg+xml"/>
  </manifest>
  <spine><itemref idref="data"/><itemref idref="dtc"/><itemref idref="lost"/><itemref idref="three"/></spine>
</package>
)");
  builder.addFile("OEBPS/data.json", R"({"words": "Test fails."})");
  builder.addFile("OEBPS/book.dtc", "<?xml version=\"1.0\"?><dtbook><p>Test fails.</p></dtbook>");
  builder.addFile("OEBPS/lost.json", "{}");
  builder.addFile("OEBPS/one.xhtml", fallbackPage("The first fallback page shows."));
  builder.addFile("OEBPS/two.xhtml", fallbackPage("The second fallback page shows."));
  builder.addFile("OEBPS/three.xhtml",
                  fallbackPage("The drawing stands below.",
                               "<p><img id=\"photo\" src=\"photo.tiff\" alt=\"A photo\"/></p>"));
  builder.addFile("OEBPS/photo.tiff", "II*\0not really a picture");
  builder.addFile(
      "OEBPS/drawing.svg",
      "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"40\" height=\"30\"><rect width=\"40\" "
      "height=\"30\" fill=\"teal\"/></svg>");
  return builder.build();
}

TEST_F(ReaderRuntimeLayoutDisplayTest, ItemsOfAForeignTypeShowTheirManifestFallbacks) {
  const OpenPublicationResult opened = openBook(fallbackBook());
  // The JSON item without a fallback is left out; the others show their fallback pages.
  EXPECT_EQ(opened.spineItemCount, 3);
  EXPECT_TRUE(isTextOnScreen(TextContext{"The first fallback page shows.", {}, {}}));
  EXPECT_FALSE(isTextOnScreen(TextContext{"Test fails.", {}, {}}));
  run(bridge().nextSection());
  EXPECT_TRUE(isTextOnScreen(TextContext{"The second fallback page shows.", {}, {}}));
  run(bridge().nextSection());
  EXPECT_EQ(evaluate(R"(
    const frame = document.querySelector('iframe.section-frame:not(.preparing)');
    const image = frame.contentDocument.getElementById('photo');
    await image.decode().catch(() => undefined);
    return { source: image.getAttribute('src').replace(/.*\//, ''), width: image.naturalWidth };
  )"),
            (json{{"source", "drawing.svg"}, {"width", 40}}));
}

// ---- Audio
// ---------------------------------------------------------------------------------------

// The web view's media engine reads no scheme of the application's: the runtime gives the
// section's audio a blob of its file, whose length the engine then reads.
TEST_F(ReaderRuntimeLayoutDisplayTest, ASectionsAudioIsReadableByTheMediaEngine) {
  const std::string song = testing::generatedSong(directory_ / "song.ogg");
  ASSERT_FALSE(song.empty()) << "gst-launch-1.0 is needed (tools/dependencies.txt)";
  testing::PackageDescription package;
  package.withChapters(1);
  package.manifest.emplace_back("song", "media/song.ogg", "audio/ogg");
  testing::EpubBuilder book;
  book.withPackageDocument(package)
      .replaceFile("OEBPS/chapter1.xhtml",
                   fallbackPage("A song follows.",
                                "<p><audio id=\"song\" controls=\"controls\" "
                                "src=\"media/song.ogg\"/></p>"))
      .addFile("OEBPS/media/song.ogg", song);
  openBook(book.build());
  json state;
  EXPECT_TRUE(testing::iterateUntil(
      [&] {
        state = evaluate(R"(
          const frame = document.querySelector('iframe.section-frame:not(.preparing)');
          const song = frame.contentDocument.getElementById('song');
          return { blob: song.getAttribute('src').startsWith('blob:'), ready: song.readyState,
                   duration: song.duration || 0, error: song.error ? song.error.code : 0 };
        )");
        // The element first fails on the address the book wrote, before the runtime has
        // read the file and given it a blob: only an outcome with the blob counts.
        return state["blob"] == true && (state["error"] != 0 || state["ready"].get<int>() >= 1);
      },
      20s))
      << state.dump();
  EXPECT_EQ(state["blob"], true) << state.dump();
  EXPECT_EQ(state["error"], 0) << state.dump();
  EXPECT_GT(state["duration"].get<double>(), 5.0) << state.dump();
}

// Scrolled, the view ends where the section shown ends while the next, taller one is prepared
// beside it: a place near a section's end is shown where a reopen, without that neighbour, shows
// it too.
TEST_F(ReaderRuntimeLayoutDisplayTest, AScrolledSectionEndsTheScrollRangeBeforeATallerNeighbour) {
  testing::PackageDescription package{.identifier = "urn:uuid:3c0e6a1d-7b2f-4e8a-9d1c-2f5b6a7c8d9e",
                                      .title = "Short and long"};
  package.manifest.push_back({"style", "book.css", "text/css"});
  testing::EpubBuilder builder;
  for (const auto& [name, paragraphs] : {std::pair{"section1", 6}, std::pair{"section2", 60}}) {
    package.manifest.push_back({name, std::string(name) + ".xhtml"});
    package.spine.push_back(name);
    builder.addFile(std::string("OEBPS/") + name + ".xhtml",
                    scriptSection(static_cast<int>(package.spine.size()), "en", "ltr",
                                  englishSentence, paragraphs));
  }
  builder.withPackageDocument(package);
  builder.addFile("OEBPS/book.css", "body { line-height: 1.5; }\n");
  openBook(builder.build());
  run(bridge().configureReadingMode(ConfigureReadingModeRequest{ReadingMode::scrolled}));
  run(bridge().goTo(GoToRequest{"section1.xhtml"}));
  json extent;
  ASSERT_TRUE(testing::iterateUntil(
      [&] {
        extent = evaluate(R"(
          const viewport = document.getElementById('reader-viewport');
          const style = getComputedStyle(viewport);
          const shown = document.querySelector('iframe.section-frame:not(.preparing)');
          const next = document.querySelector('iframe.section-frame.preparing');
          return { scroll: viewport.scrollHeight, shown: shown.offsetHeight,
                   next: next ? next.offsetHeight : 0,
                   padding: parseFloat(style.paddingTop) + parseFloat(style.paddingBottom) };
        )");
        return extent["next"].get<double>() > extent["shown"].get<double>();
      },
      10s))
      << extent.dump();
  EXPECT_LE(extent["scroll"].get<double>(),
            extent["shown"].get<double>() + extent["padding"].get<double>() + 1)
      << extent.dump();
}

// ---- The reader's place through relayouts ---------------------------------------------------

struct RelayoutCase {
  const char* name;
  std::string (*book)();
};

void PrintTo(const RelayoutCase& relayoutCase, std::ostream* stream) {
  *stream << relayoutCase.name;
}

class ReaderPlaceDisplayTest : public testing::ReaderRuntimeDisplayTest,
                               public ::testing::WithParamInterface<RelayoutCase> {};

// Text size up twice and down twice, as with Ctrl+plus and Ctrl+minus, after a few pages, in
// pages and then scrolled: the place told to the native side (the one it saves) and the place
// shown are those from before, and going to the told place, as a reopen does, shows the same page.
TEST_P(ReaderPlaceDisplayTest, SizeChangesThatEndWhereTheyBeganKeepThePlace) {
  openBook(GetParam().book());
  for (const ReadingMode mode : {ReadingMode::paginated, ReadingMode::scrolled}) {
    SCOPED_TRACE(mode == ReadingMode::paginated ? "paginated" : "scrolled");
    ConfigureTypographyRequest typography;
    typography.fontScale = {ResolvedTypographyFontScale::Mode::value, 1.0};
    run(bridge().configureTypography(typography));
    run(bridge().configureReadingMode(ConfigureReadingModeRequest{mode}));
    run(bridge().goTo(GoToRequest{"section1.xhtml"}));
    run(bridge().nextSection());
    for (int turn = 0; turn < 4; ++turn) run(bridge().next());
    const Locator before = run(bridge().currentLocator());
    ASSERT_TRUE(before.cfi);

    std::optional<Locator> told;
    bridge().onLocatorChanged = [&](Locator locator) { told = std::move(locator); };
    for (const double scale : {1.1, 1.21, 1.1, 1.0}) {
      typography.fontScale.value = scale;
      run(bridge().configureTypography(typography));
      ASSERT_TRUE(told) << "no place told after scale " << scale;
      EXPECT_EQ(told->cfi, before.cfi) << "told after scale " << scale;
    }
    bridge().onLocatorChanged = nullptr;
    EXPECT_EQ(run(bridge().currentLocator()).cfi, before.cfi) << "shown";

    run(bridge().nextSection());
    run(bridge().goTo(GoToLocatorRequest{*told}));
    EXPECT_EQ(run(bridge().currentLocator()).cfi, before.cfi) << "shown after going back";
  }
}

INSTANTIATE_TEST_SUITE_P(Books, ReaderPlaceDisplayTest,
                         ::testing::Values(RelayoutCase{"LeftToRight", leftToRightBook},
                                           RelayoutCase{"RightToLeft", rightToLeftBook},
                                           RelayoutCase{"Vertical", verticalBook}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace tomekeeper
