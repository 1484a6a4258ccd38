#include <gtest/gtest.h>

#include "PersistenceTestSupport.h"
#include "async/Spawn.h"
#include "persistence/JSONPreferenceValueRepository.h"

namespace tomekeeper {
namespace {

using nlohmann::json;
using testing::await;
using testing::expectFailure;
using testing::FileSnapshot;
using testing::readJSONFile;
using testing::TemporaryDirectory;
using testing::writeFile;

// Each store as its file is written, with the value it has without a file and another one.
struct ReadingThemeCase {
  using Repository = JSONReadingThemeRepository;
  using Failure = ReadingThemePersistenceFailure;
  static constexpr const char* kFileName = "appearance.json";
  static constexpr const char* kKey = "selection";
  static constexpr ReadingThemeSelection kWithoutFile = ReadingThemeSelection::system;
  static constexpr ReadingThemeSelection kOther = ReadingThemeSelection::warm;
  static constexpr const char* kOtherText = "warm";
};
struct ReadingModeCase {
  using Repository = JSONReadingModeRepository;
  using Failure = ReadingModePersistenceFailure;
  static constexpr const char* kFileName = "reading-mode.json";
  static constexpr const char* kKey = "mode";
  static constexpr ReadingMode kWithoutFile = ReadingMode::paginated;
  static constexpr ReadingMode kOther = ReadingMode::scrolled;
  static constexpr const char* kOtherText = "scrolled";
};
struct PageLayoutCase {
  using Repository = JSONPageLayoutRepository;
  using Failure = PageLayoutPersistenceFailure;
  static constexpr const char* kFileName = "page-layout.json";
  static constexpr const char* kKey = "layout";
  static constexpr PageLayout kWithoutFile = PageLayout::adaptive;
  static constexpr PageLayout kOther = PageLayout::singlePage;
  static constexpr const char* kOtherText = "singlePage";
};
struct ScrolledContentWidthCase {
  using Repository = JSONScrolledContentWidthRepository;
  using Failure = ScrolledContentWidthPersistenceFailure;
  static constexpr const char* kFileName = "scrolled-width.json";
  static constexpr const char* kKey = "preset";
  static constexpr ScrolledContentWidth kWithoutFile = ScrolledContentWidth::comfortable;
  static constexpr ScrolledContentWidth kOther = ScrolledContentWidth::wide;
  static constexpr const char* kOtherText = "wide";
};

template <typename Case>
class JSONPreferenceValueRepositoryTest : public ::testing::Test {
 protected:
  using Repository = typename Case::Repository;
  using Failure = typename Case::Failure;

  std::filesystem::path file() const { return repository.fileURL(); }
  static std::string storeText(int schemaVersion, const std::string& value) {
    return R"({"schemaVersion":)" + std::to_string(schemaVersion) + R"(,")" + Case::kKey + R"(":)" +
           value + "}";
  }

  // load fails with `failure` and leaves the file as it is.
  void expectLoadFailsAndLeavesTheFile(Failure failure) {
    const FileSnapshot before = FileSnapshot::of(file());
    expectFailure(repository.load(), failure);
    expectFailure(repository.load(), failure);
    EXPECT_EQ(FileSnapshot::of(file()), before);
  }

  TemporaryDirectory directory;
  Repository repository{Repository::fileURLIn(directory.path())};
};

using Cases =
    ::testing::Types<ReadingThemeCase, ReadingModeCase, PageLayoutCase, ScrolledContentWidthCase>;
class CaseNames {
 public:
  template <typename T>
  static std::string GetName(int) {
    return T::kFileName;
  }
};
TYPED_TEST_SUITE(JSONPreferenceValueRepositoryTest, Cases, CaseNames);

TYPED_TEST(JSONPreferenceValueRepositoryTest, AMissingFileGivesTheValueWithoutAFile) {
  EXPECT_EQ(await(this->repository.load()), TypeParam::kWithoutFile);
  EXPECT_FALSE(std::filesystem::exists(this->file().parent_path()));
}

TYPED_TEST(JSONPreferenceValueRepositoryTest, ASaveWritesTheVersionAndTheValueInTheGlobalFolder) {
  EXPECT_EQ(this->file(), this->directory.path() / "Global" / TypeParam::kFileName);
  await(this->repository.save(TypeParam::kOther));
  EXPECT_EQ(readJSONFile(this->file()),
            json::parse(this->storeText(1, std::string("\"") + TypeParam::kOtherText + "\"")));
  EXPECT_EQ(await(this->repository.load()), TypeParam::kOther);
}

TYPED_TEST(JSONPreferenceValueRepositoryTest, EveryValueRoundTrips) {
  for (const auto value : allCases<typename TypeParam::Repository::Value>()) {
    await(this->repository.save(value));
    EXPECT_EQ(await(this->repository.load()), value);
  }
}

TYPED_TEST(JSONPreferenceValueRepositoryTest, SchemaVersionTwoIsUnsupported) {
  writeFile(this->file(), this->storeText(2, std::string("\"") + TypeParam::kOtherText + "\""));
  this->expectLoadFailsAndLeavesTheFile(TypeParam::Failure::unsupportedSchema);
}

TYPED_TEST(JSONPreferenceValueRepositoryTest, AFileThatDoesNotDecodeIsCorrupt) {
  for (const std::string& contents : {
           this->storeText(1, "\"no such case\""),
           this->storeText(1, "\"Wide\""),
           this->storeText(1, "1"),
           this->storeText(1, "null"),
           std::string(R"({"schemaVersion":1})"),
           this->storeText(1, "\"x\"").substr(0, 12),
           std::string(""),
           std::string("[]"),
       }) {
    SCOPED_TRACE(contents);
    writeFile(this->file(), contents);
    this->expectLoadFailsAndLeavesTheFile(TypeParam::Failure::corruptStore);
  }
}

TYPED_TEST(JSONPreferenceValueRepositoryTest, AFileThatCannotBeReadIsCorrupt) {
  std::filesystem::create_directories(this->file());
  expectFailure(this->repository.load(), TypeParam::Failure::corruptStore);
}

TYPED_TEST(JSONPreferenceValueRepositoryTest, ASaveDoesNotReadAndReplacesABrokenFile) {
  writeFile(this->file(), this->storeText(7, "\"from the future\""));
  await(this->repository.save(TypeParam::kOther));
  EXPECT_EQ(await(this->repository.load()), TypeParam::kOther);
}

TYPED_TEST(JSONPreferenceValueRepositoryTest, AFailedWriteIsCannotWriteAndKeepsWhatIsThere) {
  writeFile(this->directory / "Global", "a file where the directory belongs");
  expectFailure(this->repository.save(TypeParam::kOther), TypeParam::Failure::cannotWrite);

  std::filesystem::remove(this->directory / "Global");
  std::filesystem::create_directories(this->file());  // a directory cannot be replaced by a file
  expectFailure(this->repository.save(TypeParam::kOther), TypeParam::Failure::cannotWrite);
  EXPECT_TRUE(std::filesystem::is_directory(this->file()));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(this->file().parent_path()),
                          std::filesystem::directory_iterator()),
            1);
}

TYPED_TEST(JSONPreferenceValueRepositoryTest, AStrayTemporaryFileIsIgnored) {
  await(this->repository.save(TypeParam::kOther));
  writeFile(this->file().parent_path() / ("." + std::string(TypeParam::kFileName) + ".tmp-abcdef"),
            "{");
  EXPECT_EQ(await(this->repository.load()), TypeParam::kOther);
}

TYPED_TEST(JSONPreferenceValueRepositoryTest, ConcurrentSavesLandInCallOrder) {
  constexpr int kSaves = 40;
  int finished = 0;
  auto one = [&](int index) -> async::Task<void> {
    co_await this->repository.save(index % 2 == 0 ? TypeParam::kOther : TypeParam::kWithoutFile);
    ++finished;
  };
  auto startAll = [&]() -> async::Task<void> {
    for (int index = 0; index < kSaves; ++index) async::spawn(one(index));
    co_return;
  };
  await(startAll());
  EXPECT_EQ(await(this->repository.load()), TypeParam::kWithoutFile);  // the last save's value
  while (finished < kSaves) (void)await(this->repository.load());
}

}  // namespace
}  // namespace tomekeeper
