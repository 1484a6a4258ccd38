#include "runtime/PublicationSafetyScan.h"

#include <gtest/gtest.h>

#include <fstream>

#include "support/TemporaryDirectory.h"

namespace tomekeeper {

// Reports print by their counts in failure messages.
void PrintTo(const PublicationSafetyReport& report, std::ostream* stream);
void PrintTo(const PublicationSafetyReport& report, std::ostream* stream) {
  *stream << "{script " << report.scriptElements << ", events " << report.eventHandlerAttributes
          << ", javascript " << report.javascriptURLs << ", web " << report.webReferences
          << ", forms " << report.forms << ", refresh " << report.metaRefreshes << ", frames "
          << report.frames << ", objects " << report.objectsAndEmbeds << ", unreadable "
          << report.unreadableDocuments << ", links " << report.webLinks << ", addresses";
  for (const std::string& address : report.webAddresses) *stream << " " << address;
  *stream << "}";
}

namespace {

enum class Source { document, styleSheet };

struct ScanCase {
  const char* name;
  Source source;
  const char* text;
  PublicationSafetyReport expected;
};

std::string page(const std::string& body) {
  return "<html xmlns=\"http://www.w3.org/1999/xhtml\"><head><title>t</title></head><body>" + body +
         "</body></html>";
}

// A fragment is put in a page's body; a whole document (or an SVG one) is taken as it is.
bool isWholeDocument(std::string_view text) {
  return text.starts_with("<html") || text.starts_with("<svg") || text.starts_with("<!");
}

class PublicationSafetyScanTest : public ::testing::TestWithParam<ScanCase> {};

TEST_P(PublicationSafetyScanTest, CountsEachAttempt) {
  PublicationSafetyReport report;
  const std::string text =
      GetParam().source == Source::document && !isWholeDocument(GetParam().text)
          ? page(GetParam().text)
          : GetParam().text;
  if (GetParam().source == Source::document) {
    scanPublicationDocument(text, report);
  } else {
    scanPublicationStyleSheet(text, report);
  }
  EXPECT_EQ(report, GetParam().expected) << text;
}

using Report = PublicationSafetyReport;
constexpr auto kDocument = Source::document;
constexpr auto kStyleSheet = Source::styleSheet;

INSTANTIATE_TEST_SUITE_P(
    Attempts, PublicationSafetyScanTest,
    ::testing::Values(
        ScanCase{"PlainText", kDocument, "<p>Call me Ishmael.</p><a href=\"c2.xhtml\">on</a>", {}},
        ScanCase{"Script", kDocument, "<script>x()</script>", Report{.scriptElements = 1}},
        ScanCase{"SVGScript", kDocument,
                 "<svg xmlns=\"http://www.w3.org/2000/svg\"><script>x()</script></svg>",
                 Report{.scriptElements = 1}},
        ScanCase{"EventAttributes", kDocument, "<p onclick=\"x()\" ONLOAD=\"y()\">a</p>",
                 Report{.eventHandlerAttributes = 2}},
        ScanCase{"JavascriptAddress", kDocument, "<a href=\" JavaScript:x()\">a</a>",
                 Report{.javascriptURLs = 1}},
        ScanCase{"LinkOutIsNoAttempt", kDocument,
                 "<a href=\"https://example.org/\">a</a><svg "
                 "xmlns=\"http://www.w3.org/2000/svg\"><a href=\"http://example.org/\"/></svg>",
                 Report{.webLinks = 2}},
        ScanCase{"WebImage", kDocument, "<img src=\"https://example.org/a.png\" alt=\"\"/>",
                 Report{.webReferences = 1, .webAddresses = {"https://example.org/a.png"}}},
        ScanCase{
            "SourceSet", kDocument,
            "<img src=\"a.png\" srcset=\"http://w.example/1 1x, b.png 2x, //w.example/3 3x\" "
            "alt=\"\"/>",
            Report{.webReferences = 2, .webAddresses = {"//w.example/3", "http://w.example/1"}}},
        ScanCase{"PosterAndData", kDocument,
                 "<video poster=\"http://w.example/p\"></video><object data=\"http://w.example/o\">"
                 "</object>",
                 Report{.webReferences = 2,
                        .objectsAndEmbeds = 1,
                        .webAddresses = {"http://w.example/o", "http://w.example/p"}}},
        ScanCase{"FormFrameEmbed", kDocument,
                 "<form action=\"c.xhtml\"></form><iframe src=\"c.xhtml\"></iframe><embed "
                 "src=\"a.svg\"/>",
                 Report{.forms = 1, .frames = 1, .objectsAndEmbeds = 1}},
        ScanCase{"MetaRefresh", kDocument,
                 "<html xmlns=\"http://www.w3.org/1999/xhtml\"><head><meta http-equiv=\"Refresh\" "
                 "content=\"0\"/></head><body/></html>",
                 Report{.metaRefreshes = 1}},
        ScanCase{"StyleElementAndAttribute", kDocument,
                 "<html xmlns=\"http://www.w3.org/1999/xhtml\"><head><style>@import "
                 "\"https://w.example/i.css\";</style></head><body><p style=\"background: "
                 "url( 'http://w.example/b.png' )\">a</p></body></html>",
                 Report{.webReferences = 2,
                        .webAddresses = {"http://w.example/b.png", "https://w.example/i.css"}}},
        ScanCase{"NotWellFormed", kDocument, "<html><body><p>a<script>x()</body>",
                 Report{.unreadableDocuments = 1}},
        ScanCase{"DeclaresAnEntity", kDocument,
                 "<!DOCTYPE html [<!ENTITY e \"<script>x()</script>\">]><html>&e;</html>",
                 Report{.unreadableDocuments = 1}},
        ScanCase{"ExternalDoctypeAndEntity",
                 kDocument,
                 "<!DOCTYPE html PUBLIC \"-//W3C//DTD XHTML 1.1//EN\" "
                 "\"http://www.w3.org/TR/xhtml11/DTD/xhtml11.dtd\"><html "
                 "xmlns=\"http://www.w3.org/1999/xhtml\"><body><p>a&nbsp;b</p></body></html>",
                 {}},
        ScanCase{"SheetURLs", kStyleSheet,
                 "@font-face { src: url(\"https://w.example/f.woff\"); } p { background: "
                 "url(local.png) } @import url(http://w.example/i.css);",
                 Report{.webReferences = 2,
                        .webAddresses = {"http://w.example/i.css", "https://w.example/f.woff"}}},
        ScanCase{"SheetImportString", kStyleSheet, "@IMPORT 'http://w.example/i.css';",
                 Report{.webReferences = 1, .webAddresses = {"http://w.example/i.css"}}}),
    [](const ::testing::TestParamInfo<ScanCase>& info) { return info.param.name; });

TEST(PublicationSafetyScanTreeTest, ReadsDocumentsAndSheetsByTypeAndNothingElse) {
  testing::TemporaryDirectory directory;
  const auto write = [&](const std::string& name, const std::string& text) {
    std::filesystem::create_directories((directory / name).parent_path());
    std::ofstream(directory / name, std::ios::binary) << text;
  };
  write("OEBPS/a.xhtml", page("<script>x()</script>"));
  write("OEBPS/b.svg", "<svg xmlns=\"http://www.w3.org/2000/svg\" onload=\"x()\"/>");
  write("OEBPS/c.css", "p { background: url(http://w.example/b.png) }");
  write("OEBPS/d.js", "<script>not a document of the book</script>");
  write("OEBPS/content.opf", "<package><script/></package>");
  const PublicationSafetyReport report = scanPublicationSafety(directory.path());
  EXPECT_EQ(report, (PublicationSafetyReport{.scriptElements = 1,
                                             .eventHandlerAttributes = 1,
                                             .webReferences = 1,
                                             .webAddresses = {"http://w.example/b.png"}}));
}

}  // namespace
}  // namespace tomekeeper
