#include "runtime/PrefixedCSSDocumentRewriter.h"

#include <gtest/gtest.h>

#include <string>

namespace tomekeeper {
namespace {

struct DocumentCase {
  const char* name;
  std::string input;
  std::string expected;
};

std::ostream& operator<<(std::ostream& stream, const DocumentCase& documentCase) {
  return stream << documentCase.name;
}

const std::string kHead = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n"
                          "<html xmlns=\"http://www.w3.org/1999/xhtml\"><head>";

class PrefixedCSSDocumentRewriterTest : public testing::TestWithParam<DocumentCase> {};

TEST_P(PrefixedCSSDocumentRewriterTest, RewritesOnlyTheDeclarationsOfStylesAndStyleAttributes) {
  EXPECT_EQ(PrefixedCSSDocumentRewriter::rewriteDocument(GetParam().input), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, PrefixedCSSDocumentRewriterTest,
    testing::Values(
        DocumentCase{"StyleElementAndAttribute",
                     kHead + "<style>p { -epub-text-align-last: center }</style></head>\n"
                             "<body><p  class='x' style = 'text-transform: -epub-fullwidth'"
                             "  >-epub-text-align-last: left</p></body></html>",
                     kHead + "<style>p { text-align-last: center }</style></head>\n"
                             "<body><p  class='x' style = 'text-transform: full-width'"
                             "  >-epub-text-align-last: left</p></body></html>"},
        // Text outside a style, other attributes and a qualified style attribute are no CSS.
        DocumentCase{"OtherAttributesAndTextStay",
                     kHead + "</head><body title=\"-epub-text-align-last: x\" "
                             "data-style=\"-epub-line-break: strict\" "
                             "xmlns:o=\"urn:o\" o:style=\"-epub-line-break: strict\">"
                             "<pre>style=\"-epub-line-break: strict\"</pre></body></html>",
                     kHead + "</head><body title=\"-epub-text-align-last: x\" "
                             "data-style=\"-epub-line-break: strict\" "
                             "xmlns:o=\"urn:o\" o:style=\"-epub-line-break: strict\">"
                             "<pre>style=\"-epub-line-break: strict\"</pre></body></html>"},
        // A value that holds a reference is written back escaped, the quote included; the
        // parser has made its line break a space, as a browser does.
        DocumentCase{"AttributeWithReferences",
                     kHead + "</head><body><p style=\"font-family: &quot;A&amp;B&quot;;\n"
                             "-epub-line-break: strict\">x</p></body></html>",
                     kHead + "</head><body><p style=\"font-family: &quot;A&amp;B&quot;; "
                             "line-break: strict\">x</p></body></html>"},
        DocumentCase{"CDATAStyle",
                     kHead + "<style><![CDATA[ a > b { -epub-line-break: strict } ]]></style>"
                             "</head><body/></html>",
                     kHead + "<style> a &gt; b { line-break: strict } </style>"
                             "</head><body/></html>"},
        DocumentCase{"SVGStyleElement",
                     "<svg xmlns=\"http://www.w3.org/2000/svg\"><style>text{-epub-line-break:"
                     "loose}</style><text style=\"-epub-line-break:loose\">a</text></svg>",
                     "<svg xmlns=\"http://www.w3.org/2000/svg\"><style>text{line-break:"
                     "loose}</style><text style=\"line-break:loose\">a</text></svg>"},
        DocumentCase{"StyleOfAnotherNamespaceStays",
                     "<r xmlns=\"urn:x\"><style>p{-epub-line-break:loose}</style></r>",
                     "<r xmlns=\"urn:x\"><style>p{-epub-line-break:loose}</style></r>"},
        // Non-ASCII text of a Latin-1 document goes back as references, never as UTF-8.
        DocumentCase{"LatinOneDocument",
                     "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><p style=\"font-family: "
                     "\xE9t\xE9; -epub-line-break: strict\"/>",
                     "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><p style=\"font-family: "
                     "&#xE9;t&#xE9;; line-break: strict\"/>"},
        DocumentCase{"UTF8TextStays",
                     kHead + "<style>/* été */ p{-epub-line-break:loose}</style></head></html>",
                     kHead + "<style>/* été */ p{line-break:loose}</style></head></html>"},
        DocumentCase{"NotWellFormedStays",
                     kHead + "<style>p{-epub-line-break:loose}</style></head><body>",
                     kHead + "<style>p{-epub-line-break:loose}</style></head><body>"},
        DocumentCase{"EntityDeclarationStays",
                     "<!DOCTYPE p [<!ENTITY e \"x\">]><p style=\"-epub-line-break:loose\">&e;</p>",
                     "<!DOCTYPE p [<!ENTITY e \"x\">]><p style=\"-epub-line-break:loose\">&e;</p>"},
        // Entities of an external DTD are never read: text that uses them elsewhere does not
        // stop the rewrite, but a style or style attribute that uses one stays as it is.
        DocumentCase{"ExternalDTDEntities",
                     "<!DOCTYPE html PUBLIC \"-//W3C//DTD XHTML 1.1//EN\" "
                     "\"http://www.w3.org/TR/xhtml11/DTD/xhtml11.dtd\">"
                     "<html xmlns=\"http://www.w3.org/1999/xhtml\"><head><style>"
                     "p{-epub-line-break:loose}</style><style>/*&nbsp;*/q{-epub-line-break:loose}"
                     "</style></head><body><p style=\"-epub-line-break:loose\">a&nbsp;b</p>"
                     "<p style=\"font-family:&nbsp;;-epub-line-break:loose\">c</p></body></html>",
                     "<!DOCTYPE html PUBLIC \"-//W3C//DTD XHTML 1.1//EN\" "
                     "\"http://www.w3.org/TR/xhtml11/DTD/xhtml11.dtd\">"
                     "<html xmlns=\"http://www.w3.org/1999/xhtml\"><head><style>"
                     "p{line-break:loose}</style><style>/*&nbsp;*/q{-epub-line-break:loose}"
                     "</style></head><body><p style=\"line-break:loose\">a&nbsp;b</p>"
                     "<p style=\"font-family:&nbsp;;-epub-line-break:loose\">c</p></body></html>"},
        DocumentCase{"StyleWithChildElementStays",
                     kHead + "<style>p{-epub-line-break:loose}<b/></style></head></html>",
                     kHead + "<style>p{-epub-line-break:loose}<b/></style></head></html>"},
        DocumentCase{"UTF16Stays", std::string("\xFF\xFE<\0p\0/\0>\0", 10),
                     std::string("\xFF\xFE<\0p\0/\0>\0", 10)}),
    [](const testing::TestParamInfo<DocumentCase>& info) { return info.param.name; });

}  // namespace
}  // namespace tomekeeper
