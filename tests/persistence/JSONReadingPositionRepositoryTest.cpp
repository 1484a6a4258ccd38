#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cmath>
#include <limits>

#include "PersistenceTestSupport.h"
#include "async/Spawn.h"
#include "persistence/JSONReadingPositionRepository.h"
#include "persistence/PersistenceFailures.h"
#include "support/FaultInjectingFileSystem.h"

namespace tomekeeper {
namespace {

using nlohmann::json;
using testing::await;
using testing::expectFailure;
using testing::FileSnapshot;
using testing::kFingerprint;
using testing::kOtherFingerprint;
using testing::locatorAt;
using testing::readJSONFile;
using testing::TemporaryDirectory;
using testing::writeFile;
using Failure = ReadingPositionPersistenceFailure;

class JSONReadingPositionRepositoryTest : public ::testing::Test {
 protected:
  std::filesystem::path file() const { return repository.fileURL(); }

  // Every operation fails with `failure`, and the file is neither repaired nor rewritten.
  void expectEveryOperationFailsAndLeavesTheFile(Failure failure) {
    const FileSnapshot before = FileSnapshot::of(file());
    expectFailure(repository.locator(kFingerprint), failure);
    expectFailure(repository.save(locatorAt(1, 0.5), kFingerprint), failure);
    expectFailure(repository.deleteLocator(kFingerprint), failure);
    EXPECT_EQ(FileSnapshot::of(file()), before);
  }

  TemporaryDirectory directory;
  JSONReadingPositionRepository repository{directory / "Publications" / kFingerprint /
                                           "reading-position.json"};
};

TEST_F(JSONReadingPositionRepositoryTest, AMissingFileHasNoLocator) {
  EXPECT_EQ(await(repository.locator(kFingerprint)), std::nullopt);
  EXPECT_FALSE(std::filesystem::exists(file().parent_path()));
}

TEST_F(JSONReadingPositionRepositoryTest, TheFirstSaveCreatesTheStoreAsCompactJSONWithoutNulls) {
  await(repository.save(locatorAt(4, 0.75), kFingerprint));
  const std::string text = testing::readFile(file());
  EXPECT_EQ(text.find('\n'), std::string::npos);
  EXPECT_EQ(text.find(' '), std::string::npos);
  EXPECT_EQ(text.find("null"), std::string::npos);
  EXPECT_EQ(
      json::parse(text),
      json::parse(R"({"schemaVersion":1,"locators":{")" + kFingerprint +
                  R"(":{"spineHref":"chapter4.xhtml","spineIndex":4,"totalProgression":0.75}}})"));
  EXPECT_EQ(await(repository.locator(kFingerprint)), locatorAt(4, 0.75));
}

TEST_F(JSONReadingPositionRepositoryTest, ASaveReplacesTheLocatorAndKeepsOtherBooks) {
  await(repository.save(locatorAt(1, 0.1), kFingerprint));
  await(repository.save(locatorAt(9, 0.9), kOtherFingerprint));
  await(repository.save(locatorAt(2, 0.2), kFingerprint));
  EXPECT_EQ(await(repository.locator(kFingerprint)), locatorAt(2, 0.2));
  EXPECT_EQ(await(repository.locator(kOtherFingerprint)), locatorAt(9, 0.9));
  EXPECT_EQ(readJSONFile(file())["locators"].size(), 2u);
}

TEST_F(JSONReadingPositionRepositoryTest, DeleteRemovesOnlyThatEntryAndRewrites) {
  await(repository.save(locatorAt(1, 0.1), kFingerprint));
  await(repository.save(locatorAt(9, 0.9), kOtherFingerprint));
  await(repository.deleteLocator(kFingerprint));
  EXPECT_EQ(await(repository.locator(kFingerprint)), std::nullopt);
  EXPECT_EQ(await(repository.locator(kOtherFingerprint)), locatorAt(9, 0.9));

  const FileSnapshot before = FileSnapshot::of(file());
  await(repository.deleteLocator(kFingerprint));
  const FileSnapshot after = FileSnapshot::of(file());
  EXPECT_EQ(after.contents, before.contents);
  EXPECT_NE(after.inode, before.inode);
}

TEST_F(JSONReadingPositionRepositoryTest, TheFingerprintIsAPlainKeyAndIsNotChecked) {
  await(repository.save(locatorAt(1, 0.1), "not a fingerprint"));
  EXPECT_EQ(await(repository.locator("not a fingerprint")), locatorAt(1, 0.1));
  await(repository.deleteLocator("NOT-EVEN-CLOSE"));
}

TEST_F(JSONReadingPositionRepositoryTest, ADirectoryAtTheFilePathCannotBeRead) {
  std::filesystem::create_directories(file());
  expectFailure(repository.locator(kFingerprint), Failure::cannotRead);
  expectFailure(repository.save(locatorAt(1, 0.5), kFingerprint), Failure::cannotRead);
  expectFailure(repository.deleteLocator(kFingerprint), Failure::cannotRead);
  EXPECT_TRUE(std::filesystem::is_directory(file()));
}

TEST_F(JSONReadingPositionRepositoryTest, AFileWithoutReadPermissionCannotBeRead) {
  writeFile(file(), R"({"schemaVersion":1,"locators":{}})");
  testing::FaultInjectingFileSystem fileSystem(
      {{testing::FileOperation::open, EACCES, "reading-position.json"}});
  expectEveryOperationFailsAndLeavesTheFile(Failure::cannotRead);
}

TEST_F(JSONReadingPositionRepositoryTest, AFileThatDoesNotDecodeIsCorrupt) {
  for (const std::string& contents : {
           std::string("{\"schemaVersion\":1,\"locators\":{"),
           std::string("[]"),
           std::string("{\"schemaVersion\":1}"),
           std::string("{\"locators\":{}}"),
           std::string("{\"schemaVersion\":\"1\",\"locators\":{}}"),
           std::string("{\"schemaVersion\":1,\"locators\":[]}"),
           std::string("{\"schemaVersion\":1,\"locators\":{\"k\":{\"spineHref\":\"a\"}}}"),
           std::string("{\"schemaVersion\":1,\"locators\":{}} trailing"),
           std::string("\xEF\xBB\xBF{\"schemaVersion\":1,\"locators\":{\"\xFF\":{}}}"),
           // Another schema version is corrupt too, and so is an empty file.
           std::string(R"({"schemaVersion":2,"locators":{}})"),
           std::string(R"({"schemaVersion":0,"locators":{}})"),
           std::string(),
       }) {
    SCOPED_TRACE(contents);
    writeFile(file(), contents);
    expectEveryOperationFailsAndLeavesTheFile(Failure::corruptStore);
  }
}

TEST_F(JSONReadingPositionRepositoryTest, AParentPathThatIsAFileCannotBeWritten) {
  writeFile(directory / "Publications" / kFingerprint, "a file where the directory belongs");
  EXPECT_EQ(await(repository.locator(kFingerprint)), std::nullopt);
  expectFailure(repository.save(locatorAt(1, 0.5), kFingerprint), Failure::cannotWrite);
  EXPECT_EQ(testing::readFile(directory / "Publications" / kFingerprint),
            "a file where the directory belongs");
}

// Half a UTF-8 character or a number that is not finite cannot be written as JSON: the save
// fails and leaves the old file, with no temporary file beside it.
TEST_F(JSONReadingPositionRepositoryTest, ALocatorThatCannotBeEncodedIsAWriteFailure) {
  await(repository.save(locatorAt(1, 0.5), kFingerprint));
  const FileSnapshot before = FileSnapshot::of(file());
  Locator brokenText = locatorAt(2, 0.5);
  brokenText.spineHref = "broken\xC3";
  for (const Locator& locator : {brokenText, locatorAt(2, std::numeric_limits<double>::infinity()),
                                 locatorAt(2, std::nan(""))}) {
    expectFailure(repository.save(locator, kFingerprint), Failure::cannotWrite);
  }
  EXPECT_EQ(FileSnapshot::of(file()), before);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(file().parent_path()),
                          std::filesystem::directory_iterator()),
            1);
}

TEST_F(JSONReadingPositionRepositoryTest, NumbersRoundTripExactly) {
  Locator locator = locatorAt(std::numeric_limits<std::int64_t>::max(), 0.1 + 0.2);
  locator.sectionProgression = 1.0 / 3.0;
  locator.excerpt = TextContext{"exact \"quoted\" \\ / text", "before", std::nullopt};
  await(repository.save(locator, kFingerprint));
  Locator other = locatorAt(std::numeric_limits<std::int64_t>::min(), 5e-324);
  other.sectionProgression = -1.5;
  await(repository.save(other, kOtherFingerprint));

  const std::optional<Locator> read = await(repository.locator(kFingerprint));
  ASSERT_TRUE(read);
  EXPECT_EQ(*read, locator);
  EXPECT_EQ(read->totalProgression, 0.30000000000000004);
  EXPECT_NE(read->totalProgression, 0.3);
  EXPECT_EQ(await(repository.locator(kOtherFingerprint)), other);
  EXPECT_NE(testing::readFile(file()).find("0.30000000000000004"), std::string::npos);
}

TEST_F(JSONReadingPositionRepositoryTest, ReadsTheEscapedSlashOfOtherWriters) {
  writeFile(file(), R"({"schemaVersion":1,"locators":{")" + kFingerprint +
                        R"(":{"spineHref":"text\/chapter.xhtml","spineIndex":3}}})");
  const std::optional<Locator> read = await(repository.locator(kFingerprint));
  ASSERT_TRUE(read);
  EXPECT_EQ(read->spineHref, "text/chapter.xhtml");
}

TEST_F(JSONReadingPositionRepositoryTest, AStrayTemporaryFileIsIgnored) {
  await(repository.save(locatorAt(1, 0.5), kFingerprint));
  writeFile(file().parent_path() / ".reading-position.json.tmp-Ab12Cd", R"({"schemaVer)");
  EXPECT_EQ(await(repository.locator(kFingerprint)), locatorAt(1, 0.5));
  await(repository.save(locatorAt(2, 0.5), kFingerprint));
  EXPECT_EQ(await(repository.locator(kFingerprint)), locatorAt(2, 0.5));
}

TEST_F(JSONReadingPositionRepositoryTest, ManyConcurrentSavesApplyInCallOrder) {
  constexpr int kSaves = 200;
  constexpr int kBooks = 10;
  auto key = [](int index) { return "book-" + std::to_string(index % kBooks); };
  int finished = 0;
  auto one = [&](int index) -> async::Task<void> {
    co_await repository.save(locatorAt(index, index / 1000.0), key(index));
    ++finished;
  };
  auto startAll = [&]() -> async::Task<void> {
    for (int index = 0; index < kSaves; ++index) async::spawn(one(index));
    co_return;
  };
  await(startAll());
  // Queued after every save, so it sees them all.
  (void)await(repository.locator(key(0)));
  while (finished < kSaves) (void)await(repository.locator(key(0)));
  // Each book holds the last of its saves.
  const json locators = readJSONFile(file())["locators"];
  EXPECT_EQ(locators.size(), static_cast<size_t>(kBooks));
  for (int index = kSaves - kBooks; index < kSaves; ++index) {
    EXPECT_EQ(await(repository.locator(key(index))), locatorAt(index, index / 1000.0));
  }
}

TEST_F(JSONReadingPositionRepositoryTest, AnOperationOutlivesItsRepository) {
  auto repositoryOnTheHeap = std::make_unique<JSONReadingPositionRepository>(file());
  async::Task<void> save = repositoryOnTheHeap->save(locatorAt(7, 0.7), kFingerprint);
  repositoryOnTheHeap.reset();
  await(std::move(save));
  EXPECT_EQ(await(repository.locator(kFingerprint)), locatorAt(7, 0.7));
}

}  // namespace
}  // namespace tomekeeper
