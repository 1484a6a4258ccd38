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

TEST(BookmarkTitleTest, TitleIsTheTrimmedExcerptCutAtEightyCharactersElseTheProgression) {
  const std::string accented = "e\u0301";                                   // e + combining acute
  const std::string flag = "\U0001F1EB\U0001F1F7";                          // regional indicators
  const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467";  // joined emoji
  const std::string emoji = "\U0001F600";
  const double infinity = std::numeric_limits<double>::infinity();
  // 0.125 * 100 and 0.005 * 100 are exactly 12.5 and 0.5 in binary; so are 1.5 and 99.5.
  ASSERT_EQ(0.125 * 100.0, 12.5);
  ASSERT_EQ(0.005 * 100.0, 0.5);
  // The double nearest 0.145 lies below it, and 0.145 * 100 is 14.499999999999998.
  ASSERT_LT(0.145 * 100.0, 14.5);
  const struct {
    const char* name;
    Locator locator;
    std::string title;
  } cases[] = {
      {"ShortExcerptIsTheWholeTitle", withExcerpt("Call me Ishmael.", 0.5), "Call me Ishmael."},
      {"TrimsWhiteSpaceAndLineBreaksAtBothEnds", withExcerpt("\n\t  Call me\u00A0Ishmael. \r\n"),
       "Call me\u00A0Ishmael."},
      // No-break space, ideographic space, line separator and next line are blanks too.
      {"TrimsOtherBlanks", withExcerpt("\u00A0\u3000\u2028Text\u0085\u2029"), "Text"},
      {"KeepsTheFirstEightyOfLongerText", withExcerpt(repeated("abcdefghij", 10)),
       repeated("abcdefghij", 8)},
      {"HundredEmojiGiveEightyWholeOnes", withExcerpt(repeated(emoji, 100)), repeated(emoji, 80)},
      {"ACombiningSequenceIsOneCharacter", withExcerpt(repeated(accented, 90)),
       repeated(accented, 80)},
      {"AFlagIsOneCharacter", withExcerpt(repeated(flag, 81)), repeated(flag, 80)},
      {"AJoinedEmojiIsOneCharacter", withExcerpt(repeated("x", 79) + family + "tail"),
       repeated("x", 79) + family},
      {"BlankExcerptFallsThroughToTheProgression", withExcerpt(" \n\t\u2003", 0.42),
       "Bookmark at 42%"},
      {"EmptyExcerptWithoutProgression", withExcerpt(""), "Bookmark"},
      {"NoProgression", Locator{.spineHref = "a", .spineIndex = 0}, "Bookmark"},
      {"NotANumber", atProgression(std::numeric_limits<double>::quiet_NaN()), "Bookmark"},
      {"Infinite", atProgression(infinity), "Bookmark"},
      {"NegativeInfinite", atProgression(-infinity), "Bookmark"},
      {"RoundedToAWholePercent", atProgression(0.123), "Bookmark at 12%"},
      {"Zero", atProgression(0.0), "Bookmark at 0%"},
      {"One", atProgression(1.0), "Bookmark at 100%"},
      // Rounding half to even would give 12%, 0%, 2% and 100%.
      {"ExactHalfRoundsAwayFromZero", atProgression(0.125), "Bookmark at 13%"},
      {"HalfAPercentRoundsUp", atProgression(0.005), "Bookmark at 1%"},
      {"OneAndAHalfRoundsUp", atProgression(0.015), "Bookmark at 2%"},
      {"NinetyNineAndAHalfRoundsUp", atProgression(0.995), "Bookmark at 100%"},
      {"JustBelowAHalfRoundsDown", atProgression(0.145), "Bookmark at 14%"},
      {"NextBelowAnExactHalfRoundsDown", atProgression(std::nextafter(0.125, 0.0)),
       "Bookmark at 12%"},
      {"ClampedAtZero", atProgression(-0.5), "Bookmark at 0%"},
      {"ClampedAtOne", atProgression(1.5), "Bookmark at 100%"},
      {"NegativeZero", atProgression(-0.0), "Bookmark at 0%"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    EXPECT_EQ(bookmarkTitle(test.locator), test.title);
  }
}

}  // namespace
}  // namespace tomekeeper
