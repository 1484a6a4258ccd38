#include <gtest/gtest.h>

#include "PersistenceTestSupport.h"
#include "persistence/JSONTypographyPreferencesRepository.h"
#include "persistence/PersistenceFailures.h"

namespace tomekeeper {
namespace {

using nlohmann::json;
using testing::await;
using testing::expectFailure;
using testing::FileSnapshot;
using testing::readJSONFile;
using testing::TemporaryDirectory;
using testing::writeFile;
using Failure = TypographyPreferencesPersistenceFailure;

const std::string kAllBookDefault =
    R"({"schemaVersion":5,"fontSelection":{"bookDefault":{}},"fontScaleSelection":{"bookDefault":{}},)"
    R"("lineHeightSelection":{"bookDefault":{}},"letterSpacingSelection":{"bookDefault":{}},)"
    R"("pageMarginsSelection":"bookDefault"})";

class JSONTypographyPreferencesRepositoryTest : public ::testing::Test {
 protected:
  std::filesystem::path file() const { return repository.fileURL(); }

  // load and every save fail with `failure`, and the file stays as it is.
  void expectEveryReadingOperationFailsAndLeavesTheFile(Failure failure) {
    const FileSnapshot before = FileSnapshot::of(file());
    expectFailure(repository.load(), failure);
    expectFailure(repository.saveFont(TypographyFontSelection::systemFont("Georgia")), failure);
    expectFailure(repository.saveFontScale(TypographyFontScaleSelection::value(1.2)), failure);
    expectFailure(repository.saveLineHeight(TypographyLineHeightSelection::value(1.5)), failure);
    expectFailure(repository.saveLetterSpacing(TypographyLetterSpacingSelection::normal()),
                  failure);
    expectFailure(repository.savePageMargins(TypographyPageMarginsSelection::wide), failure);
    EXPECT_EQ(FileSnapshot::of(file()), before);
  }

  TemporaryDirectory directory;
  JSONTypographyPreferencesRepository repository{
      JSONTypographyPreferencesRepository::fileURLIn(directory.path())};
};

TEST_F(JSONTypographyPreferencesRepositoryTest, AMissingFileLeavesEverythingToTheBook) {
  EXPECT_EQ(file(), directory.path() / "Global" / "typography.json");
  EXPECT_EQ(await(repository.load()), TypographyPreferences{});
  EXPECT_FALSE(std::filesystem::exists(file().parent_path()));
}

TEST_F(JSONTypographyPreferencesRepositoryTest, AVersionOneFileLoadsAndOneSaveUpgradesIt) {
  writeFile(file(),
            R"({"schemaVersion":1,"fontSelection":{"systemFont":{"stableName":"Georgia"}}})");
  TypographyPreferences expected;
  expected.font = TypographyFontSelection::systemFont("Georgia");
  EXPECT_EQ(await(repository.load()), expected);

  await(repository.saveFontScale(TypographyFontScaleSelection::value(1.2)));
  EXPECT_EQ(
      readJSONFile(file()),
      json::parse(
          R"({"schemaVersion":5,"fontSelection":{"systemFont":{"stableName":"Georgia"}},)"
          R"("fontScaleSelection":{"value":{"_0":1.2}},"lineHeightSelection":{"bookDefault":{}},)"
          R"("letterSpacingSelection":{"bookDefault":{}},"pageMarginsSelection":"bookDefault"})"));
  expected.fontScale = TypographyFontScaleSelection::value(1.2);
  EXPECT_EQ(await(repository.load()), expected);
}

TEST_F(JSONTypographyPreferencesRepositoryTest, ReadsEveryVersionFromOneToFive) {
  for (int version = 1; version <= 5; ++version) {
    SCOPED_TRACE(version);
    writeFile(file(), R"({"schemaVersion":)" + std::to_string(version) +
                          R"(,"fontSelection":{"bookDefault":{}},"pageMarginsSelection":"narrow",)"
                          R"("lineHeightSelection":null})");
    TypographyPreferences expected;
    expected.pageMargins = TypographyPageMarginsSelection::narrow;
    EXPECT_EQ(await(repository.load()), expected);
  }
}

TEST_F(JSONTypographyPreferencesRepositoryTest, VersionSixIsRefusedAndAFailedSaveLeavesItAlone) {
  writeFile(file(), R"({"schemaVersion":6,"fontSelection":{"bookDefault":{}},"newThing":1})");
  expectEveryReadingOperationFailsAndLeavesTheFile(Failure::unsupportedSchema);
  writeFile(file(), R"({"schemaVersion":0,"fontSelection":{"bookDefault":{}}})");
  expectEveryReadingOperationFailsAndLeavesTheFile(Failure::unsupportedSchema);
}

TEST_F(JSONTypographyPreferencesRepositoryTest, AFileThatDoesNotDecodeIsCorruptAndStays) {
  for (
      const std::string& contents : {
          std::string(""),
          std::string(R"({"schemaVersion":5})"),
          std::string(R"({"schemaVersion":5,"fontSelection":{}})"),
          std::string(R"({"schemaVersion":5,"fontSelection":{"bookDefault":{},"systemFont":{}}})"),
          std::string(R"({"schemaVersion":5,"fontSelection":{"serif":{}}})"),
          std::string(
              R"({"schemaVersion":5,"fontSelection":{"bookDefault":{}},"pageMarginsSelection":"huge"})"),
          std::string(
              R"({"schemaVersion":5,"fontSelection":{"bookDefault":{}},"fontScaleSelection":{"value":{"_0":"big"}}})"),
          std::string(
              R"({"schemaVersion":5,"fontSelection":{"bookDefault":{}},"fontScaleSelection":{"value":{"scale":1}}})"),
          std::string(R"({"schemaVersion":"5","fontSelection":{"bookDefault":{}}})"),
      }) {
    SCOPED_TRACE(contents);
    writeFile(file(), contents);
    expectEveryReadingOperationFailsAndLeavesTheFile(Failure::corruptStore);
  }
}

TEST_F(JSONTypographyPreferencesRepositoryTest, AFileThatCannotBeReadIsCorrupt) {
  std::filesystem::create_directories(file());
  expectFailure(repository.load(), Failure::corruptStore);
  expectFailure(repository.saveFont(TypographyFontSelection::bookDefault()), Failure::corruptStore);
  EXPECT_TRUE(std::filesystem::is_directory(file()));
}

TEST_F(JSONTypographyPreferencesRepositoryTest, EachSaveReplacesOneSelectionAndKeepsTheOthers) {
  await(repository.saveFont(TypographyFontSelection::systemFont("Iowan Old Style")));
  await(repository.saveLineHeight(TypographyLineHeightSelection::value(1.6)));
  await(repository.saveLetterSpacing(TypographyLetterSpacingSelection::value(-0.02)));
  await(repository.savePageMargins(TypographyPageMarginsSelection::standard));
  await(repository.saveFontScale(TypographyFontScaleSelection::value(0.1 + 0.2)));
  await(repository.saveLineHeight(TypographyLineHeightSelection::bookDefault()));

  TypographyPreferences expected;
  expected.font = TypographyFontSelection::systemFont("Iowan Old Style");
  expected.letterSpacing = TypographyLetterSpacingSelection::value(-0.02);
  expected.pageMargins = TypographyPageMarginsSelection::standard;
  expected.fontScale = TypographyFontScaleSelection::value(0.30000000000000004);
  EXPECT_EQ(await(repository.load()), expected);
  const json store = readJSONFile(file());
  EXPECT_EQ(store["schemaVersion"], 5);
  EXPECT_EQ(store.size(), 6u);
  EXPECT_EQ(store["fontScaleSelection"]["value"]["_0"].get<double>(), 0.30000000000000004);
}

TEST_F(JSONTypographyPreferencesRepositoryTest, RestoreDefaultsWritesWithoutReading) {
  await(repository.restoreDefaults());
  EXPECT_EQ(readJSONFile(file()), json::parse(kAllBookDefault));

  writeFile(file(), R"({"schemaVersion":6,"fontSelection":{"bookDefault":{}}})");
  await(repository.restoreDefaults());
  EXPECT_EQ(readJSONFile(file()), json::parse(kAllBookDefault));

  writeFile(file(), "not json at all");
  await(repository.restoreDefaults());
  EXPECT_EQ(await(repository.load()), TypographyPreferences{});
}

TEST_F(JSONTypographyPreferencesRepositoryTest, AFailedWriteIsCannotWrite) {
  writeFile(directory / "Global", "a file where the directory belongs");
  expectFailure(repository.saveFont(TypographyFontSelection::bookDefault()), Failure::cannotWrite);
  expectFailure(repository.restoreDefaults(), Failure::cannotWrite);

  std::filesystem::remove(directory / "Global");
  writeFile(file(), kAllBookDefault);
  const FileSnapshot before = FileSnapshot::of(file());
  expectFailure(repository.saveFont(TypographyFontSelection::systemFont("\xC3")),
                Failure::cannotWrite);
  EXPECT_EQ(FileSnapshot::of(file()), before);
}

TEST_F(JSONTypographyPreferencesRepositoryTest, AStrayTemporaryFileIsIgnored) {
  await(repository.savePageMargins(TypographyPageMarginsSelection::wide));
  writeFile(file().parent_path() / ".typography.json.tmp-QwErTy", "{\"schemaVersion\":6");
  TypographyPreferences expected;
  expected.pageMargins = TypographyPageMarginsSelection::wide;
  EXPECT_EQ(await(repository.load()), expected);
}

}  // namespace
}  // namespace tomekeeper
