#include "runtime/PrefixedCSSRewriter.h"

#include <gtest/gtest.h>

#include <string>

namespace tomekeeper {
namespace {

struct RewriteCase {
  const char* name;
  std::string input;
  std::string expected;
};

std::ostream& operator<<(std::ostream& stream, const RewriteCase& rewriteCase) {
  return stream << rewriteCase.name;
}

std::string caseName(const testing::TestParamInfo<RewriteCase>& info) {
  return info.param.name;
}

class PrefixedCSSRewriterStyleSheetTest : public testing::TestWithParam<RewriteCase> {};

TEST_P(PrefixedCSSRewriterStyleSheetTest, RewritesOnlyTheDeclarationsItShould) {
  EXPECT_EQ(PrefixedCSSRewriter::rewriteStyleSheet(GetParam().input), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, PrefixedCSSRewriterStyleSheetTest,
    testing::Values(
        // Each property and value of the table.
        RewriteCase{"TextAlignLast", "p { -epub-text-align-last: center; }",
                    "p { text-align-last: center; }"},
        RewriteCase{"CombineHorizontal",
                    ".a{-epub-text-combine-horizontal:all}.b{-epub-text-combine-horizontal:none}"
                    ".c{-epub-text-combine-horizontal: digits 2}",
                    ".a{text-combine-upright:all}.b{text-combine-upright:none}"
                    ".c{text-combine-upright: digits 2}"},
        RewriteCase{
            "EmphasisPosition",
            "em { -epub-text-emphasis-position: under; } b { "
            "-epub-text-emphasis-position: over left }",
            "em { text-emphasis-position: under; } b { text-emphasis-position: over left }"},
        RewriteCase{"FullwidthTransform",
                    "p { text-transform: -epub-fullwidth } q { Text-Transform: uppercase "
                    "-EPUB-FULLWIDTH } r { -epub-text-transform: -epub-fullwidth }",
                    "p { text-transform: full-width } q { Text-Transform: uppercase full-width } "
                    "r { -epub-text-transform: full-width }"},
        RewriteCase{"LineBreak", "p { -epub-line-break: strict }", "p { line-break: strict }"},
        RewriteCase{
            "UnderlinePosition",
            "p { -epub-text-underline-position: alphabetic } q { "
            "-epub-text-underline-position: under left }",
            "p { text-underline-position: auto } q { text-underline-position: under left }"},
        RewriteCase{"DeprecatedOrientations",
                    "a { -epub-text-orientation: vertical-right } b { -epub-text-orientation: "
                    "rotate-right } c { -epub-text-orientation: ROTATE-NORMAL } d { "
                    "-epub-text-orientation: upright }",
                    "a { -epub-text-orientation: mixed } b { -epub-text-orientation: sideways } "
                    "c { -epub-text-orientation: sideways } d { -epub-text-orientation: upright }"},
        RewriteCase{"NameInAnyCase", "p { -EPUB-Text-Align-Last: left }",
                    "p { text-align-last: left }"},
        RewriteCase{"KeepsCommentsSpacingAndPriority",
                    "p {\n  -epub-text-align-last /* a */ :\t/* b */ right !important ;\n}",
                    "p {\n  text-align-last /* a */ :\t/* b */ right !important ;\n}"},
        RewriteCase{"EveryDeclarationOfABlock",
                    "p { color: red; -epub-text-align-last: end; margin: 0; "
                    "-epub-line-break: loose }",
                    "p { color: red; text-align-last: end; margin: 0; line-break: loose }"},
        RewriteCase{"InsideAtRulesAndNestedRules",
                    "@media screen { @supports (display: grid) { p { -epub-text-align-last: "
                    "center } } } div { & p { -epub-line-break: strict } }",
                    "@media screen { @supports (display: grid) { p { text-align-last: center } } "
                    "} div { & p { line-break: strict } }"},
        RewriteCase{"UnclosedBlock", "p { -epub-text-align-last: center",
                    "p { text-align-last: center"},
        RewriteCase{"NonASCIIPassesThrough",
                    "p::before { content: \"縦中横\" } .縦 { -epub-text-combine-horizontal: all }",
                    "p::before { content: \"縦中横\" } .縦 { text-combine-upright: all }"},
        // What stays as it is.
        RewriteCase{"PrefixesWebKitMapsItself",
                    "p { -epub-writing-mode: vertical-rl; -epub-text-orientation: upright; "
                    "-epub-word-break: break-all; -epub-hyphens: auto; -epub-text-combine: "
                    "horizontal; -epub-text-emphasis-style: sesame }",
                    "p { -epub-writing-mode: vertical-rl; -epub-text-orientation: upright; "
                    "-epub-word-break: break-all; -epub-hyphens: auto; -epub-text-combine: "
                    "horizontal; -epub-text-emphasis-style: sesame }"},
        RewriteCase{"Selectors",
                    ".-epub-text-align-last:hover { color: red } -epub-line-break:x { } p { "
                    "-epub-text-align-last:hover { color: red } }",
                    ".-epub-text-align-last:hover { color: red } -epub-line-break:x { } p { "
                    "-epub-text-align-last:hover { color: red } }"},
        RewriteCase{"Strings",
                    "p { content: \"-epub-text-align-last: center\"; text-transform: "
                    "'-epub-fullwidth' } [title='a;-epub-line-break:strict'] { }",
                    "p { content: \"-epub-text-align-last: center\"; text-transform: "
                    "'-epub-fullwidth' } [title='a;-epub-line-break:strict'] { }"},
        RewriteCase{"Comments",
                    "/* p { -epub-text-align-last: center } */ p { /* -epub-line-break: x; */ }",
                    "/* p { -epub-text-align-last: center } */ p { /* -epub-line-break: x; */ }"},
        RewriteCase{"URLs",
                    "p { background: url(x;-epub-text-align-last:center}.png); "
                    "-epub-text-align-last: left }",
                    "p { background: url(x;-epub-text-align-last:center}.png); "
                    "text-align-last: left }"},
        RewriteCase{"ValuesOfOtherProperties",
                    "p { font-family: -epub-text-align-last; text-align: -epub-fullwidth }",
                    "p { font-family: -epub-text-align-last; text-align: -epub-fullwidth }"},
        RewriteCase{"CustomProperties",
                    "p { --x: { -epub-text-align-last: center }; --epub-line-break: strict }",
                    "p { --x: { -epub-text-align-last: center }; --epub-line-break: strict }"},
        RewriteCase{"OutsideAnyBlock", "-epub-text-align-last: center;",
                    "-epub-text-align-last: center;"},
        RewriteCase{"ABraceInsideParenthesesClosesNothing",
                    "p { a: f(} q { -epub-text-align-last: center }",
                    "p { a: f(} q { -epub-text-align-last: center }"},
        RewriteCase{"UnterminatedCommentAndString",
                    "p { content: \"a\n} q { -epub-line-break: strict } /* "
                    "-epub-text-align-last: center",
                    "p { content: \"a\n} q { line-break: strict } /* -epub-text-align-last: "
                    "center"},
        RewriteCase{"EscapedName", "p { -epub-text-align-l\\61 st: center }",
                    "p { -epub-text-align-l\\61 st: center }"},
        RewriteCase{"FunctionOfThatName",
                    "p { x: -epub-fullwidth(1); text-transform: "
                    "-epub-fullwidth(2) }",
                    "p { x: -epub-fullwidth(1); text-transform: -epub-fullwidth(2) }"}),
    caseName);

class PrefixedCSSRewriterStyleAttributeTest : public testing::TestWithParam<RewriteCase> {};

TEST_P(PrefixedCSSRewriterStyleAttributeTest, RewritesOnlyTheDeclarationsItShould) {
  EXPECT_EQ(PrefixedCSSRewriter::rewriteStyleAttribute(GetParam().input), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, PrefixedCSSRewriterStyleAttributeTest,
    testing::Values(
        RewriteCase{"FirstAndLater",
                    "-epub-text-combine-horizontal: all; color: red; "
                    "-epub-text-emphasis-position: over left",
                    "text-combine-upright: all; color: red; text-emphasis-position: over left"},
        RewriteCase{"LeadingSpaceAndNoSemicolon", "  text-transform:-epub-fullwidth",
                    "  text-transform:full-width"},
        RewriteCase{"StringValue", "font-family: \"-epub-text-align-last: x\"",
                    "font-family: \"-epub-text-align-last: x\""},
        RewriteCase{"InsideAValue", "color: red -epub-text-align-last: center",
                    "color: red -epub-text-align-last: center"}),
    caseName);

TEST(PrefixedCSSRewriterTest, DeepNestingNeitherOverflowsNorChangesAnything) {
  const std::string deep = "p { -epub-line-break: " + std::string(200000, '(') +
                           std::string(200000, '{') + std::string(200000, '[');
  EXPECT_EQ(PrefixedCSSRewriter::rewriteStyleSheet("q {" + deep),
            "q {p { line-break: " + deep.substr(22));
  const std::string blocks = std::string(200000, '{') + "-epub-text-align-last:x";
  EXPECT_EQ(PrefixedCSSRewriter::rewriteStyleSheet(blocks),
            std::string(200000, '{') + "text-align-last:x");
}

}  // namespace
}  // namespace tomekeeper
