#include "runtime/PublicationSafetyScan.h"

#include <gtest/gtest.h>

#include <fstream>

#include "intake/EPUBArchiveExtractor.h"
#include "intake/EPUBArchiveInspector.h"
#include "support/EpubBuilder.h"
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
  *stream << ", unlisted " << report.unlistedReferences << ":";
  for (const std::string& path : report.unlistedPaths) *stream << " " << path;
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
  // Without a container there is no manifest, so the unlisted e.png is not counted.
  write("OEBPS/a.xhtml", page("<script>x()</script><img src=\"e.png\" alt=\"\"/>"));
  write("OEBPS/e.png", "png");
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

struct UnlistedCase {
  const char* name;
  const char* chapterBody;  // of OEBPS/text/c.xhtml
  const char* styleSheet;   // OEBPS/styles/book.css
  std::size_t expectedCount;
  std::set<std::string> expectedPaths;
};

// One book per case: its manifest lists the chapter, the sheet and images/listed.png; the
// archive also holds images/unlisted.png and images/hidden.png.
class PublicationSafetyScanUnlistedTest : public ::testing::TestWithParam<UnlistedCase> {};

TEST_P(PublicationSafetyScanUnlistedTest, CountsReferencesToFilesTheManifestLeavesOut) {
  testing::PackageDescription package;
  package.manifest = {{"c", "text/c.xhtml"},
                      {"listed", "images/listed.png", "image/png"},
                      {"sheet", "styles/book.css", "text/css"}};
  package.spine = {"c"};
  testing::EpubBuilder book;
  book.withPackageDocument(package)
      .addFile("OEBPS/text/c.xhtml",
               "<html xmlns=\"http://www.w3.org/1999/xhtml\" "
               "xmlns:xlink=\"http://www.w3.org/1999/xlink\"><head><title>t</title></head><body>" +
                   std::string(GetParam().chapterBody) + "</body></html>")
      .addFile("OEBPS/styles/book.css", GetParam().styleSheet)
      .addFile("OEBPS/images/listed.png", "png")
      .addFile("OEBPS/images/unlisted.png", "png")
      .addFile("OEBPS/images/hidden.png", "png");
  testing::TemporaryDirectory directory;
  const std::filesystem::path archive = directory / "book.epub";
  book.writeTo(archive);
  const EPUBArchiveInspection inspection = EPUBArchiveInspector().inspectBlocking(archive);
  const std::filesystem::path root =
      EPUBArchiveExtractor().extract(archive, inspection, directory / "Extracted").rootURL;

  const PublicationSafetyReport report = scanPublicationSafety(root);
  EXPECT_EQ(report.unlistedReferences, GetParam().expectedCount);
  EXPECT_EQ(report.unlistedPaths, GetParam().expectedPaths);
}

INSTANTIATE_TEST_SUITE_P(
    References, PublicationSafetyScanUnlistedTest,
    ::testing::Values(
        UnlistedCase{
            "ListedImage",
            "<img src=\"../images/listed.png\" alt=\"\"/><img src=\"../IMAGES/Listed.png\" "
            "alt=\"\"/><svg xmlns=\"http://www.w3.org/2000/svg\"><use href=\"#i\"/></svg>"
            "<img src=\"data:image/png;base64,AA==\" alt=\"\"/>",
            "",
            0,
            {}},
        UnlistedCase{"UnlistedImage",
                     "<img src=\" ../images/unlisted.png?v=1#top \" alt=\"\"/>",
                     "",
                     1,
                     {"OEBPS/images/unlisted.png"}},
        UnlistedCase{"RootedAndClimbingPathsToListedFiles",
                     "<img src=\"/OEBPS/images/listed.png\" alt=\"\"/><img "
                     "src=\"../../../../OEBPS/images/listed.png\" alt=\"\"/>",
                     "@import \"/OEBPS/styles/book.css\";",
                     0,
                     {}},
        UnlistedCase{"RootedAndClimbingPathsToUnlistedFiles",
                     "<img src=\"/OEBPS/images/unlisted.png\" alt=\"\"/>",
                     "p { background: url(../../../OEBPS/images/hidden.png) }",
                     2,
                     {"OEBPS/images/hidden.png", "OEBPS/images/unlisted.png"}},
        UnlistedCase{
            "EveryLoadingAttribute",
            "<img src=\"../images/listed.png\" srcset=\"../images/hidden.png 2x\" alt=\"\"/>"
            "<video poster=\"../images/unlisted.png\"></video>"
            "<object data=\"../images/unlisted.png\"></object>"
            "<svg xmlns=\"http://www.w3.org/2000/svg\"><image "
            "xlink:href=\"../images/hidden.png\"/></svg>"
            "<p style=\"background: url('../images/unlisted.png')\">a</p>",
            "",
            5,
            {"OEBPS/images/hidden.png", "OEBPS/images/unlisted.png"}},
        UnlistedCase{"UnlistedSheetURL",
                     "",
                     "p { background: url(\"../images/unlisted.png\") } q { background: "
                     "url(../images/listed.png) }",
                     1,
                     {"OEBPS/images/unlisted.png"}},
        UnlistedCase{"MissingFileIsBrokenNotUnlisted",
                     "<img src=\"../images/none.png\" alt=\"\"/>",
                     "p { background: url(hidden.png) }",
                     0,
                     {}},
        UnlistedCase{
            "LinksAndFormsAreNotLoads",
            "<a href=\"../images/unlisted.png\">a</a><form "
            "action=\"../images/unlisted.png\"></form><svg "
            "xmlns=\"http://www.w3.org/2000/svg\"><a xlink:href=\"../images/hidden.png\"/></svg>",
            "",
            0,
            {}}),
    [](const ::testing::TestParamInfo<UnlistedCase>& info) { return info.param.name; });

}  // namespace
}  // namespace tomekeeper
