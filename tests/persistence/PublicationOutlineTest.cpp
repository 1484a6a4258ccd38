// Reading a book's outline (title, creators, identifier, spine and chapters) from its package
// and navigation documents, written into a directory as an extraction leaves them.
#include <gtest/gtest.h>

#include <map>

#include "persistence/PublicationOutline.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper {
namespace {

using testing::writeFile;

constexpr const char* kNav = R"(<html xmlns="http://www.w3.org/1999/xhtml"
 xmlns:epub="http://www.idpf.org/2007/ops"><body><nav epub:type="toc"><ol>
<li><a href="../Text/one.xhtml">One</a><ol><li><a href="../Text/one.xhtml#b">One, later</a></li>
</ol></li><li><a href="../Text/three%20and%20more.xhtml">Three</a></li></ol></nav></body></html>)";
constexpr const char* kNCX = R"(<ncx xmlns="http://www.daisy.org/z3986/2005/ncx/"><navMap>
<navPoint id="a"><navLabel><text>First</text></navLabel><content src="Text/one.xhtml"/>
<navPoint id="b"><navLabel><text>Inner</text></navLabel><content src="Text/two.xhtml"/></navPoint>
</navPoint></navMap></ncx>)";

// A package of three sections and a nav document, with `metadata` and `extraManifest` added.
std::string package(const std::string& metadata, const std::string& extraManifest,
                    const std::string& spineAttributes = "") {
  return R"(<?xml version="1.0"?><package xmlns="http://www.idpf.org/2007/opf" version="3.0"
 unique-identifier="uid"><metadata xmlns:dc="http://purl.org/dc/elements/1.1/">)" +
         metadata + R"(</metadata><manifest>
<item id="one" href="Text/one.xhtml" media-type="application/xhtml+xml"/>
<item id="two" href="Text/two.xhtml" media-type="application/xhtml+xml"/>
<item id="image" href="Images/cover.svg" media-type="image/svg+xml"/>
<item id="three" href="Text/three%20and%20more.xhtml" media-type="application/xhtml+xml"/>)" +
         extraManifest + "</manifest><spine " + spineAttributes +
         R"(><itemref idref="one"/><itemref idref="two"/><itemref idref="image"/>
<itemref idref="missing"/><itemref idref="three"/></spine></package>)";
}

TEST(PublicationOutlineTest, ReadsMetadataSpineAndChapters) {
  const std::string nav =
      R"(<item id="nav" href="Nav/nav.xhtml" media-type="application/xhtml+xml" properties="nav"/>)";
  const std::string ncx =
      R"(<item id="ncx" href="toc.ncx" media-type="application/x-dtbncx+xml"/>)";
  const std::string oneTitle = R"(<dc:identifier id="uid">urn:isbn:1</dc:identifier>
<dc:title>  The   Title
</dc:title><dc:creator>Ann</dc:creator><dc:creator>Bob</dc:creator>)";
  struct Expected {
    std::string identifier;
    std::string title;
    std::vector<std::string> authors;
    std::vector<SpineChapter> spine;
  };
  const struct {
    const char* name;
    std::map<std::string, std::string> files;
    Expected expected;
  } cases[] = {
      {"ANavigationDocument",
       {{"OEBPS/content.opf", package(oneTitle, nav)}, {"OEBPS/Nav/nav.xhtml", kNav}},
       {"urn:isbn:1",
        "The Title",
        {"Ann", "Bob"},
        {{"Text/one.xhtml", "One"},
         {"Text/two.xhtml", "One"},
         {"Text/three%20and%20more.xhtml", "Three"}}}},
      {"AnNCXWithoutNavigationDocument",
       {{"OEBPS/content.opf", package(oneTitle, ncx, R"(toc="ncx")")}, {"OEBPS/toc.ncx", kNCX}},
       {"urn:isbn:1",
        "The Title",
        {"Ann", "Bob"},
        {{"Text/one.xhtml", "First"},
         {"Text/two.xhtml", "Inner"},
         {"Text/three%20and%20more.xhtml", "Inner"}}}},
      {"TheMainTitleAndTheUniqueIdentifier",
       {{"OEBPS/content.opf",
         package(R"(<dc:identifier>other</dc:identifier><dc:identifier id="uid">mine</dc:identifier>
<dc:title id="t1">Sub</dc:title><dc:title id="t2">Main</dc:title>
<meta refines="#t2" property="title-type">main</meta>)",
                 "")}},
       {"mine",
        "Main",
        {},
        {{"Text/one.xhtml", ""}, {"Text/two.xhtml", ""}, {"Text/three%20and%20more.xhtml", ""}}}},
      {"ABrokenNavigationDocumentCostsOnlyTheChapters",
       {{"OEBPS/content.opf", package(oneTitle, nav)}, {"OEBPS/Nav/nav.xhtml", "<html><body>"}},
       {"urn:isbn:1",
        "The Title",
        {"Ann", "Bob"},
        {{"Text/one.xhtml", ""}, {"Text/two.xhtml", ""}, {"Text/three%20and%20more.xhtml", ""}}}},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    const testing::TemporaryDirectory root;
    for (const auto& [name, contents] : testCase.files) writeFile(root / name, contents);
    const PublicationOutline outline = readPublicationOutline(root.path(), "OEBPS/content.opf");
    EXPECT_EQ(outline.identifier, testCase.expected.identifier);
    EXPECT_EQ(outline.title, testCase.expected.title);
    EXPECT_EQ(outline.authors, testCase.expected.authors);
    EXPECT_EQ(outline.spine, testCase.expected.spine);
    EXPECT_EQ(outline.spineFiles,
              (std::vector<std::filesystem::path>{"OEBPS/Text/one.xhtml", "OEBPS/Text/two.xhtml",
                                                  "OEBPS/Text/three and more.xhtml"}));
  }
}

TEST(PublicationOutlineTest, RefusesAPackageItCannotReadSafely) {
  const struct {
    const char* name;
    std::string contents;
  } cases[] = {
      {"NotWellFormed", "<package><metadata>"},
      {"AnInternalEntity",
       R"(<!DOCTYPE package [<!ENTITY e "x">]><package><metadata/><spine/></package>)"},
      {"AnExternalEntity",
       R"(<!DOCTYPE package [<!ENTITY e SYSTEM "/etc/passwd">]><package>&e;<spine/></package>)"},
      {"NoSpine", R"(<package><metadata/><manifest/></package>)"},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    const testing::TemporaryDirectory root;
    writeFile(root / "content.opf", testCase.contents);
    EXPECT_THROW(readPublicationOutline(root.path(), "content.opf"), PublicationOutlineError);
  }
}

}  // namespace
}  // namespace tomekeeper
