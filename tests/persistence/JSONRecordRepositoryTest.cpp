// The bookmark and annotation stores behave alike but for their names and their failure tables,
// which differ on purpose: each traits type below states its own table.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "PersistenceTestSupport.h"
#include "support/FaultInjectingFileSystem.h"
#include "async/Spawn.h"
#include "persistence/JSONAnnotationRepository.h"
#include "persistence/JSONBookmarkRepository.h"
#include "persistence/PersistenceFailures.h"

namespace tomekeeper {
namespace {

using nlohmann::json;
using testing::await;
using testing::expectFailure;
using testing::FileSnapshot;
using testing::kFingerprint;
using testing::kOtherFingerprint;
using testing::readJSONFile;
using testing::TemporaryDirectory;
using testing::uuid;
using testing::writeFile;

struct BookmarkStore {
  using Repository = JSONBookmarkRepository;
  using Record = Bookmark;
  using Failure = BookmarkPersistenceFailure;
  static constexpr const char* kFileName = "bookmarks.json";
  static constexpr const char* kListKey = "bookmarksByFingerprint";
  static constexpr Failure kInvalidFingerprint = Failure::invalidStore;
  static constexpr Failure kUnreadable = Failure::invalidStore;
  static constexpr Failure kUndecodable = Failure::invalidStore;
  static constexpr Failure kUnsupportedSchema = Failure::unsupportedSchema;
  static constexpr Failure kCannotWrite = Failure::cannotWrite;

  static Record make(Uuid id, double createdAt, std::string fingerprint = kFingerprint) {
    return testing::makeBookmark(id, createdAt, std::move(fingerprint));
  }
  static Record changed(Record record) {
    record.title = "Renamed";
    return record;
  }
  static async::Task<std::vector<Record>> list(Repository& repository, std::string fingerprint) {
    return repository.bookmarks(std::move(fingerprint));
  }
  static async::Task<void> remove(Repository& repository, Uuid id, std::string fingerprint) {
    return repository.deleteBookmark(id, std::move(fingerprint));
  }
};

struct AnnotationStore {
  using Repository = JSONAnnotationRepository;
  using Record = Annotation;
  using Failure = AnnotationPersistenceFailure;
  static constexpr const char* kFileName = "annotations.json";
  static constexpr const char* kListKey = "annotationsByFingerprint";
  static constexpr Failure kInvalidFingerprint = Failure::invalidFingerprint;
  static constexpr Failure kUnreadable = Failure::corruptStore;
  static constexpr Failure kUndecodable = Failure::corruptStore;
  static constexpr Failure kUnsupportedSchema = Failure::unsupportedSchema;
  static constexpr Failure kCannotWrite = Failure::cannotWrite;

  static Record make(Uuid id, double createdAt, std::string fingerprint = kFingerprint) {
    return testing::makeAnnotation(id, createdAt, std::move(fingerprint));
  }
  static Record changed(Record record) {
    return record.withNote("A changed note",
                           Date(record.modifiedAt.secondsSinceReferenceDate() + 5));
  }
  static async::Task<std::vector<Record>> list(Repository& repository, std::string fingerprint) {
    return repository.annotations(std::move(fingerprint));
  }
  static async::Task<void> remove(Repository& repository, Uuid id, std::string fingerprint) {
    return repository.deleteAnnotation(id, std::move(fingerprint));
  }
};

const Uuid kFirst = uuid("00000000-0000-4000-8000-000000000001");
const Uuid kSecond = uuid("00000000-0000-4000-8000-000000000002");
const Uuid kThird = uuid("00000000-0000-4000-8000-000000000003");

template <typename Store>
class JSONRecordRepositoryTest : public ::testing::Test {
 protected:
  using Record = typename Store::Record;
  using Failure = typename Store::Failure;

  std::filesystem::path file() const { return repository.fileURL(); }
  std::vector<Record> list(const std::string& fingerprint = kFingerprint) {
    return await(Store::list(repository, fingerprint));
  }
  // The stored array of `fingerprint`, in file order.
  std::vector<Record> stored(const std::string& fingerprint = kFingerprint) {
    return decodeJSON<std::vector<Record>>(readJSONFile(file())[Store::kListKey][fingerprint]);
  }
  std::string storeText(const std::string& lists) {
    return R"({"schemaVersion":1,")" + std::string(Store::kListKey) + R"(":)" + lists + "}";
  }

  // Every read and mutation fails with `failure`, and the file stays as it was on disk.
  void expectEveryOperationFailsAndLeavesTheFile(Failure failure) {
    const FileSnapshot before = FileSnapshot::of(file());
    expectFailure(Store::list(repository, kFingerprint), failure);
    expectFailure(repository.save(Store::make(kFirst, 1)), failure);
    expectFailure(Store::remove(repository, kFirst, kFingerprint), failure);
    expectFailure(repository.deleteAll(kFingerprint), failure);
    EXPECT_EQ(FileSnapshot::of(file()), before);
  }

  TemporaryDirectory directory;
  typename Store::Repository repository{directory / "Publications" / kFingerprint /
                                        Store::kFileName};
};

using Stores = ::testing::Types<BookmarkStore, AnnotationStore>;
class StoreNames {
 public:
  template <typename T>
  static std::string GetName(int) {
    return std::is_same_v<T, BookmarkStore> ? "Bookmarks" : "Annotations";
  }
};
TYPED_TEST_SUITE(JSONRecordRepositoryTest, Stores, StoreNames);

TYPED_TEST(JSONRecordRepositoryTest, AMissingFileReadsAsAnEmptyList) {
  EXPECT_TRUE(this->list().empty());
  EXPECT_FALSE(std::filesystem::exists(this->file().parent_path()));
}

TYPED_TEST(JSONRecordRepositoryTest, TheFirstSaveCreatesTheDirectoryAndTheStore) {
  const auto record = TypeParam::make(kFirst, 100);
  await(this->repository.save(record));
  const json store = readJSONFile(this->file());
  EXPECT_EQ(store["schemaVersion"], 1);
  EXPECT_EQ(store.size(), 2u);
  EXPECT_EQ(store[TypeParam::kListKey].size(), 1u);
  EXPECT_EQ(this->stored(), std::vector{record});
  EXPECT_EQ(this->list(), std::vector{record});
}

TYPED_TEST(JSONRecordRepositoryTest, RefusesAFingerprintThatBreaksTheRuleBeforeTouchingTheFile) {
  for (const std::string& fingerprint :
       {std::string(63, 'a'), std::string(65, 'a'), std::string(63, 'a') + "A", std::string()}) {
    SCOPED_TRACE(fingerprint);
    expectFailure(TypeParam::list(this->repository, fingerprint), TypeParam::kInvalidFingerprint);
    expectFailure(this->repository.save(TypeParam::make(kFirst, 1, fingerprint)),
                  TypeParam::kInvalidFingerprint);
    expectFailure(TypeParam::remove(this->repository, kFirst, fingerprint),
                  TypeParam::kInvalidFingerprint);
    expectFailure(this->repository.deleteAll(fingerprint), TypeParam::kInvalidFingerprint);
  }
  EXPECT_FALSE(std::filesystem::exists(this->file().parent_path()));
}

TYPED_TEST(JSONRecordRepositoryTest, SortsNewestFirstThenByUpperCaseIdWhateverTheStoredOrder) {
  // Stored in lower case: by the raw text "a..." would follow "B...", by the upper-case
  // form it comes first.
  const auto lower = TypeParam::make(uuid("aaaaaaaa-0000-4000-8000-000000000000"), 50);
  const auto upper = TypeParam::make(uuid("BBBBBBBB-0000-4000-8000-000000000000"), 50);
  const auto newest = TypeParam::make(kThird, 90);
  const auto oldest = TypeParam::make(kSecond, -5.5);
  std::vector<json> records{lower, upper, newest, oldest};
  records[0]["id"] = "aaaaaaaa-0000-4000-8000-000000000000";
  const std::vector<typename TypeParam::Record> expected{newest, lower, upper, oldest};

  std::mt19937 random(7);
  for (int round = 0; round < 6; ++round) {
    std::shuffle(records.begin(), records.end(), random);
    writeFile(this->file(), this->storeText(json{{kFingerprint, json(records)}}.dump()));
    EXPECT_EQ(this->list(), expected);
    EXPECT_EQ(this->list(), expected) << "a second read gave another order";
  }
}

TYPED_TEST(JSONRecordRepositoryTest, ASaveOfAKnownIdReplacesTheRecordWhereItStands) {
  await(this->repository.save(TypeParam::make(kFirst, 1)));
  await(this->repository.save(TypeParam::make(kSecond, 2)));
  await(this->repository.save(TypeParam::make(kThird, 3)));
  const auto changed = TypeParam::changed(TypeParam::make(kSecond, 2));
  await(this->repository.save(changed));
  EXPECT_EQ(this->stored(),
            (std::vector{TypeParam::make(kFirst, 1), changed, TypeParam::make(kThird, 3)}));
  EXPECT_EQ(this->list()[1], changed);
}

TYPED_TEST(JSONRecordRepositoryTest, ASaveOfANewIdGoesLastInTheFile) {
  await(this->repository.save(TypeParam::make(kSecond, 20)));
  await(this->repository.save(TypeParam::make(kFirst, 30)));
  await(this->repository.save(TypeParam::make(kThird, 10)));
  EXPECT_EQ(this->stored(), (std::vector{TypeParam::make(kSecond, 20), TypeParam::make(kFirst, 30),
                                         TypeParam::make(kThird, 10)}));
}

TYPED_TEST(JSONRecordRepositoryTest, OnlyTheFirstOfDuplicateIdsIsReplaced) {
  const json duplicate = TypeParam::make(kFirst, 1);
  writeFile(this->file(),
            this->storeText(json{{kFingerprint, json::array({duplicate, duplicate})}}.dump()));
  const auto changed = TypeParam::changed(TypeParam::make(kFirst, 1));
  await(this->repository.save(changed));
  EXPECT_EQ(this->stored(), (std::vector{changed, TypeParam::make(kFirst, 1)}));
  // A delete removes every record with the id.
  await(TypeParam::remove(this->repository, kFirst, kFingerprint));
  EXPECT_EQ(readJSONFile(this->file()), json::parse(this->storeText("{}")));
}

TYPED_TEST(JSONRecordRepositoryTest, DeletingTheLastRecordRemovesTheKeyOfTheBook) {
  await(this->repository.save(TypeParam::make(kFirst, 1)));
  await(this->repository.save(TypeParam::make(kSecond, 2)));
  await(TypeParam::remove(this->repository, kFirst, kFingerprint));
  EXPECT_EQ(this->stored(), std::vector{TypeParam::make(kSecond, 2)});
  await(TypeParam::remove(this->repository, kSecond, kFingerprint));
  EXPECT_EQ(readJSONFile(this->file()), json::parse(this->storeText("{}")));
  EXPECT_TRUE(this->list().empty());
}

TYPED_TEST(JSONRecordRepositoryTest, DeletingAnUnknownIdRewritesTheSameContent) {
  await(this->repository.save(TypeParam::make(kFirst, 1)));
  const FileSnapshot before = FileSnapshot::of(this->file());
  await(TypeParam::remove(this->repository, kThird, kFingerprint));
  const FileSnapshot after = FileSnapshot::of(this->file());
  EXPECT_EQ(after.contents, before.contents);
  EXPECT_NE(after.inode, before.inode) << "the file was not rewritten";
}

TYPED_TEST(JSONRecordRepositoryTest, DeleteAllRemovesOneBookAndKeepsTheOthers) {
  await(this->repository.save(TypeParam::make(kFirst, 1)));
  await(this->repository.save(TypeParam::make(kSecond, 2)));
  await(this->repository.save(TypeParam::make(kThird, 3, kOtherFingerprint)));
  await(this->repository.deleteAll(kFingerprint));
  EXPECT_TRUE(this->list().empty());
  EXPECT_EQ(this->list(kOtherFingerprint),
            std::vector{TypeParam::make(kThird, 3, kOtherFingerprint)});
  EXPECT_EQ(readJSONFile(this->file())[TypeParam::kListKey].size(), 1u);
  // A book without records is no failure, and the store is written again all the same.
  const FileSnapshot before = FileSnapshot::of(this->file());
  await(this->repository.deleteAll(kFingerprint));
  EXPECT_NE(FileSnapshot::of(this->file()).inode, before.inode);
}

TYPED_TEST(JSONRecordRepositoryTest, ADirectoryAtTheFilePathIsUnreadable) {
  std::filesystem::create_directories(this->file());
  expectFailure(TypeParam::list(this->repository, kFingerprint), TypeParam::kUnreadable);
  expectFailure(this->repository.save(TypeParam::make(kFirst, 1)), TypeParam::kUnreadable);
  expectFailure(TypeParam::remove(this->repository, kFirst, kFingerprint), TypeParam::kUnreadable);
  expectFailure(this->repository.deleteAll(kFingerprint), TypeParam::kUnreadable);
  EXPECT_TRUE(std::filesystem::is_empty(this->file()));
}

TYPED_TEST(JSONRecordRepositoryTest, AFileWithoutReadPermissionIsUnreadable) {
  writeFile(this->file(), this->storeText("{}"));
  testing::FaultInjectingFileSystem fileSystem(
      {{testing::FileOperation::open, EACCES, TypeParam::kFileName}});
  this->expectEveryOperationFailsAndLeavesTheFile(TypeParam::kUnreadable);
}

// The disk fills, fails or refuses at each step of a save: the store's own failure, and the
// old file whole with no temporary file beside it.
TYPED_TEST(JSONRecordRepositoryTest, AFailedWriteKeepsTheOldFileWhole) {
  await(this->repository.save(TypeParam::make(kFirst, 1)));
  const FileSnapshot before = FileSnapshot::of(this->file());
  for (const testing::FileFault& fault : std::initializer_list<testing::FileFault>{
           {testing::FileOperation::write, ENOSPC, ".tmp-"},
           {testing::FileOperation::synchronize, EIO, ".tmp-"},
           {testing::FileOperation::rename, EACCES, TypeParam::kFileName},
           {testing::FileOperation::makeTemporaryFile, EROFS, ".tmp-"},
       }) {
    SCOPED_TRACE(static_cast<int>(fault.operation));
    testing::FaultInjectingFileSystem fileSystem({fault});
    expectFailure(this->repository.save(TypeParam::make(kSecond, 2)), TypeParam::kCannotWrite);
    expectFailure(this->repository.deleteAll(kFingerprint), TypeParam::kCannotWrite);
    EXPECT_EQ(FileSnapshot::of(this->file()), before);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(this->file().parent_path()),
                            std::filesystem::directory_iterator()),
              1);
  }
  EXPECT_EQ(this->list(), std::vector{TypeParam::make(kFirst, 1)});
}

TYPED_TEST(JSONRecordRepositoryTest, AFileThatDoesNotDecodeFailsAndIsNeverRewritten) {
  const json good = TypeParam::make(kFirst, 1);
  json missingLocator = good;
  missingLocator.erase("locator");
  json badId = good;
  badId["id"] = "not-a-uuid";
  json stringDate = good;
  stringDate["createdAt"] = "yesterday";
  const std::string other = kOtherFingerprint;
  for (const std::string& contents : {
           this->storeText("{}").substr(0, 20),
           std::string("null"),
           std::string(R"({"schemaVersion":1})"),
           std::string(R"({")") + TypeParam::kListKey + R"(":{}})",
           std::string(R"({"schemaVersion":1.5,")") + TypeParam::kListKey + R"(":{}})",
           this->storeText("[]"),
           this->storeText(R"({")" + kFingerprint + R"(":{}})"),
           this->storeText(json{{kFingerprint, json::array({missingLocator})}}.dump()),
           this->storeText(json{{kFingerprint, json::array({badId})}}.dump()),
           // A broken record of another book breaks the whole store too.
           this->storeText(
               json{{kFingerprint, json::array({good})}, {other, json::array({stringDate})}}
                   .dump()),
           std::string(100000, '[') + std::string(100000, ']'),
           std::string(),
       }) {
    SCOPED_TRACE(contents.substr(0, 200));
    writeFile(this->file(), contents);
    this->expectEveryOperationFailsAndLeavesTheFile(TypeParam::kUndecodable);
  }
}

TYPED_TEST(JSONRecordRepositoryTest, SchemaVersionTwoIsUnsupportedAndStaysUntouched) {
  writeFile(this->file(), R"({"schemaVersion":2,")" + std::string(TypeParam::kListKey) +
                              R"(":{},"future":true})");
  this->expectEveryOperationFailsAndLeavesTheFile(TypeParam::kUnsupportedSchema);
}

TYPED_TEST(JSONRecordRepositoryTest, AParentPathThatIsAFileCannotBeWritten) {
  writeFile(this->directory / "Publications" / kFingerprint, "not a directory");
  EXPECT_TRUE(this->list().empty());
  expectFailure(this->repository.save(TypeParam::make(kFirst, 1)), TypeParam::kCannotWrite);
  expectFailure(TypeParam::remove(this->repository, kFirst, kFingerprint), TypeParam::kCannotWrite);
  expectFailure(this->repository.deleteAll(kFingerprint), TypeParam::kCannotWrite);
  EXPECT_EQ(testing::readFile(this->directory / "Publications" / kFingerprint), "not a directory");
}

TYPED_TEST(JSONRecordRepositoryTest, TextThatCannotBeEncodedIsAWriteFailureAndKeepsTheFile) {
  await(this->repository.save(TypeParam::make(kFirst, 1)));
  const FileSnapshot before = FileSnapshot::of(this->file());
  auto record = TypeParam::make(kSecond, 2);
  record.locator.spineHref = "half a character \xE2\x82";
  expectFailure(this->repository.save(record), TypeParam::kCannotWrite);
  EXPECT_EQ(FileSnapshot::of(this->file()), before);
}

TYPED_TEST(JSONRecordRepositoryTest, KeepsTheRecordsOfOtherBooksWhole) {
  auto other = TypeParam::make(kThird, 7, kOtherFingerprint);
  other.locator.excerpt = TextContext{"words", std::nullopt, "after"};
  const std::string foreign = "not-a-fingerprint-key";
  writeFile(this->file(),
            this->storeText(
                json{{kOtherFingerprint, json::array({other})}, {foreign, json::array()}}.dump()));
  await(this->repository.save(TypeParam::make(kFirst, 1)));
  EXPECT_EQ(this->stored(kOtherFingerprint), std::vector{other});
  EXPECT_TRUE(readJSONFile(this->file())[TypeParam::kListKey].contains(foreign));
}

TYPED_TEST(JSONRecordRepositoryTest, NumbersRoundTripExactly) {
  auto record = TypeParam::make(kFirst, 0.1 + 0.2);
  record.locator.totalProgression = 0.1 + 0.2;
  record.locator.sectionProgression = 2.0 / 3.0;
  record.locator.spineIndex = std::numeric_limits<std::int64_t>::min();
  await(this->repository.save(record));
  const auto read = this->list();
  ASSERT_EQ(read.size(), 1u);
  EXPECT_EQ(read[0], record);
  EXPECT_EQ(read[0].createdAt.secondsSinceReferenceDate(), 0.30000000000000004);
  EXPECT_EQ(read[0].locator.totalProgression, 0.30000000000000004);
}

TYPED_TEST(JSONRecordRepositoryTest, AStrayTemporaryFileIsIgnored) {
  await(this->repository.save(TypeParam::make(kFirst, 1)));
  writeFile(this->file().parent_path() / ("." + std::string(TypeParam::kFileName) + ".tmp-x1Y2z3"),
            "{\"schemaVersion\":1,\"trunc");
  EXPECT_EQ(this->list(), std::vector{TypeParam::make(kFirst, 1)});
  await(this->repository.save(TypeParam::make(kSecond, 2)));
  EXPECT_EQ(this->list().size(), 2u);
}

TYPED_TEST(JSONRecordRepositoryTest, TwoHundredConcurrentSavesAllLandInCallOrder) {
  constexpr int kSaves = 200;
  std::vector<typename TypeParam::Record> records;
  for (int index = 0; index < kSaves; ++index) {
    records.push_back(TypeParam::make(Uuid::random(), 1000.0 - index));
  }
  int finished = 0;
  auto one = [&](int index) -> async::Task<void> {
    co_await this->repository.save(records[index]);
    ++finished;
  };
  auto startAll = [&]() -> async::Task<void> {
    for (int index = 0; index < kSaves; ++index) async::spawn(one(index));
    co_return;
  };
  await(startAll());
  // Queued after every save, so it sees them all.
  const auto listed = this->list();
  while (finished < kSaves) (void)this->list();
  EXPECT_EQ(listed, records);  // createdAt falls with the index: newest first is call order
  EXPECT_EQ(this->stored(), records);
}

TYPED_TEST(JSONRecordRepositoryTest, AnOperationOutlivesItsRepository) {
  auto repositoryOnTheHeap = std::make_unique<typename TypeParam::Repository>(this->file());
  async::Task<void> save = repositoryOnTheHeap->save(TypeParam::make(kFirst, 1));
  repositoryOnTheHeap.reset();
  await(std::move(save));
  EXPECT_EQ(this->list(), std::vector{TypeParam::make(kFirst, 1)});
}

// What only annotations have.
class JSONAnnotationRepositoryTest : public JSONRecordRepositoryTest<AnnotationStore> {};

TEST_F(JSONAnnotationRepositoryTest, AnUnknownColourBreaksTheWholeStore) {
  json annotation = testing::makeAnnotation(kFirst, 1);
  annotation["color"] = "green";
  writeFile(file(), storeText(json{{kFingerprint, json::array({annotation})}}.dump()));
  expectEveryOperationFailsAndLeavesTheFile(AnnotationPersistenceFailure::corruptStore);
}

TEST_F(JSONAnnotationRepositoryTest, AChangedNoteKeepsItsPlaceAndItsCreationDate) {
  await(repository.save(testing::makeAnnotation(kFirst, 1)));
  await(repository.save(testing::makeAnnotation(kSecond, 2)));
  const Annotation edited = testing::makeAnnotation(kFirst, 1).withNote(std::nullopt, Date(99));
  await(repository.save(edited));
  EXPECT_EQ(stored(), (std::vector{edited, testing::makeAnnotation(kSecond, 2)}));
  EXPECT_FALSE(readJSONFile(file())["annotationsByFingerprint"][kFingerprint][0].contains("note"));
  // Sorting is by creation, not by change.
  EXPECT_EQ(list(), (std::vector{testing::makeAnnotation(kSecond, 2), edited}));
}

}  // namespace
}  // namespace tomekeeper
