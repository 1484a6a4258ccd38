#include "library/LibraryModel.h"

#include <gtest/gtest.h>
#include <unicode/locid.h>

namespace tomekeeper {
namespace {

LibraryBook book(std::string fingerprint, std::string title, std::vector<std::string> authors,
                 std::optional<double> lastRead) {
  LibraryBook result;
  result.fingerprint = std::move(fingerprint);
  result.title = std::move(title);
  result.authors = std::move(authors);
  if (lastRead) result.lastRead = Date(*lastRead);
  return result;
}

class LibraryModelTest : public ::testing::Test {
 protected:
  void SetUp() override {
    UErrorCode status = U_ZERO_ERROR;
    previousLocale_ = icu::Locale::getDefault();
    icu::Locale::setDefault(icu::Locale::getEnglish(), status);
    model_.setBooks({
        book("a", "Book 10", {"Émile Zola"}, 300.0),
        book("b", "book 2", {"Victor Hugo"}, 100.0),
        book("c", "Ångström Days", {}, std::nullopt),
        book("d", "Zebra", {"anne Brontë", "Charlotte Brontë"}, 200.0),
        book("e", "Les Misérables", {"Victor Hugo"}, 100.0),
    });
  }
  void TearDown() override {
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale::setDefault(previousLocale_, status);
  }

  std::string order() const {
    std::string fingerprints;
    for (const LibraryBook& shown : model_.visibleBooks()) fingerprints += shown.fingerprint;
    return fingerprints;
  }

  icu::Locale previousLocale_;
  LibraryModel model_;
};

TEST_F(LibraryModelTest, SortsAndFilters) {
  struct Case {
    const char* name;
    LibrarySortOrder sortOrder;
    std::string filter;
    std::string expected;
  };
  const Case cases[] = {
      {"LastReadNewestFirstNeverReadLast", LibrarySortOrder::lastRead, "", "adbec"},
      {"TitleByLocaleWithNumbers", LibrarySortOrder::title, "", "cbaed"},
      {"AuthorThenTitleNoAuthorLast", LibrarySortOrder::author, "", "dabec"},
      {"FilterIgnoresCaseAndAccents", LibrarySortOrder::lastRead, "ZOLA", "a"},
      {"FilterMatchesEveryAuthor", LibrarySortOrder::title, "charlotte bronte", "d"},
      {"FilterMatchesTitles", LibrarySortOrder::title, "miserables", "e"},
      {"FilterSharedByTwo", LibrarySortOrder::title, "  victor   HUGO ", "be"},
      {"FilterMatchingNothing", LibrarySortOrder::title, "Tolstoy", ""},
      {"AngstromFoldsToAscii", LibrarySortOrder::title, "angstrom", "c"},
  };
  for (const Case& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    model_.setSortOrder(testCase.sortOrder);
    model_.setFilter(testCase.filter);
    EXPECT_EQ(order(), testCase.expected);
    EXPECT_EQ(model_.bookCount(), 5u);
  }
}

TEST_F(LibraryModelTest, TellsOfEachChangeAndFindsBooksByFingerprint) {
  int changes = 0;
  model_.visibleBooksChanged.connect([&changes] { ++changes; });
  model_.setFilter("hugo");
  model_.setFilter("hugo");
  model_.setSortOrder(LibrarySortOrder::title);
  EXPECT_EQ(changes, 2);
  ASSERT_NE(model_.find("c"), nullptr);
  EXPECT_EQ(model_.find("c")->title, "Ångström Days");
  EXPECT_EQ(model_.find("x"), nullptr);
}

}  // namespace
}  // namespace tomekeeper
