#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "model/Bookmark.h"

namespace tomekeeper {
namespace {

Locator withExcerpt(std::string exact, std::optional<double> totalProgression = std::nullopt) {
  return Locator{.spineHref = "a.xhtml",
                 .spineIndex = 0,
                 .totalProgression = totalProgression,
                 .excerpt = TextContext{.exact = std::move(exact)}};
}

Locator atProgression(double totalProgression) {
  return Locator{.spineHref = "a.xhtml", .spineIndex = 0, .totalProgression = totalProgression};
}

std::string repeated(const std::string& piece, int count) {
  std::string text;
  for (int index = 0; index < count; ++index) text += piece;
  return text;
}

TEST(BookmarkTitleTest, ShortExcerptIsTheWholeTitle) {
  EXPECT_EQ(bookmarkTitle(withExcerpt("Call me Ishmael.", 0.5)), "Call me Ishmael.");
}

TEST(BookmarkTitleTest, TrimsWhiteSpaceAndLineBreaksAtBothEnds) {
  EXPECT_EQ(bookmarkTitle(withExcerpt("\n\t  Call me\u00A0Ishmael. \r\n")),
            "Call me\u00A0Ishmael.");
  // No-break space, ideographic space, line separator and next line are blanks too.
  EXPECT_EQ(bookmarkTitle(withExcerpt("\u00A0\u3000\u2028Text\u0085\u2029")), "Text");
}

TEST(BookmarkTitleTest, KeepsTheFirstEightyOfLongerText) {
  const std::string text = repeated("abcdefghij", 10);
  EXPECT_EQ(bookmarkTitle(withExcerpt(text)), text.substr(0, 80));
}

TEST(BookmarkTitleTest, HundredEmojiGiveEightyWholeOnes) {
  const std::string emoji = "\U0001F600";
  EXPECT_EQ(bookmarkTitle(withExcerpt(repeated(emoji, 100))), repeated(emoji, 80));
}

TEST(BookmarkTitleTest, CombiningSequencesAndFlagsCountAsOneCharacterEach) {
  const std::string accented = "e\u0301";                                   // e + combining acute
  const std::string flag = "\U0001F1EB\U0001F1F7";                          // regional indicators
  const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467";  // joined emoji
  EXPECT_EQ(bookmarkTitle(withExcerpt(repeated(accented, 90))), repeated(accented, 80));
  EXPECT_EQ(bookmarkTitle(withExcerpt(repeated(flag, 81))), repeated(flag, 80));
  EXPECT_EQ(bookmarkTitle(withExcerpt(repeated("x", 79) + family + "tail")),
            repeated("x", 79) + family);
}

TEST(BookmarkTitleTest, BlankExcerptFallsThroughToTheProgression) {
  EXPECT_EQ(bookmarkTitle(withExcerpt(" \n\t\u2003", 0.42)), "Bookmark at 42%");
  EXPECT_EQ(bookmarkTitle(withExcerpt("", std::nullopt)), "Bookmark");
}

TEST(BookmarkTitleTest, WithoutAFiniteProgressionItIsPlainBookmark) {
  EXPECT_EQ(bookmarkTitle(Locator{.spineHref = "a", .spineIndex = 0}), "Bookmark");
  EXPECT_EQ(bookmarkTitle(atProgression(std::numeric_limits<double>::quiet_NaN())), "Bookmark");
  EXPECT_EQ(bookmarkTitle(atProgression(std::numeric_limits<double>::infinity())), "Bookmark");
  EXPECT_EQ(bookmarkTitle(atProgression(-std::numeric_limits<double>::infinity())), "Bookmark");
}

TEST(BookmarkTitleTest, ProgressionIsRoundedToAWholePercent) {
  EXPECT_EQ(bookmarkTitle(atProgression(0.123)), "Bookmark at 12%");
  EXPECT_EQ(bookmarkTitle(atProgression(0.0)), "Bookmark at 0%");
  EXPECT_EQ(bookmarkTitle(atProgression(1.0)), "Bookmark at 100%");
}

TEST(BookmarkTitleTest, ExactHalvesRoundAwayFromZero) {
  // 0.125 * 100 and 0.005 * 100 are exactly 12.5 and 0.5 in binary; so are 1.5 and 99.5.
  // Rounding half to even would give 12%, 0%, 2% and 100%.
  ASSERT_EQ(0.125 * 100.0, 12.5);
  ASSERT_EQ(0.005 * 100.0, 0.5);
  EXPECT_EQ(bookmarkTitle(atProgression(0.125)), "Bookmark at 13%");
  EXPECT_EQ(bookmarkTitle(atProgression(0.005)), "Bookmark at 1%");
  EXPECT_EQ(bookmarkTitle(atProgression(0.015)), "Bookmark at 2%");
  EXPECT_EQ(bookmarkTitle(atProgression(0.995)), "Bookmark at 100%");
}

TEST(BookmarkTitleTest, ValuesJustBelowAHalfRoundDown) {
  // The double nearest 0.145 lies below it, and 0.145 * 100 is 14.499999999999998.
  ASSERT_LT(0.145 * 100.0, 14.5);
  EXPECT_EQ(bookmarkTitle(atProgression(0.145)), "Bookmark at 14%");
  EXPECT_EQ(bookmarkTitle(atProgression(std::nextafter(0.125, 0.0))), "Bookmark at 12%");
}

TEST(BookmarkTitleTest, ProgressionIsClampedToTheBook) {
  EXPECT_EQ(bookmarkTitle(atProgression(-0.5)), "Bookmark at 0%");
  EXPECT_EQ(bookmarkTitle(atProgression(1.5)), "Bookmark at 100%");
  EXPECT_EQ(bookmarkTitle(atProgression(-0.0)), "Bookmark at 0%");
}

}  // namespace
}  // namespace tomekeeper
