// Conflict copies that file-sync engines write beside a per-book store, written here by hand.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "PersistenceTestSupport.h"
#include "persistence/ConflictCopies.h"
#include "persistence/JSONAnnotationRepository.h"
#include "persistence/JSONBookmarkRepository.h"
#include "persistence/JSONReadingPositionRepository.h"
#include "persistence/PersistenceFailures.h"
#include "persistence/StoreBackups.h"

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

const Uuid kA = uuid("00000000-0000-4000-8000-00000000000A");
const Uuid kB = uuid("00000000-0000-4000-8000-00000000000B");
const Uuid kC = uuid("00000000-0000-4000-8000-00000000000C");
const std::string kSyncthingCopy = "annotations.sync-conflict-20261124-101010-ABCDEFG.json";
const std::string kNextcloudCopy = "annotations (conflicted copy 2026-11-24 101010).json";

Annotation annotation(Uuid id, double modifiedAt, std::string note,
                      std::string fingerprint = kFingerprint) {
  Annotation result = testing::makeAnnotation(id, 1, std::move(fingerprint));
  result.note = std::move(note);
  result.modifiedAt = Date(modifiedAt);
  return result;
}

std::string annotationStore(const std::vector<Annotation>& annotations) {
  JSONAnnotationRepository::Store store;
  for (const Annotation& each : annotations) {
    store.annotationsByFingerprint[each.bookFingerprint].push_back(each);
  }
  return JSONAnnotationRepository::encodeStore(store);
}

void setModificationTime(const std::filesystem::path& file, time_t seconds) {
  const timespec times[2] = {{seconds, 0}, {seconds, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0) << file;
}

class ConflictCopiesTest : public ::testing::Test {
 protected:
  std::filesystem::path file(const std::string& name) const { return directory_ / name; }

  testing::TemporaryDirectory temporary_;
  std::filesystem::path directory_ = temporary_ / "Publications" / kFingerprint;
};

TEST_F(ConflictCopiesTest, RecognisesTheCopiesOfTheCommonEngines) {
  const struct {
    const char* name;
    bool isCopy;
  } cases[] = {
      {"bookmarks.sync-conflict-20261124-101010-ABCDEFG.json", true},
      {"bookmarks (conflicted copy 2026-11-24 101010).json", true},
      {"bookmarks (Ada's conflicted copy 2026-11-24).json", true},
      {"bookmarks_conflict-20261124-101010.json", true},
      {"bookmarks.json", false},
      {"bookmarks.json.1", false},
      {"bookmarks.sync-conflict-20261124-101010-ABCDEFG.json.1", false},
      {"bookmarks.json.sync-conflict-20261124-101010-ABCDEFG", false},
      {"annotations.sync-conflict-20261124-101010-ABCDEFG.json", false},
      {"bookmarks_conflict-.json", false},
      {"bookmarks (copy 2).json", false},
      {".bookmarks.json.tmp-Ab12Cd", false},
      {"bookmarks.sync-conflict-20261124-101010-ABCDEFG.txt", false},
  };
  for (const auto& testCase : cases) {
    EXPECT_EQ(isConflictCopyName(testCase.name, "bookmarks.json"), testCase.isCopy)
        << testCase.name;
  }
}

// Each case: the store and one conflict copy of the annotations; the merge keeps per id the
// version changed last, the store's on a tie, and every record that only one side has.
TEST_F(ConflictCopiesTest, MergesAnnotationsByIdKeepingTheNewestVersion) {
  const struct {
    const char* name;
    std::vector<Annotation> store;
    std::vector<Annotation> copy;
    std::vector<Annotation> merged;
  } cases[] = {
      {"TheCopyChangedItLater",
       {annotation(kA, 1, "old")},
       {annotation(kA, 2, "new")},
       {annotation(kA, 2, "new")}},
      {"TheStoreChangedItLater",
       {annotation(kA, 3, "new")},
       {annotation(kA, 2, "old")},
       {annotation(kA, 3, "new")}},
      {"ATieKeepsTheStoresVersion",
       {annotation(kA, 2, "here")},
       {annotation(kA, 2, "there")},
       {annotation(kA, 2, "here")}},
      {"RecordsOfEitherSideAreKept",
       {annotation(kA, 1, "a"), annotation(kB, 1, "b")},
       {annotation(kC, 1, "c"), annotation(kB, 1, "b")},
       {annotation(kA, 1, "a"), annotation(kB, 1, "b"), annotation(kC, 1, "c")}},
      {"NoStoreYet", {}, {annotation(kC, 1, "c")}, {annotation(kC, 1, "c")}},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    std::filesystem::remove_all(directory_);
    if (!testCase.store.empty()) {
      writeFile(file("annotations.json"), annotationStore(testCase.store));
    }
    writeFile(file(kSyncthingCopy), annotationStore(testCase.copy));

    // Through the repository, as a book being opened reads it.
    JSONAnnotationRepository repository(file("annotations.json"));
    EXPECT_EQ(await(repository.annotations(kFingerprint)), testCase.merged);
    EXPECT_FALSE(std::filesystem::exists(file(kSyncthingCopy)));
    EXPECT_EQ(readFile(file("conflicts/" + kSyncthingCopy)), annotationStore(testCase.copy));
    // What the merge replaced is kept as a backup; a merge that changed nothing replaced nothing.
    const bool replaced = !testCase.store.empty() && testCase.merged != testCase.store;
    EXPECT_EQ(std::filesystem::exists(storeBackupFile(file("annotations.json"), 1)), replaced);
    if (replaced) {
      EXPECT_EQ(readFile(storeBackupFile(file("annotations.json"), 1)),
                annotationStore(testCase.store));
    }
  }
}

TEST_F(ConflictCopiesTest, MergesTwoCopiesOfEachStore) {
  writeFile(file("annotations.json"),
            annotationStore({annotation(kA, 1, "a"), annotation(kB, 5, "b", kOtherFingerprint)}));
  writeFile(file(kSyncthingCopy), annotationStore({annotation(kA, 4, "a, later")}));
  writeFile(file(kNextcloudCopy), annotationStore({annotation(kB, 2, "b, older", kOtherFingerprint),
                                                   annotation(kC, 1, "c")}));
  JSONBookmarkRepository::Store bookmarks;
  bookmarks.bookmarksByFingerprint[kFingerprint] = {testing::makeBookmark(kA, 1)};
  writeFile(file("bookmarks.json"), JSONBookmarkRepository::encodeStore(bookmarks));
  bookmarks.bookmarksByFingerprint[kFingerprint] = {testing::makeBookmark(kB, 2)};
  writeFile(file("bookmarks_conflict-20261124-101010.json"),
            JSONBookmarkRepository::encodeStore(bookmarks));
  // Each book's position comes from the file changed last.
  JSONReadingPositionRepository::Store positions;
  positions.locators = {{kFingerprint, testing::locatorAt(1, 0.1)},
                        {kOtherFingerprint, testing::locatorAt(9, 0.9)}};
  writeFile(file("reading-position.json"), JSONReadingPositionRepository::encodeStore(positions));
  setModificationTime(file("reading-position.json"), 1'700'000'000);
  positions.locators = {{kFingerprint, testing::locatorAt(4, 0.4)}};
  writeFile(file("reading-position (conflicted copy).json"),
            JSONReadingPositionRepository::encodeStore(positions));
  setModificationTime(file("reading-position (conflicted copy).json"), 1'700'000'100);
  positions.locators = {{kFingerprint, testing::locatorAt(2, 0.2)}};
  writeFile(file("reading-position.sync-conflict-20261124-101010-ABCDEFG.json"),
            JSONReadingPositionRepository::encodeStore(positions));
  setModificationTime(file("reading-position.sync-conflict-20261124-101010-ABCDEFG.json"),
                      1'700'000'050);

  const ConflictMergeOutcome outcome = mergeConflictCopiesIn(directory_);
  EXPECT_EQ(outcome.mergedCopies.size(), 5u);
  EXPECT_TRUE(outcome.copiesLeftInPlace.empty());
  for (const auto& moved : outcome.mergedCopies) {
    EXPECT_EQ(moved.parent_path(), directory_ / "conflicts");
    EXPECT_FALSE(std::filesystem::exists(directory_ / moved.filename()));
  }
  const auto annotations = JSONAnnotationRepository::loadStore(file("annotations.json"));
  EXPECT_EQ(annotations.annotationsByFingerprint.at(kFingerprint),
            (std::vector{annotation(kA, 4, "a, later"), annotation(kC, 1, "c")}));
  EXPECT_EQ(annotations.annotationsByFingerprint.at(kOtherFingerprint),
            std::vector{annotation(kB, 5, "b", kOtherFingerprint)});
  EXPECT_EQ(JSONBookmarkRepository::loadStore(file("bookmarks.json"))
                .bookmarksByFingerprint.at(kFingerprint),
            (std::vector{testing::makeBookmark(kA, 1), testing::makeBookmark(kB, 2)}));
  const auto locators = JSONReadingPositionRepository::loadStore(file("reading-position.json"));
  EXPECT_EQ(locators.locators.at(kFingerprint), testing::locatorAt(4, 0.4));
  EXPECT_EQ(locators.locators.at(kOtherFingerprint), testing::locatorAt(9, 0.9));
  // A second pass finds nothing more to do.
  EXPECT_EQ(mergeConflictCopiesIn(directory_), ConflictMergeOutcome{});
}

// A copy that does not decode stays where it is, and so does every copy of a store that does not
// decode: that store keeps failing as before, untouched.
TEST_F(ConflictCopiesTest, CopiesThatCannotBeMergedAreLeftInPlace) {
  const std::string good = annotationStore({annotation(kA, 1, "a")});
  const std::string broken = good.substr(0, good.size() / 2);
  const struct {
    const char* name;
    std::string store;
    std::string copy;
  } cases[] = {
      {"ABrokenCopy", good, broken},
      {"ACopyOfAnUnknownSchema", good, R"({"schemaVersion":2,"annotationsByFingerprint":{}})"},
      {"ACopyOfABrokenStore", broken, good},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    std::filesystem::remove_all(directory_);
    writeFile(file("annotations.json"), testCase.store);
    writeFile(file(kNextcloudCopy), testCase.copy);
    const FileSnapshot before = FileSnapshot::of(file("annotations.json"));
    const ConflictMergeOutcome outcome =
        mergeConflictCopies(PublicationStore::annotations, file("annotations.json"));
    EXPECT_EQ(outcome.copiesLeftInPlace, std::vector{file(kNextcloudCopy)});
    EXPECT_TRUE(outcome.mergedCopies.empty());
    EXPECT_EQ(FileSnapshot::of(file("annotations.json")), before);
    EXPECT_EQ(readFile(file(kNextcloudCopy)), testCase.copy);
    EXPECT_FALSE(std::filesystem::exists(file("conflicts")));
  }
}

TEST_F(ConflictCopiesTest, ACopyIsNeverMovedOverOneAlreadySetAside) {
  writeFile(file("annotations.json"), annotationStore({annotation(kA, 1, "a")}));
  writeFile(file("conflicts/" + kSyncthingCopy), "an earlier copy of the same name");
  writeFile(file(kSyncthingCopy), annotationStore({annotation(kB, 1, "b")}));
  const ConflictMergeOutcome outcome =
      mergeConflictCopies(PublicationStore::annotations, file("annotations.json"));
  EXPECT_EQ(outcome.mergedCopies, std::vector{file("conflicts/" + kSyncthingCopy + ".1")});
  EXPECT_EQ(readFile(file("conflicts/" + kSyncthingCopy)), "an earlier copy of the same name");
  EXPECT_EQ(readFile(outcome.mergedCopies.front()), annotationStore({annotation(kB, 1, "b")}));
}

}  // namespace
}  // namespace tomekeeper
