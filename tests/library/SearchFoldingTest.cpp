#include "library/SearchFolding.h"

#include <gtest/gtest.h>

namespace tomekeeper {
namespace {

TEST(SearchFoldingTest, FoldsAsTheBookSearchDoes) {
  struct Case {
    const char* name;
    std::string text;
    std::string folded;
  };
  const Case cases[] = {
      {"LetterCase", "The Red ROOM", "the red room"},
      {"Diacritics", "Émile Zola, Naïve Café", "emile zola, naive cafe"},
      {"Ligatures", "\xEF\xAC\x81nal", "final"},
      {"FullWidthLetters", "\xEF\xBC\xA1\xEF\xBC\xA2", "ab"},
      {"TypographicApostrophe", "Don\xE2\x80\x99t", "don't"},
      {"WhiteSpaceRuns", "  a \t\n b  ", "a b"},
      {"SharpS", "Straße", "strasse"},
      {"SoftHyphen", "Dos\xC2\xADto", "dosto"},
      {"GreekFinalSigma", "ΟΔΥΣΣΕΥΣ", "οδυσσευσ"},
  };
  for (const Case& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    EXPECT_EQ(foldForSearch(testCase.text), testCase.folded);
  }
}

TEST(SearchFoldingTest, FoldedQueryFindsFoldedText) {
  const std::string title = foldForSearch("Les Misérables — Victor Hugo");
  EXPECT_TRUE(foldedContains(title, foldForSearch("MISERABLES")));
  EXPECT_TRUE(foldedContains(title, foldForSearch("")));
  EXPECT_FALSE(foldedContains(title, foldForSearch("Zola")));
}

}  // namespace
}  // namespace tomekeeper
