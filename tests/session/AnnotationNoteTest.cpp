#include <gtest/gtest.h>

#include "session/AnnotationNote.h"

namespace tomekeeper {
namespace {

std::string repeated(const std::string& piece, std::size_t times) {
  std::string text;
  for (std::size_t index = 0; index < times; ++index) text += piece;
  return text;
}

TEST(AnnotationNoteTest, CountsUserPerceivedCharactersNotCodePointsOrBytes) {
  EXPECT_EQ(AnnotationNote::graphemeCount(""), 0u);
  EXPECT_EQ(AnnotationNote::graphemeCount("abc"), 3u);
  EXPECT_EQ(AnnotationNote::graphemeCount("e\xCC\x81"), 1u);  // e + combining acute
  EXPECT_EQ(AnnotationNote::graphemeCount("\xF0\x9F\x87\xAB\xF0\x9F\x87\xB7"), 1u);  // a flag
  // A family: four people joined by zero-width joiners.
  EXPECT_EQ(AnnotationNote::graphemeCount("\xF0\x9F\x91\xA8\xE2\x80\x8D\xF0\x9F\x91\xA9\xE2\x80"
                                          "\x8D\xF0\x9F\x91\xA7\xE2\x80\x8D\xF0\x9F\x91\xA6"),
            1u);
  EXPECT_EQ(AnnotationNote::graphemeCount("\r\n"), 1u);
  EXPECT_EQ(AnnotationNote::graphemeCount("\xE6\x97\xA5\xE6\x9C\xAC"), 2u);
}

TEST(AnnotationNoteTest, TrimsUnicodeWhiteSpaceAndLineBreaksAtBothEndsOnly) {
  EXPECT_EQ(AnnotationNote::trimmed("  a b \n"), "a b");
  EXPECT_EQ(AnnotationNote::trimmed("\t\r\n"), "");
  // An ideographic space and a no-break space are white space too.
  EXPECT_EQ(AnnotationNote::trimmed("\xE3\x80\x80note\xC2\xA0"), "note");
  EXPECT_EQ(AnnotationNote::trimmed("inner\n\nlines"), "inner\n\nlines");
}

TEST(AnnotationNoteTest, LimitIsFourThousandClustersAfterTrimming) {
  const std::string atLimit = repeated("\xF0\x9F\x87\xAB\xF0\x9F\x87\xB7", 4000);
  const AnnotationNote::Outcome passes = AnnotationNote::fromEditedText(atLimit + "   ");
  EXPECT_FALSE(passes.exceedsLimit);
  EXPECT_EQ(passes.note, atLimit);

  const AnnotationNote::Outcome fails = AnnotationNote::fromEditedText(atLimit + "x");
  EXPECT_TRUE(fails.exceedsLimit);
  EXPECT_EQ(fails.note, std::nullopt);
}

TEST(AnnotationNoteTest, EmptyAfterTrimmingMeansNoNote) {
  const AnnotationNote::Outcome outcome = AnnotationNote::fromEditedText(" \n ");
  EXPECT_FALSE(outcome.exceedsLimit);
  EXPECT_EQ(outcome.note, std::nullopt);
}

}  // namespace
}  // namespace tomekeeper
