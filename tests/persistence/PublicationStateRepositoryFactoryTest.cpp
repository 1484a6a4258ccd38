#include <gtest/gtest.h>

#include "PersistenceTestSupport.h"
#include "persistence/PersistenceFailures.h"
#include "persistence/PublicationStateRepositoryFactory.h"

namespace tomekeeper {
namespace {

using testing::kFingerprint;
using testing::TemporaryDirectory;

class PublicationStateRepositoryFactoryTest : public ::testing::Test {
 protected:
  void expectRefused(const std::string& fingerprint) {
    try {
      (void)factory.makeRepositories(fingerprint);
      ADD_FAILURE() << "accepted \"" << fingerprint << "\"";
    } catch (const PublicationStateRepositoryFailureError& error) {
      EXPECT_EQ(error.failure(), PublicationStateRepositoryFailure::invalidFingerprint);
    }
  }

  TemporaryDirectory directory;
  PublicationStateRepositoryFactory factory{directory / "Publications"};
};

TEST_F(PublicationStateRepositoryFactoryTest, RefusesFingerprintsThatBreakTheRule) {
  expectRefused(std::string(63, 'a'));
  expectRefused(std::string(65, 'a'));
  expectRefused(std::string(63, 'a') + "A");
  expectRefused(std::string(63, 'a') + "g");
  expectRefused(std::string(62, 'a') + "/.");
  expectRefused(std::string(61, 'a') + "/..");
  expectRefused("");
  // 64 bytes, but one character is two bytes of UTF-8 and so the text is not 64 characters.
  expectRefused(std::string(62, 'a') + "\xC3\xA9");
  EXPECT_FALSE(std::filesystem::exists(directory / "Publications"));
}

TEST_F(PublicationStateRepositoryFactoryTest, GivesTheThreeStoresInTheBookDirectory) {
  const PublicationStateRepositories repositories = factory.makeRepositories(kFingerprint);
  const std::filesystem::path book = directory.path() / "Publications" / kFingerprint;
  EXPECT_EQ(repositories.position->fileURL(), book / "reading-position.json");
  EXPECT_EQ(repositories.bookmarks->fileURL(), book / "bookmarks.json");
  EXPECT_EQ(repositories.annotations->fileURL(), book / "annotations.json");
  // Nothing is created until something is saved.
  EXPECT_FALSE(std::filesystem::exists(book));
}

TEST_F(PublicationStateRepositoryFactoryTest, StandardisesTheFilePaths) {
  const PublicationStateRepositoryFactory winding{directory / "x" / ".." / "Publications" / "."};
  const PublicationStateRepositories repositories = winding.makeRepositories(kFingerprint);
  EXPECT_EQ(repositories.bookmarks->fileURL(),
            directory.path() / "Publications" / kFingerprint / "bookmarks.json");

  const PublicationStateRepositoryFactory relative{"Publications"};
  const std::filesystem::path position =
      relative.makeRepositories(kFingerprint).position->fileURL();
  EXPECT_TRUE(position.is_absolute());
  EXPECT_EQ(position, std::filesystem::current_path() / "Publications" / kFingerprint /
                          "reading-position.json");
}

TEST_F(PublicationStateRepositoryFactoryTest, MakesNewRepositoriesOnEveryCall) {
  const PublicationStateRepositories first = factory.makeRepositories(kFingerprint);
  const PublicationStateRepositories second = factory.makeRepositories(kFingerprint);
  EXPECT_NE(first.position, second.position);
  EXPECT_NE(first.bookmarks, second.bookmarks);
  EXPECT_NE(first.annotations, second.annotations);
}

TEST_F(PublicationStateRepositoryFactoryTest, RepositoriesOfTheFactoryWorkTogether) {
  const PublicationStateRepositories repositories = factory.makeRepositories(kFingerprint);
  testing::await(repositories.position->save(testing::locatorAt(2, 0.5), kFingerprint));
  testing::await(repositories.bookmarks->save(
      testing::makeBookmark(testing::uuid("00000000-0000-4000-8000-000000000001"), 10)));
  testing::await(repositories.annotations->save(
      testing::makeAnnotation(testing::uuid("00000000-0000-4000-8000-000000000002"), 10)));
  const std::filesystem::path book = directory.path() / "Publications" / kFingerprint;
  EXPECT_EQ(std::filesystem::exists(book / "reading-position.json"), true);
  EXPECT_EQ(testing::await(repositories.bookmarks->bookmarks(kFingerprint)).size(), 1u);
  EXPECT_EQ(testing::await(repositories.annotations->annotations(kFingerprint)).size(), 1u);
  EXPECT_EQ(testing::await(repositories.position->locator(kFingerprint)),
            testing::locatorAt(2, 0.5));
}

}  // namespace
}  // namespace tomekeeper
