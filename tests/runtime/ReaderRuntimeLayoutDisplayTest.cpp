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

class ReaderRuntimeLayoutDisplayTest : public testing::ReaderRuntimeDisplayTest {};

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

}  // namespace
}  // namespace tomekeeper
