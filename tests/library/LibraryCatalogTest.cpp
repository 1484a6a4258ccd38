// The library loaded from the per-book directories: records, source bookmarks and reading
// positions written as the application writes them, some of them broken.
#include "library/LibraryCatalog.h"

#include <gtest/gtest.h>

#include "LibraryTestSupport.h"
#include "async/RunUntilDone.h"
#include "library/LibraryRecord.h"
#include "persistence/EditionCarryOver.h"
#include "persistence/JSONReadingPositionRepository.h"
#include "persistence/PersistenceFailures.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper {
namespace {

namespace fs = std::filesystem;
using testing::fingerprintOf;
using testing::writeFile;

class LibraryCatalogTest : public ::testing::Test {
 public:  // the cases of a table arrange the directories through these
  LibraryLocations locations() const {
    return {records_ / "Publications", state_ / "Publications"};
  }
  fs::path recordDirectory(char digit) const {
    return locations().recordsRoot / fingerprintOf(digit);
  }
  fs::path stateDirectory(char digit) const {
    return locations().readingStateRoot / fingerprintOf(digit);
  }

  // A book file in the books folder with its source bookmark.
  fs::path addSource(char digit, const std::string& fileName) {
    const fs::path file = books_ / fileName;
    writeFile(file, "an epub");
    writeFile(recordDirectory(digit) / "source-bookmark.data", codec_.makeBookmarkData(file));
    return file;
  }

  void addRecord(char digit, const std::string& title, double lastOpened) {
    LibraryRecord record{
        title,           {"An Author"}, "en", Date(lastOpened), "source-bookmark.data",
        title + ".epub", "cover.png"};
    writeLibraryRecord(recordDirectory(digit), record);
  }

  void addPosition(char digit, std::optional<double> totalProgression) {
    JSONReadingPositionRepository::Store store;
    Locator locator;
    locator.spineHref = "chapter1.xhtml";
    locator.totalProgression = totalProgression;
    store.locators[fingerprintOf(digit)] = locator;
    writeFile(stateDirectory(digit) / "reading-position.json",
              JSONReadingPositionRepository::encodeStore(store));
  }

  const LibraryBook& bookOf(const std::vector<LibraryBook>& books, char digit) {
    for (const LibraryBook& book : books) {
      if (book.fingerprint == fingerprintOf(digit)) return book;
    }
    throw std::runtime_error("no such book");
  }

  testing::TemporaryDirectory records_;
  testing::TemporaryDirectory state_;
  testing::TemporaryDirectory books_;
  SystemSecurityScopedBookmarkCodec codec_;
};

TEST_F(LibraryCatalogTest, ShowsEachBookFromItsRecordBookmarkAndPosition) {
  const fs::path file = addSource('1', "one.epub");
  addRecord('1', "One", 500.0);
  addPosition('1', 0.25);
  addSource('2', "two.epub");
  addRecord('2', "Two", 10.0);
  addPosition('2', 7.0);

  const std::vector<LibraryBook> books = loadLibraryBooks(locations(), codec_);
  ASSERT_EQ(books.size(), 2u);
  const LibraryBook& one = bookOf(books, '1');
  EXPECT_EQ(one.title, "One");
  EXPECT_EQ(one.authors, std::vector<std::string>{"An Author"});
  EXPECT_EQ(one.recordState, LibraryRecordState::recorded);
  EXPECT_EQ(one.availability, LibraryAvailability::available);
  EXPECT_EQ(one.sourceURL, fs::canonical(file));
  EXPECT_EQ(one.progress, 0.25);
  EXPECT_EQ(one.coverFile, recordDirectory('1') / "cover.png");
  // The position was saved after the record's date.
  EXPECT_GT(*one.lastRead, Date(500.0));
  EXPECT_EQ(bookOf(books, '2').progress, 1.0);
}

TEST_F(LibraryCatalogTest, ABrokenPieceNeverBreaksTheLibrary) {
  struct Case {
    const char* name;
    std::function<void(LibraryCatalogTest&)> arrange;
    std::string title;
    LibraryRecordState recordState;
    LibraryAvailability availability;
    std::optional<double> progress;
  };
  const Case cases[] = {
      {"OpenedBeforeTheLibrary",
       [](LibraryCatalogTest& test) { test.addSource('3', "Old Book.epub"); }, "Old Book",
       LibraryRecordState::placeholder, LibraryAvailability::available, std::nullopt},
      {"TitleRecordedBesideTheReadingData",
       [](LibraryCatalogTest& test) {
         test.addSource('3', "old.epub");
         writePublicationRecord(test.stateDirectory('3'), {"urn:x", "The Recorded Title"});
       },
       "The Recorded Title", LibraryRecordState::placeholder, LibraryAvailability::available,
       std::nullopt},
      {"RecordThatDoesNotDecode",
       [](LibraryCatalogTest& test) {
         test.addSource('3', "Broken.epub");
         writeFile(test.recordDirectory('3') / "library-record.json", "{\"schemaVersion\":");
       },
       "Broken", LibraryRecordState::placeholder, LibraryAvailability::available, std::nullopt},
      {"FileRemoved",
       [](LibraryCatalogTest& test) {
         fs::remove(test.addSource('3', "gone.epub"));
         test.addRecord('3', "Gone", 1.0);
       },
       "Gone", LibraryRecordState::recorded, LibraryAvailability::unavailable, std::nullopt},
      {"BookmarkThatDoesNotDecode",
       [](LibraryCatalogTest& test) {
         test.addRecord('3', "Lost", 1.0);
         writeFile(test.recordDirectory('3') / "source-bookmark.data", "garbage");
       },
       "Lost", LibraryRecordState::recorded, LibraryAvailability::unavailable, std::nullopt},
      {"PositionStoreThatDoesNotDecode",
       [](LibraryCatalogTest& test) {
         test.addSource('3', "b.epub");
         test.addRecord('3', "Kept", 1.0);
         writeFile(test.stateDirectory('3') / "reading-position.json", "[");
       },
       "Kept", LibraryRecordState::recorded, LibraryAvailability::available, std::nullopt},
  };
  for (const Case& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    fs::remove_all(locations().recordsRoot);
    fs::remove_all(locations().readingStateRoot);
    addSource('1', "good.epub");
    addRecord('1', "Good", 1.0);
    testCase.arrange(*this);

    const std::vector<LibraryBook> books = loadLibraryBooks(locations(), codec_);
    ASSERT_EQ(books.size(), 2u);
    EXPECT_EQ(bookOf(books, '1').title, "Good");
    const LibraryBook& book = bookOf(books, '3');
    EXPECT_EQ(book.title, testCase.title);
    EXPECT_EQ(book.recordState, testCase.recordState);
    EXPECT_EQ(book.availability, testCase.availability);
    EXPECT_EQ(book.sourceURL.has_value(), testCase.availability == LibraryAvailability::available);
    EXPECT_EQ(book.progress, testCase.progress);
    if (testCase.recordState == LibraryRecordState::placeholder) EXPECT_FALSE(book.coverFile);
  }
}

TEST_F(LibraryCatalogTest, PassesOverWhatIsNotABook) {
  writeFile(locations().recordsRoot / "not-a-fingerprint" / "source-bookmark.data", "{}");
  writeFile(recordDirectory('4') / "reading-position.json", "{}");
  writeFile(locations().recordsRoot / fingerprintOf('5'), "a file, not a directory");
  EXPECT_TRUE(loadLibraryBooks(locations(), codec_).empty());
  EXPECT_FALSE(hasLibraryBooks(locations().recordsRoot));
  EXPECT_TRUE(loadLibraryBooks({books_ / "missing", books_ / "missing"}, codec_).empty());
  EXPECT_FALSE(hasLibraryBooks(books_ / "missing"));
  addSource('6', "six.epub");
  EXPECT_TRUE(hasLibraryBooks(locations().recordsRoot));
}

TEST_F(LibraryCatalogTest, RemovingABookDeletesItsReadingDataAndItsEntry) {
  addSource('1', "one.epub");
  addRecord('1', "One", 1.0);
  addPosition('1', 0.5);
  addSource('2', "two.epub");

  async::runUntilDone(removeFromLibrary(locations(), fingerprintOf('1')));

  const std::vector<LibraryBook> books = loadLibraryBooks(locations(), codec_);
  ASSERT_EQ(books.size(), 1u);
  EXPECT_EQ(books.front().fingerprint, fingerprintOf('2'));
  EXPECT_TRUE(
      JSONReadingPositionRepository::loadStore(stateDirectory('1') / "reading-position.json")
          .locators.empty());
  EXPECT_FALSE(fs::exists(recordDirectory('1') / "library-record.json"));
  EXPECT_FALSE(fs::exists(recordDirectory('1') / "source-bookmark.data"));
  EXPECT_THROW(async::runUntilDone(removeFromLibrary(locations(), "../x")),
               PublicationStateRepositoryFailureError);
}

}  // namespace
}  // namespace tomekeeper
