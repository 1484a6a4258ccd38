#include "opening/OpenPublication.h"

#include <gtest/gtest.h>

#include "OpeningTestSupport.h"
#include "async/RunUntilDone.h"
#include "opening/OpeningFailures.h"

namespace tomekeeper {
namespace {

using namespace std::chrono_literals;
using testing::writeFile;

// A cache that prepares nothing on disk: it answers or fails as told, and can
// turn the fingerprint active while it works, as a winning window would.
class ScriptedCache final : public PublicationCachePreparing {
 public:
  async::Task<PreparedPublicationResources> prepare(std::filesystem::path,
                                                    std::string fingerprint) const override {
    ++calls;
    leaseHeldDuringPrepare = ledger->activeCount() > 0;
    if (registerWhilePreparing) registry->registerActive(fingerprint, [] {});
    if (failure) throw std::runtime_error("extraction failed");
    co_return PreparedPublicationResources{fingerprint, "/cache/" + fingerprint + "/Extracted",
                                           PublicationDescriptor{}};
  }

  bool extractsWhileFingerprinting() const override { return singlePass != SinglePass::none; }
  async::Task<std::string> fingerprintWhileExtracting(std::filesystem::path file,
                                                      PreparationObserver) const override {
    if (singlePass == SinglePass::fails) throw std::runtime_error("the pass failed");
    co_return PublicationFingerprintService::fingerprintFile(file, {});
  }
  void discardStaged(const std::string& fingerprint) const override {
    discarded.push_back(fingerprint);
  }

  std::shared_ptr<SecurityScopedAccessLedger> ledger;
  std::shared_ptr<DocumentOpenRegistry> registry;
  enum class SinglePass { none, succeeds, fails } singlePass = SinglePass::none;
  mutable std::vector<std::string> discarded;
  mutable int calls = 0;
  bool failure = false;
  bool registerWhilePreparing = false;
  mutable bool leaseHeldDuringPrepare = false;
};

class OpenPublicationTest : public ::testing::Test, protected testing::RegistryFixture {
 protected:
  OpenPublicationTest() {
    cache->ledger = ledger;
    cache->registry = registry;
    writeFile(directory / "book.epub", "the book");
  }

  OpenPublicationDecision open() {
    return async::runUntilDone(opener.prepare(directory / "book.epub", std::nullopt), 10s);
  }

  void expectLedgerBalanced() {
    EXPECT_EQ(ledger->activeCount(), 0);
    EXPECT_EQ(ledger->starts(), ledger->stops());
  }

  std::shared_ptr<ScriptedCache> cache = std::make_shared<ScriptedCache>();
  OpenPublication opener{registry, cache};
};

TEST_F(OpenPublicationTest, AFirstOpenCreatesAWindowAndKeepsItsReservation) {
  const OpenPublicationDecision decision = open();
  ASSERT_TRUE(std::holds_alternative<CreateWindow>(decision));
  const CreateWindow& create = std::get<CreateWindow>(decision);
  EXPECT_EQ(create.sourceURL, directory / "book.epub");
  EXPECT_EQ(create.resources.fingerprint, create.fingerprint);
  EXPECT_TRUE(registry->isReserved(create.fingerprint));
  EXPECT_TRUE(cache->leaseHeldDuringPrepare) << "the source must stay reachable while extracting";
  expectLedgerBalanced();
}

TEST_F(OpenPublicationTest, ASecondOpenActivatesTheExistingWindowWithoutPreparing) {
  const auto first = std::get<CreateWindow>(open());
  const OpenPublicationDecision second = open();
  ASSERT_TRUE(std::holds_alternative<ActivateExisting>(second));
  EXPECT_EQ(std::get<ActivateExisting>(second).fingerprint, first.fingerprint);
  EXPECT_EQ(cache->calls, 1);
  EXPECT_TRUE(registry->isReserved(first.fingerprint)) << "the first open's reservation stays";
  expectLedgerBalanced();
}

TEST_F(OpenPublicationTest, AFailedPreparationReleasesTheReservationAndEndsTheLease) {
  cache->failure = true;
  EXPECT_THROW(open(), std::runtime_error);
  const auto records = identityCache->loadRecords();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_FALSE(registry->isReserved(records[0].fingerprint));
  expectLedgerBalanced();
  cache->failure = false;
  EXPECT_TRUE(std::holds_alternative<CreateWindow>(open())) << "a later open starts afresh";
}

TEST_F(OpenPublicationTest, AFailedPreparationLeavesAFingerprintThatBecameActive) {
  cache->failure = true;
  cache->registerWhilePreparing = true;
  EXPECT_THROW(open(), std::runtime_error);
  const auto fingerprint = identityCache->loadRecords().at(0).fingerprint;
  EXPECT_TRUE(registry->isActive(fingerprint));
  expectLedgerBalanced();
}

// A cache that extracts while it fingerprints spares the plain hash; when its pass fails the
// plain hash runs, and an open that ends before its prepare drops what the pass staged.
TEST_F(OpenPublicationTest, TheCachesSinglePassTakesThePlaceOfTheHash) {
  using enum ScriptedCache::SinglePass;
  const std::string otherBook(64, '0');
  const struct {
    ScriptedCache::SinglePass singlePass;
    std::optional<std::string> expectedFingerprint;
    int hashes;
    std::size_t discarded;
  } cases[] = {
      {succeeds, std::nullopt, 0, 0}, {fails, std::nullopt, 1, 0}, {succeeds, otherBook, 0, 1}};
  int index = 0;
  for (const auto& testCase : cases) {
    const std::filesystem::path book = directory / (std::to_string(index++) + ".epub");
    writeFile(book, book.string());
    cache->singlePass = testCase.singlePass;
    cache->discarded.clear();
    fingerprinter->calls = 0;
    try {
      const auto decision =
          async::runUntilDone(opener.prepare(book, testCase.expectedFingerprint), 10s);
      EXPECT_FALSE(testCase.expectedFingerprint) << book << " opened as another book";
      EXPECT_EQ(std::get<CreateWindow>(decision).fingerprint,
                PublicationFingerprintService::fingerprintFile(book, {}));
    } catch (const DocumentOpenFailureError& error) {
      EXPECT_TRUE(testCase.expectedFingerprint) << book << " was refused";
      EXPECT_EQ(error.failure(), DocumentOpenFailure::relocatedContentMismatch);
    }
    EXPECT_EQ(fingerprinter->calls, testCase.hashes) << book;
    EXPECT_EQ(cache->discarded.size(), testCase.discarded) << book;
    expectLedgerBalanced();
  }
}

TEST_F(OpenPublicationTest, AnIdentityFailureIsThrownOnWithNothingHeld) {
  EXPECT_THROW(async::runUntilDone(opener.prepare(directory / "book.txt", std::nullopt), 5s),
               DocumentOpenFailureError);
  EXPECT_EQ(cache->calls, 0);
  expectLedgerBalanced();
}

}  // namespace
}  // namespace tomekeeper
