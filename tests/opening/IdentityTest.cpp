#include <fcntl.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "OpeningTestSupport.h"
#include "async/RunUntilDone.h"
#include "opening/Fingerprint.h"
#include "opening/OpeningFailures.h"
#include "opening/PublicationFingerprintService.h"
#include "opening/PublicationIdentityCache.h"
#include "platform/AtomicFileWriter.h"

namespace tomekeeper {
namespace {

using namespace std::chrono_literals;
using testing::TemporaryDirectory;
using testing::writeFile;

std::string oneShotSHA256(const std::string& bytes) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  EVP_Digest(bytes.data(), bytes.size(), digest, &length, EVP_sha256(), nullptr);
  char text[65];
  for (unsigned int index = 0; index < length; ++index)
    snprintf(text + 2 * index, 3, "%02x", digest[index]);
  return std::string(text, 64);
}

void setModificationTime(const std::filesystem::path& file, time_t seconds) {
  const timespec times[2] = {{seconds, 0}, {seconds, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
}

TEST(FingerprintTest, OnlySixtyFourLowerCaseHexadecimalCharactersAreValid) {
  EXPECT_TRUE(isValidFingerprint(std::string(64, 'a')));
  for (const std::string& invalid :
       {std::string(63, 'a'), std::string(65, 'a'), std::string(63, 'a') + "A",
        std::string(63, 'a') + "g", std::string(62, 'a') + "/."}) {
    EXPECT_FALSE(isValidFingerprint(invalid)) << invalid;
  }
}

class PublicationFingerprintServiceTest : public ::testing::Test {
 protected:
  TemporaryDirectory directory;
  PublicationFingerprintService service;
};

// No bytes, and bytes across many reads, give the one-shot digest.
TEST_F(PublicationFingerprintServiceTest, MatchesAOneShotDigestAcrossManyChunks) {
  std::string bytes;
  for (int index = 0; bytes.size() < 3 * PublicationFingerprintService::kReadSize + 17; ++index) {
    bytes += static_cast<char>(index * 31 + 7);
  }
  for (const std::string& contents : {std::string(), bytes}) {
    writeFile(directory / "book.epub", contents);
    const std::string fingerprint =
        async::runUntilDone(service.fingerprint(directory / "book.epub"), 5s);
    EXPECT_EQ(fingerprint, oneShotSHA256(contents));
    EXPECT_TRUE(isValidFingerprint(fingerprint));
  }
}

TEST_F(PublicationFingerprintServiceTest, FailsForAMissingFileAndStopsBetweenChunksWhenCancelled) {
  EXPECT_THROW(async::runUntilDone(service.fingerprint(directory / "gone.epub"), 5s),
               std::system_error);
  writeFile(directory / "book.epub",
            std::string(2 * PublicationFingerprintService::kReadSize, 'x'));
  std::stop_source source;
  source.request_stop();
  EXPECT_THROW(
      PublicationFingerprintService::fingerprintFile(directory / "book.epub", source.get_token()),
      async::OperationCancelled);
}

class PublicationIdentityCacheTest : public ::testing::Test {
 protected:
  std::optional<std::string> cached(const std::filesystem::path& file) {
    return async::runUntilDone(cache.cachedFingerprint(file), 5s);
  }
  void record(const std::filesystem::path& file, const std::string& fingerprint) {
    async::runUntilDone(cache.record(file, fingerprint), 5s);
  }

  TemporaryDirectory directory;
  PublicationIdentityCache cache{directory / "DocumentAccess/identity-cache.json"};
  const std::string fingerprintA = std::string(64, 'a');
  const std::string fingerprintB = std::string(64, 'b');
};

TEST_F(PublicationIdentityCacheTest, AnUnchangedFileIsKnownAndAMissingOrDamagedStoreIsEmpty) {
  writeFile(directory / "book.epub", "content");
  for (const char* damaged : {"", "{\"schemaVersion\":1,\"records\":[{\"source\":"}) {
    if (*damaged != '\0') writeFile(cache.fileURL(), damaged);
    EXPECT_EQ(cached(directory / "book.epub"), std::nullopt) << damaged;
    record(directory / "book.epub", fingerprintA);
    EXPECT_EQ(cached(directory / "book.epub"), fingerprintA) << damaged;
  }
}

TEST_F(PublicationIdentityCacheTest, ATouchedFileIsNotTrustedAndItsRecordIsReplaced) {
  writeFile(directory / "book.epub", "content");
  setModificationTime(directory / "book.epub", 1'000'000'000);
  record(directory / "book.epub", fingerprintA);
  setModificationTime(directory / "book.epub", 1'000'000'500);
  EXPECT_EQ(cached(directory / "book.epub"), std::nullopt);
  record(directory / "book.epub", fingerprintA);
  EXPECT_EQ(cache.loadRecords().size(), 1u);
}

TEST_F(PublicationIdentityCacheTest, ARenamedFileIsFoundByItsIdentityAndTheRecordMoves) {
  writeFile(directory / "old.epub", "content");
  record(directory / "old.epub", fingerprintA);
  std::filesystem::rename(directory / "old.epub", directory / "new.epub");
  EXPECT_EQ(cached(directory / "new.epub"), fingerprintA);
  record(directory / "new.epub", fingerprintA);
  const auto records = cache.loadRecords();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].source.path, (directory / "new.epub").string());
}

TEST_F(PublicationIdentityCacheTest, AnotherFileAtTheOldPathIsNotConfusedWithIt) {
  writeFile(directory / "book.epub", "first");
  record(directory / "book.epub", fingerprintA);
  std::filesystem::remove(directory / "book.epub");
  writeFile(directory / "book.epub", "a longer second file");
  EXPECT_EQ(cached(directory / "book.epub"), std::nullopt);
  record(directory / "book.epub", fingerprintB);
  const auto records = cache.loadRecords();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_EQ(records[0].fingerprint, fingerprintB);
}

TEST_F(PublicationIdentityCacheTest, TheFiveHundredThirteenthRecordPushesOutTheOldest) {
  nlohmann::json records = nlohmann::json::array();
  for (int index = 0; index < 512; ++index) {
    records.push_back({{"source",
                        {{"path", "/books/b" + std::to_string(index) + ".epub"},
                         {"byteCount", index},
                         {"modificationTime", 1.5}}},
                       {"fingerprint", fingerprintA}});
  }
  writeFile(cache.fileURL(), nlohmann::json{{"schemaVersion", 1}, {"records", records}}.dump());
  writeFile(directory / "new.epub", "new");
  record(directory / "new.epub", fingerprintB);
  const auto stored = cache.loadRecords();
  ASSERT_EQ(stored.size(), 512u);
  EXPECT_EQ(stored.front().source.path, "/books/b1.epub");
  EXPECT_EQ(stored.back().source.path, (directory / "new.epub").string());
  EXPECT_FALSE(stored.front().source.fileResourceIdentifier.has_value())
      << "a record without an identifier reads back without one";
}

TEST_F(PublicationIdentityCacheTest, AStoreOfAnotherSchemaIsIgnoredAndReplaced) {
  writeFile(directory / "book.epub", "content");
  record(directory / "book.epub", fingerprintA);
  nlohmann::json store = nlohmann::json::parse(*readWholeFile(cache.fileURL()));
  store["schemaVersion"] = 2;
  writeFile(cache.fileURL(), store.dump());
  EXPECT_EQ(cached(directory / "book.epub"), std::nullopt);
  writeFile(directory / "other.epub", "other");
  record(directory / "other.epub", fingerprintB);
  store = nlohmann::json::parse(*readWholeFile(cache.fileURL()));
  EXPECT_EQ(store["schemaVersion"], 1);
  EXPECT_EQ(store["records"].size(), 1u);
}

TEST_F(PublicationIdentityCacheTest, SnapshotsRefuseWhatIsNotARegularFile) {
  std::filesystem::create_directories(directory / "folder.epub");
  try {
    PublicationIdentityCache::SourceSnapshot::capture(directory / "folder.epub");
    FAIL();
  } catch (const DocumentOpenFailureError& error) {
    EXPECT_EQ(error.failure(), DocumentOpenFailure::sourceUnavailable);
  }
  record(directory / "folder.epub", fingerprintA);
  EXPECT_TRUE(cache.loadRecords().empty());
}

}  // namespace
}  // namespace tomekeeper
