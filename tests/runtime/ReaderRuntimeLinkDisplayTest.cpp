// A book's own links in the real reader runtime page: followed through the reader, never by the
// frame; footnotes beside their references; clicks on the sides of a page in the book's page
// progression. These tests need a display (label display).
#include <gmock/gmock.h>

#include "ReaderRuntimeDisplayFixture.h"

namespace tomekeeper {
namespace {

using namespace std::chrono_literals;
using json = nlohmann::json;
using testing::chapterDocument;

constexpr const char* kFootnoteText = "The quince ledger was kept in the cellar.";

// Chapter 1 links to a paragraph deep in chapter 2, to one of its own paragraphs, and to a
// footnote; the navigation document, first in the spine, lists chapter 3.
std::string linkedBook(const std::string& spineAttributes = "") {
  testing::PackageDescription package{.identifier = "urn:uuid:9d3c2a1b-7e6f-4a5b-8c9d-0e1f2a3b4c5d",
                                      .title = "Linked Tomes",
                                      .spineAttributes = spineAttributes};
  package.manifest.push_back({"nav", "nav.xhtml", "application/xhtml+xml", "nav"});
  package.spine.push_back("nav");
  package.withChapters(3, "text/chapter");
  testing::EpubBuilder builder;
  builder.withPackageDocument(package);
  builder.addFile("OEBPS/nav.xhtml", R"(<?xml version="1.0" encoding="UTF-8"?>
<html xmlns="http://www.w3.org/1999/xhtml" xmlns:epub="http://www.idpf.org/2007/ops">
<head><title>Contents</title></head><body><nav epub:type="toc"><ol>
  <li><a id="to-chapter3" href="text/chapter3.xhtml#c3p12">The Third Chapter</a></li>
</ol></nav></body></html>
)");
  builder.addFile(
      "OEBPS/text/chapter1.xhtml",
      chapterDocument(1, 30, "",
                      "<p><a id=\"to-chapter2\" href=\"chapter2.xhtml#c2p20\">See chapter 2</a>, "
                      "<a id=\"to-here\" href=\"#c1p25\">see below</a> and "
                      "<a id=\"to-note\" epub:type=\"noteref\" href=\"#fn1\" "
                      "xmlns:epub=\"http://www.idpf.org/2007/ops\">1</a>.</p>\n"
                      "<aside id=\"fn1\" epub:type=\"footnote\" "
                      "xmlns:epub=\"http://www.idpf.org/2007/ops\"><p>" +
                          std::string(kFootnoteText) + "</p></aside>\n"));
  builder.addFile("OEBPS/text/chapter2.xhtml", chapterDocument(2, 30));
  builder.addFile("OEBPS/text/chapter3.xhtml", chapterDocument(3, 30));
  return builder.build();
}

class ReaderRuntimeLinkDisplayTest : public testing::ReaderRuntimeDisplayTest {
 protected:
  void SetUp() override {
    ReaderRuntimeDisplayTest::SetUp();
    bridge().onLinkActivated = [this](std::string url) { activated_.push_back(std::move(url)); };
    bridge().onPageTurnRequested = [this](PageTurnDirection direction) {
      turns_.push_back(direction);
    };
  }

  // Clicks the element `id` of the section on screen, as the reader's pointer would.
  void click(const std::string& id) {
    evaluate(
        "const frame = document.querySelector('iframe.section-frame:not(.preparing)');"
        "frame.contentDocument.getElementById(" +
        json(id).dump() + ").click(); return true;");
  }

  // Follows the link `id` as the session does: the runtime tells the address, the session goes.
  ReaderPositionResult follow(const std::string& id) {
    const std::size_t before = activated_.size();
    click(id);
    EXPECT_TRUE(testing::iterateUntil([&] { return activated_.size() > before; }, 5s)) << id;
    if (activated_.size() == before) return {};
    return run(bridge().goTo(GoToRequest{activated_.back()}));
  }

  // The words of paragraph `id` of chapter `chapter` are on screen.
  bool isParagraphOnScreen(int chapter, int paragraph) {
    return isTextOnScreen(
        TextContext{testing::paragraphText(chapter, paragraph).substr(0, 40), {}, {}});
  }

  std::vector<std::string> activated_;
  std::vector<PageTurnDirection> turns_;
};

// The cases share one web view and one opened book, each a named section; the larger type of the
// last stays to the end.
TEST_F(ReaderRuntimeLinkDisplayTest, TheBooksLinksAreFollowedThroughTheReader) {
  openBook(linkedBook());
  {
    SCOPED_TRACE("LinksWithinASectionAndFromTheNavigationDocument");
    // The navigation document is the first section.
    EXPECT_EQ(follow("to-chapter3").spineIndex, 3);
    EXPECT_TRUE(isParagraphOnScreen(3, 12));

    run(bridge().goTo(GoToRequest{"text/chapter1.xhtml"}));
    EXPECT_EQ(follow("to-here").spineIndex, 1);
    EXPECT_THAT(activated_.back(), ::testing::EndsWith("text/chapter1.xhtml#c1p25"));
    EXPECT_TRUE(isParagraphOnScreen(1, 25));
  }
  {
    SCOPED_TRACE("ANoteReferenceOpensItsNoteWithoutMoving");
    activated_.clear();
    run(bridge().goTo(GoToRequest{"text/chapter1.xhtml"}));
    // The footnote's aside is out of the flow.
    EXPECT_EQ(evaluate(R"(
      const frame = document.querySelector('iframe.section-frame:not(.preparing)');
      return frame.contentWindow.getComputedStyle(frame.contentDocument.getElementById('fn1')).display;
    )"),
              "none");
    run(bridge().goTo(GoToRequest{"text/chapter1.xhtml#to-note"}));
    const Locator atTheReference = run(bridge().currentLocator());
    click("to-note");
    // A round trip after the click: any event the click sent has arrived before its answer.
    EXPECT_EQ(run(bridge().currentLocator()), atTheReference);
    EXPECT_TRUE(activated_.empty());
    const json popover = evaluate(R"(
      const frame = document.querySelector('iframe.section-frame:not(.preparing)');
      const box = frame.contentDocument.querySelector('[data-tomekeeper-runtime="footnote"]');
      if (!box) return null;
      const rect = box.getBoundingClientRect();
      return { text: box.textContent, visible: rect.width > 0 && rect.height > 0 &&
               rect.right > 0 && rect.left < frame.contentWindow.innerWidth };
    )");
    ASSERT_FALSE(popover.is_null());
    EXPECT_NE(popover["text"].get<std::string>().find(kFootnoteText), std::string::npos);
    EXPECT_TRUE(popover["visible"].get<bool>());
    saveScreenshot("footnote-popover");
    // "Go to Note" follows the link.
    evaluate(R"(
      const frame = document.querySelector('iframe.section-frame:not(.preparing)');
      frame.contentDocument.querySelector('[data-tomekeeper-runtime="footnote"] button').click();
      return true;
    )");
    ASSERT_TRUE(testing::iterateUntil([&] { return !activated_.empty(); }, 5s));
    EXPECT_THAT(activated_.back(), ::testing::EndsWith("text/chapter1.xhtml#fn1"));
  }
  {
    SCOPED_TRACE("ALinkToAnotherSectionLandsOnItsTargetInTheReadersLayout");
    run(bridge().goTo(GoToRequest{"text/chapter1.xhtml"}));
    ConfigureTypographyRequest typography;
    typography.fontScale = {ResolvedTypographyFontScale::Mode::value, 1.3};
    run(bridge().configureTypography(typography));

    const ReaderPositionResult landed = follow("to-chapter2");
    EXPECT_EQ(landed.spineIndex, 2);
    EXPECT_THAT(activated_.back(), ::testing::EndsWith("text/chapter2.xhtml#c2p20"));
    EXPECT_TRUE(isParagraphOnScreen(2, 20));
    EXPECT_EQ(run(bridge().currentLocator()).spineIndex, 2);
    saveScreenshot("cross-document-link");
    // The chapter is shown in the reader's frame with the reader's type, and no frame navigated.
    const json frames = evaluate(R"(
      return [...document.querySelectorAll('iframe.section-frame')].map((frame) => ({
        src: frame.src.replace(/.*\//, ''),
        presented: frame.contentDocument.querySelector('style[data-tomekeeper-runtime]') !== null,
        fontSize: parseFloat(frame.contentWindow.getComputedStyle(frame.contentDocument.documentElement).fontSize) }));
    )");
    for (const json& frame : frames) {
      EXPECT_TRUE(frame["presented"].get<bool>()) << frame.dump();
      EXPECT_NEAR(frame["fontSize"].get<double>(), 16 * 1.3, 0.01) << frame.dump();
    }
    // Page Down goes on from there.
    const ReaderPositionResult next = run(bridge().next());
    EXPECT_EQ(next.spineIndex, 2);
    EXPECT_EQ(next.page, landed.page + 1);
  }
}

// A book read from right to left, and one from left to right.
struct DirectionCase {
  const char* name;
  const char* spineAttributes;
  const char* progression;
  PageTurnDirection leftTurn;
  bool spreadStartsOnTheRight;
};

void PrintTo(const DirectionCase& direction, std::ostream* stream) {
  *stream << direction.name;
}

class ReaderRuntimeDirectionDisplayTest : public ReaderRuntimeLinkDisplayTest,
                                          public ::testing::WithParamInterface<DirectionCase> {};

// A click on the left or right fifth of the page turns it: on the left, onward in a book read
// from right to left, back in one read from left to right; a click in the middle does nothing.
// In a spread, the first page of a book read from right to left is the right one, even where the
// text itself runs from left to right; the text keeps its own direction.
TEST_P(ReaderRuntimeDirectionDisplayTest, SideClicksTurnAndASpreadStartsWhereTheBookIsRead) {
  const DirectionCase& direction = GetParam();
  EXPECT_EQ(openBook(linkedBook(direction.spineAttributes)).pageProgressionDirection,
            direction.progression);
  run(bridge().goTo(GoToRequest{"text/chapter1.xhtml"}));
  for (const double share : {0.05, 0.5, 0.95}) {
    evaluate(
        "const frame = document.querySelector('iframe.section-frame:not(.preparing)');"
        "const viewport = document.getElementById('reader-viewport').getBoundingClientRect();"
        "const x = viewport.left + viewport.width * " +
        std::to_string(share) +
        " - frame.getBoundingClientRect().left;"
        "frame.contentDocument.body.dispatchEvent(new MouseEvent('click', "
        "{ bubbles: true, cancelable: true, clientX: x, clientY: 200, button: 0 }));"
        "return true;");
  }
  // A round trip after the clicks: the events they sent have arrived before its answer.
  run(bridge().currentLocator());
  const PageTurnDirection rightTurn = direction.leftTurn == PageTurnDirection::next
                                          ? PageTurnDirection::previous
                                          : PageTurnDirection::next;
  EXPECT_EQ(turns_, (std::vector{direction.leftTurn, rightTurn}));

  run(bridge().configurePageLayout(ConfigurePageLayoutRequest{PageLayout::doublePage}));
  run(bridge().goTo(GoToRequest{"text/chapter1.xhtml"}));
  const json placement = evaluate(R"(
    const frame = document.querySelector('iframe.section-frame:not(.preparing)');
    const viewport = document.getElementById('reader-viewport').getBoundingClientRect();
    const paragraph = frame.contentDocument.getElementById('c1p1');
    const left = frame.getBoundingClientRect().left + paragraph.getBoundingClientRect().left;
    return { onTheRight: left > viewport.left + viewport.width / 2,
             direction: frame.contentWindow.getComputedStyle(paragraph).direction };
  )");
  EXPECT_EQ(placement["onTheRight"].get<bool>(), direction.spreadStartsOnTheRight)
      << placement.dump();
  EXPECT_EQ(placement["direction"], "ltr");
}

INSTANTIATE_TEST_SUITE_P(Books, ReaderRuntimeDirectionDisplayTest,
                         ::testing::Values(DirectionCase{"ReadFromRightToLeft",
                                                         "page-progression-direction=\"rtl\"",
                                                         "rtl", PageTurnDirection::next, true},
                                           DirectionCase{"ReadFromLeftToRight", "", "ltr",
                                                         PageTurnDirection::previous, false}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace tomekeeper
