// Library records made from a prepared book: a package document and its cover as an extraction
// leaves them.
#include "library/LibraryRecording.h"

#include <gtest/gtest.h>

#include "LibraryTestSupport.h"
#include "async/RunUntilDone.h"
#include "library/PackageMetadata.h"
#include "persistence/PersistenceFailures.h"
#include "support/EpubBuilder.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper {
namespace {

namespace fs = std::filesystem;
using testing::writeFile;

class LibraryRecordingTest : public ::testing::Test {
 protected:
  // Writes the package and `files` (paths relative to the root) as an extraction would.
  PreparedBook prepare(const testing::PackageDescription& package,
                       const std::vector<std::pair<std::string, std::string>>& files = {}) {
    writeFile(extraction_ / testing::EpubBuilder::kPackageDocumentPath, package.text());
    for (const auto& [name, contents] : files) writeFile(extraction_ / name, contents);
    return PreparedBook{testing::fingerprintOf('a'), extraction_.path(),
                        testing::EpubBuilder::kPackageDocumentPath, "/books/The Book.epub"};
  }

  static testing::PackageDescription packageWithCover(const std::string& href,
                                                      const std::string& mediaType) {
    testing::PackageDescription package;
    package.title = "  The   Red Room ";
    package.creators = {"H. G. Wells", "A. N. Other"};
    package.language = "en-GB";
    package.withChapters(1);
    package.manifest.push_back({"cover", href, mediaType, "cover-image"});
    return package;
  }

  fs::path directory() const { return publications_ / testing::fingerprintOf('a'); }

  testing::TemporaryDirectory extraction_;
  testing::TemporaryDirectory publications_;
};

TEST_F(LibraryRecordingTest, WritesTheRecordAndAScaledCoverThatReadBack) {
  const PreparedBook book =
      prepare(packageWithCover("images/cover.jpg", "image/jpeg"),
              {{"OEBPS/images/cover.jpg", testing::encodedImage(800, 1200, "jpeg")}});
  const LibraryRecord written = recordPreparedBook(publications_.path(), book, Date(1000.0));

  EXPECT_EQ(written.title, "The Red Room");
  EXPECT_EQ(written.authors, (std::vector<std::string>{"H. G. Wells", "A. N. Other"}));
  EXPECT_EQ(written.language, "en-GB");
  EXPECT_EQ(written.sourceFileName, "The Book.epub");
  EXPECT_EQ(written.sourceBookmark, "source-bookmark.data");
  ASSERT_EQ(written.cover, std::optional<std::string>("cover.png"));
  EXPECT_EQ(readLibraryRecord(directory()), written);
  EXPECT_EQ(testing::imageSize(directory() / "cover.png"), (std::pair<int, int>{341, 512}));
  // Only complete files are left behind.
  for (const auto& entry : fs::directory_iterator(directory())) {
    EXPECT_NE(entry.path().filename().string().front(), '.') << entry.path();
  }
}

TEST_F(LibraryRecordingTest, RecordsTheBookTheOpenRoadPrepared) {
  testing::PackageDescription package;
  package.title = "Prepared";
  package.withChapters(1);
  writeFile(extraction_ / "My Book/package.opf", package.text());
  PreparedPublicationResources resources;
  resources.fingerprint = testing::fingerprintOf('a');
  resources.extractedRoot = extraction_.path();
  resources.descriptor.publicationID = Uuid::random();
  resources.descriptor.packageURL = "tomekeeper://publication/" +
                                    resources.descriptor.publicationID.string() +
                                    "/My%20Book/package.opf";
  EXPECT_EQ(packageDocumentPathOf(resources.descriptor), "My Book/package.opf");

  async::runUntilDone(recordOpenedBook(publications_.path(), resources, "/books/b.epub"));
  EXPECT_EQ(readLibraryRecord(directory())->title, "Prepared");

  // A book that cannot be recorded is logged, and its open goes on.
  resources.descriptor.packageURL = "tomekeeper://publication/x/missing.opf";
  async::runUntilDone(recordOpenedBook(publications_.path(), resources, "/books/b.epub"));
  EXPECT_EQ(readLibraryRecord(directory())->title, "Prepared");
}

TEST_F(LibraryRecordingTest, CoversThatCannotServeLeaveTheRecordWithoutOne) {
  const std::string svg = "<svg xmlns='http://www.w3.org/2000/svg' width='9' height='9'/>";
  struct Case {
    const char* name;
    std::vector<std::pair<std::string, std::string>> files;
    std::optional<std::pair<int, int>> thumbnailSize;
    std::string href = "cover.png";
    std::string mediaType = "image/png";
  };
  const Case cases[] = {
      {"SmallCoverKeepsItsSize",
       {{"OEBPS/cover.png", testing::encodedImage(200, 100, "png")}},
       std::pair{200, 100}},
      {"MissingFile", {}, std::nullopt},
      {"NotAnImage", {{"OEBPS/cover.png", "not a picture"}}, std::nullopt},
      {"SVGIsNeverDecoded", {{"OEBPS/cover.svg", svg}}, std::nullopt, "cover.svg", "image/svg+xml"},
      {"SVGContentUnderARasterType", {{"OEBPS/cover.png", svg}}, std::nullopt},
      {"OutsideTheRoot",
       {{"outside.png", testing::encodedImage(10, 10, "png")}},
       std::nullopt,
       "../../outside.png"},
  };
  for (const Case& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    fs::remove_all(directory());
    for (const auto& entry : fs::directory_iterator(extraction_.path())) fs::remove_all(entry);
    const PreparedBook book =
        prepare(packageWithCover(testCase.href, testCase.mediaType), testCase.files);
    const LibraryRecord written = recordPreparedBook(publications_.path(), book, Date(1.0));
    EXPECT_EQ(written.title, "The Red Room");
    EXPECT_EQ(written.cover.has_value(), testCase.thumbnailSize.has_value());
    if (testCase.thumbnailSize) {
      EXPECT_EQ(testing::imageSize(directory() / "cover.png"), *testCase.thumbnailSize);
    } else {
      EXPECT_FALSE(fs::exists(directory() / "cover.png"));
    }
  }
}

TEST_F(LibraryRecordingTest, OlderBooksNameTheirCoverInAMetaElement) {
  testing::PackageDescription package;
  package.withChapters(1);
  package.extraMetadata = "    <meta name=\"cover\" content=\"art\"/>\n";
  package.manifest.push_back({"art", "Cover%20Art.png", "image/png"});
  const PreparedBook book =
      prepare(package, {{"OEBPS/Cover Art.png", testing::encodedImage(30, 40, "png")}});
  EXPECT_TRUE(recordPreparedBook(publications_.path(), book, Date(1.0)).cover);
}

TEST_F(LibraryRecordingTest, ALaterOpenKeepsTheThumbnailAndMovesTheDate) {
  const PreparedBook book = prepare(packageWithCover("cover.png", "image/png"),
                                    {{"OEBPS/cover.png", testing::encodedImage(20, 20, "png")}});
  recordPreparedBook(publications_.path(), book, Date(1.0));
  fs::remove(extraction_ / "OEBPS/cover.png");
  EXPECT_TRUE(recordPreparedBook(publications_.path(), book, Date(2.0)).cover);

  touchLibraryRecord(directory(), Date(3.0));
  EXPECT_EQ(readLibraryRecord(directory())->lastOpened, Date(3.0));
}

TEST_F(LibraryRecordingTest, RefusesWhatCannotBeRecordedAndKeepsTheOldRecord) {
  const PreparedBook good = prepare(packageWithCover("cover.png", "image/png"));
  const LibraryRecord old = recordPreparedBook(publications_.path(), good, Date(1.0));

  PreparedBook invalid = good;
  invalid.fingerprint = "../escape";
  EXPECT_THROW(recordPreparedBook(publications_.path(), invalid, Date(2.0)),
               PublicationStateRepositoryFailureError);

  writeFile(extraction_ / testing::EpubBuilder::kPackageDocumentPath, "<package><unclosed>");
  EXPECT_THROW(recordPreparedBook(publications_.path(), good, Date(2.0)), PackageMetadataError);
  writeFile(extraction_ / testing::EpubBuilder::kPackageDocumentPath,
            "<!DOCTYPE p [<!ENTITY x \"y\">]><package>&x;</package>");
  EXPECT_THROW(recordPreparedBook(publications_.path(), good, Date(2.0)), PackageMetadataError);
  EXPECT_EQ(readLibraryRecord(directory()), old);
}

TEST_F(LibraryRecordingTest, BrokenRecordsAreRefusedWhenRead) {
  struct Case {
    const char* name;
    std::string contents;
  };
  const Case cases[] = {
      {"NotJSON", "{"},
      {"NotAnObject", "[]"},
      {"OtherSchema", R"({"schemaVersion":2})"},
      {"MissingTitle",
       R"({"schemaVersion":1,"authors":[],"language":"","lastOpened":0,"sourceBookmark":"b","sourceFileName":""})"},
      {"WrongType",
       R"({"schemaVersion":1,"title":3,"authors":[],"language":"","lastOpened":0,"sourceBookmark":"b","sourceFileName":""})"},
      {"CoverOutsideTheDirectory",
       R"({"schemaVersion":1,"title":"","authors":[],"language":"","lastOpened":0,"sourceBookmark":"b","sourceFileName":"","cover":"../x.png"})"},
      {"BookmarkOutsideTheDirectory",
       R"({"schemaVersion":1,"title":"","authors":[],"language":"","lastOpened":0,"sourceBookmark":"/etc/passwd","sourceFileName":""})"},
  };
  for (const Case& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    writeFile(directory() / "library-record.json", testCase.contents);
    try {
      readLibraryRecord(directory());
      ADD_FAILURE() << "read a broken record";
    } catch (const LibraryRecordFailureError& failure) {
      EXPECT_EQ(failure.failure(), LibraryRecordFailure::corruptRecord);
    }
  }
}

}  // namespace
}  // namespace tomekeeper
