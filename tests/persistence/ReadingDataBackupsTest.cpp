// Rolling backups of the per-book stores, and finding and restoring the newest one that decodes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <map>

#include "PersistenceTestSupport.h"
#include "persistence/JSONAnnotationRepository.h"
#include "persistence/JSONBookmarkRepository.h"
#include "persistence/JSONReadingPositionRepository.h"
#include "persistence/PersistenceFailures.h"
#include "persistence/ReadingDataBackups.h"
#include "persistence/StoreBackups.h"
#include "support/FaultInjectingFileSystem.h"

namespace tomekeeper {
namespace {

using testing::await;
using testing::expectFailure;
using testing::FileSnapshot;
using testing::kFingerprint;
using testing::kOtherFingerprint;
using testing::readFile;
using testing::uuid;
using testing::writeFile;

const Uuid kFirst = uuid("00000000-0000-4000-8000-000000000001");
const Uuid kSecond = uuid("00000000-0000-4000-8000-000000000002");
const std::string kBroken = R"({"schemaVersion":1,"bookmarksByFingerprint":)";

// Generation (0 for the store itself) to contents; a generation that is absent has no file.
using Files = std::map<int, std::string>;

class ReadingDataBackupsTest : public ::testing::Test {
 protected:
  std::filesystem::path file(std::string_view name, int generation = 0) const {
    const std::filesystem::path store = directory_ / name;
    return generation == 0 ? store : storeBackupFile(store, generation);
  }

  Files filesOf(std::string_view name) const {
    Files files;
    for (int generation = 0; generation <= kStoreBackupCount + 1; ++generation) {
      if (std::filesystem::exists(file(name, generation))) {
        files[generation] = readFile(file(name, generation));
      }
    }
    return files;
  }

  void writeFiles(std::string_view name, const Files& files) const {
    for (const auto& [generation, contents] : files) writeFile(file(name, generation), contents);
  }

  static std::string bookmarkStore(std::vector<Bookmark> bookmarks) {
    JSONBookmarkRepository::Store store;
    for (Bookmark& bookmark : bookmarks) {
      store.bookmarksByFingerprint[bookmark.bookFingerprint].push_back(std::move(bookmark));
    }
    return JSONBookmarkRepository::encodeStore(store);
  }

  testing::TemporaryDirectory temporary_;
  std::filesystem::path directory_ = temporary_ / "Publications" / kFingerprint;
};

TEST_F(ReadingDataBackupsTest, EachReplacementRotatesThePreviousVersions) {
  const struct {
    const char* name;
    Files before;
    std::vector<std::string> saves;
    Files after;
  } cases[] = {
      {"FirstSaveKeepsNothing", {}, {"a"}, {{0, "a"}}},
      {"SecondSaveKeepsTheFirst", {}, {"a", "b"}, {{0, "b"}, {1, "a"}}},
      {"FifthSaveDropsTheOldest",
       {},
       {"a", "b", "c", "d", "e"},
       {{0, "e"}, {1, "d"}, {2, "c"}, {3, "b"}}},
      {"AnUnchangedSaveRotatesNothing", {}, {"a", "b", "b"}, {{0, "b"}, {1, "a"}}},
      {"AMissingGenerationIsSkipped", {{0, "b"}, {2, "x"}}, {"c"}, {{0, "c"}, {1, "b"}, {3, "x"}}},
      {"AFourthFileIsNeverMade",
       {{0, "d"}, {1, "c"}, {2, "b"}, {3, "a"}},
       {"e"},
       {{0, "e"}, {1, "d"}, {2, "c"}, {3, "b"}}},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    std::filesystem::remove_all(directory_);
    writeFiles("bookmarks.json", testCase.before);
    for (const std::string& contents : testCase.saves) {
      replaceStoreKeepingBackups(file("bookmarks.json"), contents);
    }
    EXPECT_EQ(filesOf("bookmarks.json"), testCase.after);
  }
}

// A step of the rotation fails: the save fails as any failed write does, and the store keeps
// the version it had.
TEST_F(ReadingDataBackupsTest, AFailedRotationFailsTheSaveAndKeepsTheStore) {
  JSONBookmarkRepository repository(file("bookmarks.json"));
  for (double date : {1.0, 2.0, 3.0})
    await(repository.save(testing::makeBookmark(Uuid::random(), date)));
  const FileSnapshot before = FileSnapshot::of(file("bookmarks.json"));
  for (const testing::FileFault& fault : std::initializer_list<testing::FileFault>{
           {testing::FileOperation::rename, EACCES, "bookmarks.json.3"},
           {testing::FileOperation::rename, EIO, "bookmarks.json.2"},
           {testing::FileOperation::write, ENOSPC, ".bookmarks.json.1.tmp-"},
           {testing::FileOperation::rename, EACCES, "bookmarks.json.1"},
       }) {
    SCOPED_TRACE(fault.pathContains);
    testing::FaultInjectingFileSystem fileSystem({fault});
    expectFailure(repository.save(testing::makeBookmark(kFirst, 9)),
                  BookmarkPersistenceFailure::cannotWrite);
    EXPECT_GE(fileSystem.injectedFailures(), 1);
    EXPECT_EQ(FileSnapshot::of(file("bookmarks.json")), before);
  }
}

TEST_F(ReadingDataBackupsTest, OffersTheNewestBackupThatDecodes) {
  const std::string one = bookmarkStore({testing::makeBookmark(kFirst, 1)});
  const std::string two =
      bookmarkStore({testing::makeBookmark(kFirst, 1), testing::makeBookmark(kSecond, 2),
                     testing::makeBookmark(kFirst, 3, kOtherFingerprint)});
  const std::string unsupported = R"({"schemaVersion":2,"bookmarksByFingerprint":{}})";
  const struct {
    const char* name;
    Files files;
    std::optional<int> generation;
    std::size_t count;
    bool currentStoreDecodes;
  } cases[] = {
      {"TheNewestWhenItDecodes", {{0, one}, {1, two}, {2, one}}, 1, 2, true},
      {"PassesOverABrokenBackup", {{0, one}, {1, kBroken}, {2, one}}, 2, 1, true},
      {"PassesOverAnUnknownSchema", {{0, one}, {1, unsupported}, {3, two}}, 3, 2, true},
      {"OffersBackupsOfABrokenStore", {{0, kBroken}, {1, one}}, 1, 1, false},
      {"OffersBackupsWhenTheStoreIsGone", {{2, two}}, 2, 2, true},
      {"NothingWhenNoBackupDecodes", {{0, one}, {1, kBroken}, {2, unsupported}}, {}, 0, true},
      {"NothingWithoutBackups", {{0, one}}, {}, 0, true},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    std::filesystem::remove_all(directory_);
    writeFiles("bookmarks.json", testCase.files);
    const ReadingDataBackupOffer offer = findReadingDataBackups(directory_, kFingerprint);
    const StoreBackupSummary* found = offer.find(PublicationStore::bookmarks);
    ASSERT_EQ(found != nullptr, testCase.generation.has_value());
    EXPECT_EQ(offer.stores.size(), testCase.generation ? 1u : 0u);
    if (!found) continue;
    EXPECT_EQ(found->generation, *testCase.generation);
    EXPECT_EQ(found->backupFile, file("bookmarks.json", *testCase.generation));
    EXPECT_EQ(offer.bookmarkCount(), testCase.count);
    EXPECT_EQ(found->currentStoreDecodes, testCase.currentStoreDecodes);
  }
}

// Saves through each repository keep backups; the offer counts what the newest holds.
TEST_F(ReadingDataBackupsTest, TheOfferTellsCountsAndTheDateOfEachStoresBackup) {
  JSONBookmarkRepository bookmarks(file("bookmarks.json"));
  JSONAnnotationRepository annotations(file("annotations.json"));
  JSONReadingPositionRepository position(file("reading-position.json"));
  for (int round = 1; round <= 3; ++round) {
    await(bookmarks.save(testing::makeBookmark(Uuid::random(), round)));
    await(annotations.save(testing::makeAnnotation(Uuid::random(), round)));
    await(position.save(testing::locatorAt(round, 0.1), kFingerprint));
  }
  // 2023-11-14T22:13:20Z, and a second later.
  const timespec older[2] = {{1'700'000'000, 0}, {1'700'000'000, 0}};
  const timespec newer[2] = {{1'700'000'001, 0}, {1'700'000'001, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, file("annotations.json", 1).c_str(), older, 0), 0);
  ASSERT_EQ(::utimensat(AT_FDCWD, file("bookmarks.json", 1).c_str(), older, 0), 0);
  ASSERT_EQ(::utimensat(AT_FDCWD, file("reading-position.json", 1).c_str(), newer, 0), 0);

  const ReadingDataBackupOffer offer = findReadingDataBackups(directory_, kFingerprint);
  EXPECT_EQ(offer.stores.size(), 3u);
  EXPECT_EQ(offer.annotationCount(), 2u);
  EXPECT_EQ(offer.bookmarkCount(), 2u);
  EXPECT_TRUE(offer.hasReadingPosition());
  EXPECT_EQ(JSONReadingPositionRepository::loadStore(file("reading-position.json", 1))
                .locators.at(kFingerprint),
            testing::locatorAt(2, 0.1));
  EXPECT_EQ(offer.find(PublicationStore::annotations)->savedAt,
            Date(1'700'000'000 - Date::kReferenceDateSinceUnixEpoch));
  EXPECT_EQ(offer.savedAt(), Date(1'700'000'001 - Date::kReferenceDateSinceUnixEpoch));
}

// The store is broken by hand: it stays broken until the reader restores, and the broken text
// is kept as the newest backup, so restoring loses nothing.
TEST_F(ReadingDataBackupsTest, RestoreBringsBackTheBackupAndKeepsWhatItReplaced) {
  JSONBookmarkRepository repository(file("bookmarks.json"));
  await(repository.save(testing::makeBookmark(kFirst, 1)));
  await(repository.save(testing::makeBookmark(kSecond, 2)));
  writeFile(file("bookmarks.json"), kBroken);
  expectFailure(repository.bookmarks(kFingerprint), BookmarkPersistenceFailure::invalidStore);

  const ReadingDataBackupOffer offer = findReadingDataBackups(directory_, kFingerprint);
  ASSERT_EQ(offer.bookmarkCount(), 1u);
  restoreReadingDataBackups(offer);
  EXPECT_EQ(await(repository.bookmarks(kFingerprint)),
            std::vector{testing::makeBookmark(kFirst, 1)});
  EXPECT_EQ(readFile(file("bookmarks.json", 1)), kBroken);
  EXPECT_EQ(readFile(file("bookmarks.json", 2)), readFile(file("bookmarks.json")));
}

TEST_F(ReadingDataBackupsTest, ABackupBrokenSinceTheOfferIsNotRestored) {
  JSONBookmarkRepository repository(file("bookmarks.json"));
  await(repository.save(testing::makeBookmark(kFirst, 1)));
  await(repository.save(testing::makeBookmark(kSecond, 2)));
  const ReadingDataBackupOffer offer = findReadingDataBackups(directory_, kFingerprint);
  writeFile(file("bookmarks.json", 1), kBroken);
  const FileSnapshot before = FileSnapshot::of(file("bookmarks.json"));
  try {
    restoreReadingDataBackups(offer);
    ADD_FAILURE() << "a broken backup was restored";
  } catch (const FailureError<ReadingDataRestoreFailure>& error) {
    EXPECT_EQ(error.failure(), ReadingDataRestoreFailure::backupUnreadable);
  }
  EXPECT_EQ(FileSnapshot::of(file("bookmarks.json")), before);
}

}  // namespace
}  // namespace tomekeeper
