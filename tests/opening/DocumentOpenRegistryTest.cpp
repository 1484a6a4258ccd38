#include "opening/DocumentOpenRegistry.h"

#include <gtest/gtest.h>

#include "OpeningTestSupport.h"
#include "async/RunUntilDone.h"
#include "async/SharedTask.h"
#include "opening/OpeningFailures.h"

namespace tomekeeper {
namespace {

using namespace std::chrono_literals;
using testing::writeFile;

class DocumentOpenRegistryTest : public ::testing::Test, protected testing::RegistryFixture {
 protected:
  async::Task<PreparedDocumentIdentity> open(const std::filesystem::path& file,
                                             std::optional<std::string> expected = std::nullopt) {
    return registry->prepareIdentity(file, std::move(expected));
  }

  template <typename T>
  T run(async::Task<T> task) {
    return async::runUntilDone(std::move(task), 10s);
  }

  DocumentOpenFailure openFailure(async::Task<PreparedDocumentIdentity> task) {
    try {
      run(std::move(task));
    } catch (const DocumentOpenFailureError& error) {
      return error.failure();
    }
    ADD_FAILURE() << "the open did not fail";
    return DocumentOpenFailure::notAnEPUB;
  }

  // Two opens of `file` at once, both waiting on the one hash before it may end; each gives its
  // identity, or nothing when its open failed.
  std::pair<std::unique_ptr<PreparedDocumentIdentity>, std::unique_ptr<PreparedDocumentIdentity>>
  openTwiceAtOnce(const std::filesystem::path& file) {
    fingerprinter->holdUntilReleased = true;
    auto both =
        [&]() -> async::Task<std::pair<PreparedDocumentIdentity*, PreparedDocumentIdentity*>> {
      auto attempt = [&]() -> async::Task<PreparedDocumentIdentity*> {
        try {
          co_return new PreparedDocumentIdentity(co_await open(file));
        } catch (const std::runtime_error&) {
          co_return nullptr;
        }
      };
      auto first = async::SharedTask<PreparedDocumentIdentity*>::start(attempt());
      auto second = async::SharedTask<PreparedDocumentIdentity*>::start(attempt());
      while (registry->waitingOpenCount() < 2) co_await async::sleepFor(1ms);
      fingerprinter->release();
      co_return std::pair{co_await first, co_await second};
    };
    const auto [first, second] = run(both());
    return {std::unique_ptr<PreparedDocumentIdentity>(first),
            std::unique_ptr<PreparedDocumentIdentity>(second)};
  }

  void expectLedgerBalanced() {
    EXPECT_EQ(ledger->activeCount(), 0);
    EXPECT_EQ(ledger->starts(), ledger->stops());
  }
};

TEST_F(DocumentOpenRegistryTest, ReservesTheFingerprintOfAFirstOpenAndTracesItsStages) {
  writeFile(directory / "book.epub", "the book");
  auto trace = std::make_shared<OpenPerformanceTrace>();
  PreparedDocumentIdentity identity =
      run(OpenPerformanceTrace::bind(trace, open(directory / "book.epub")));
  EXPECT_FALSE(identity.reusedActiveSession);
  EXPECT_TRUE(registry->isReserved(identity.fingerprint));
  EXPECT_EQ(identity.sourceURL, directory / "book.epub");
  EXPECT_TRUE(std::filesystem::exists(bookmarkStore->bookmarkFileURL(identity.fingerprint)));
  identity.sourceAccess->end();
  expectLedgerBalanced();
  const OpenPerformanceTrace::State state = trace->state();
  EXPECT_EQ(state.identityCacheHit, false);
  EXPECT_EQ(state.sourceByteCount, 8);
  for (const char* stage : {"identityCacheLookup", "fullFingerprint", "securityScopedAccess"}) {
    EXPECT_TRUE(state.durationsMS.contains(stage)) << stage;
  }
}

// Any letter case of the extension opens; another type is refused before any access begins, and
// a file that cannot be read ends its access.
TEST_F(DocumentOpenRegistryTest, OpensOnlyReadableEPUBs) {
  writeFile(directory / "BOOK.EPUB", "the book");
  writeFile(directory / "book.pdf", "not a book");
  run(open(directory / "BOOK.EPUB")).sourceAccess->end();
  EXPECT_EQ(openFailure(open(directory / "book.pdf")), DocumentOpenFailure::notAnEPUB);
  EXPECT_EQ(ledger->starts(), 1) << "no access may begin for a file of another type";
  EXPECT_EQ(openFailure(open(directory / "missing.epub")), DocumentOpenFailure::sourceUnavailable);
  EXPECT_EQ(ledger->starts(), 2);
  expectLedgerBalanced();
}

TEST_F(DocumentOpenRegistryTest, TwoOpensOfOnePathHashOnceAndTheSecondReusesTheReservation) {
  writeFile(directory / "book.epub", "the book");
  const auto [first, second] = openTwiceAtOnce(directory / "book.epub");
  ASSERT_TRUE(first && second);
  EXPECT_EQ(first->fingerprint, second->fingerprint);
  first->sourceAccess->end();
  second->sourceAccess->end();
  EXPECT_EQ(fingerprinter->calls, 1);
  EXPECT_NE(first->reusedActiveSession, second->reusedActiveSession)
      << "exactly one open wins the reservation";
  EXPECT_EQ(registry->inFlightCount(), 0u);
  expectLedgerBalanced();
}

TEST_F(DocumentOpenRegistryTest, TheSameContentUnderTwoPathsHashesTwiceAndReservesOnce) {
  writeFile(directory / "a.epub", "same content");
  writeFile(directory / "copy.epub", "same content");
  PreparedDocumentIdentity first = run(open(directory / "a.epub"));
  PreparedDocumentIdentity second = run(open(directory / "copy.epub"));
  EXPECT_EQ(fingerprinter->calls, 2);
  EXPECT_EQ(first.fingerprint, second.fingerprint);
  EXPECT_FALSE(first.reusedActiveSession);
  EXPECT_TRUE(second.reusedActiveSession);
}

TEST_F(DocumentOpenRegistryTest, AWarmOpenUsesTheIdentityCacheAndHashesNothing) {
  writeFile(directory / "book.epub", "the book");
  PreparedDocumentIdentity first = run(open(directory / "book.epub"));
  registry->releaseReservation(first.fingerprint);
  PreparedDocumentIdentity second = run(open(directory / "book.epub"));
  EXPECT_EQ(fingerprinter->calls, 1);
  EXPECT_EQ(second.fingerprint, first.fingerprint);
  EXPECT_FALSE(second.reusedActiveSession);
}

TEST_F(DocumentOpenRegistryTest, AFailedHashReachesEveryWaiterAndANewOpenStartsAfresh) {
  writeFile(directory / "book.epub", "the book");
  fingerprinter->failure = true;
  const auto [first, second] = openTwiceAtOnce(directory / "book.epub");
  EXPECT_FALSE(first || second);
  EXPECT_EQ(fingerprinter->calls, 1);
  EXPECT_EQ(registry->inFlightCount(), 0u);
  expectLedgerBalanced();

  fingerprinter->failure = false;
  PreparedDocumentIdentity retry = run(open(directory / "book.epub"));
  EXPECT_EQ(fingerprinter->calls, 2);
  EXPECT_FALSE(retry.reusedActiveSession);
}

TEST_F(DocumentOpenRegistryTest, AnExpectedFingerprintThatDiffersReservesNothingButIsLearnt) {
  writeFile(directory / "other.epub", "another book");
  const std::string expected(64, 'c');
  EXPECT_EQ(openFailure(open(directory / "other.epub", expected)),
            DocumentOpenFailure::relocatedContentMismatch);
  expectLedgerBalanced();
  const auto records = identityCache->loadRecords();
  ASSERT_EQ(records.size(), 1u);
  EXPECT_FALSE(registry->isReserved(records[0].fingerprint));
  EXPECT_FALSE(std::filesystem::exists(directory / "Publications" / records[0].fingerprint))
      << "the bookmark store must be untouched";
}

TEST_F(DocumentOpenRegistryTest, RegisteringAnActiveFingerprintBringsTheOldWindowForward) {
  const std::string fingerprint(64, 'd');
  int firstWindow = 0;
  int secondWindow = 0;
  EXPECT_TRUE(registry->registerActive(fingerprint, [&] { ++firstWindow; }));
  EXPECT_FALSE(registry->registerActive(fingerprint, [&] { ++secondWindow; }));
  EXPECT_EQ(firstWindow, 1);
  EXPECT_EQ(secondWindow, 0);
  EXPECT_TRUE(registry->activate(fingerprint));
  EXPECT_EQ(firstWindow, 2);
  registry->releaseReservation(fingerprint);
  EXPECT_TRUE(registry->isActive(fingerprint));
  registry->removeActive(fingerprint);
  EXPECT_FALSE(registry->activate(fingerprint));
}

TEST_F(DocumentOpenRegistryTest, AnOpenOfAnActiveBookIsToldToReuseIt) {
  writeFile(directory / "book.epub", "the book");
  PreparedDocumentIdentity first = run(open(directory / "book.epub"));
  registry->registerActive(first.fingerprint, [] {});
  EXPECT_FALSE(registry->isReserved(first.fingerprint));
  PreparedDocumentIdentity second = run(open(directory / "book.epub"));
  EXPECT_TRUE(second.reusedActiveSession);
}

// Ending twice counts once, a destroyed lease ends itself, and one that outlives its ledger still
// ends.
TEST(SecurityScopedAccessTest, EveryLeaseEndsOnce) {
  auto ledger = std::make_shared<SecurityScopedAccessLedger>();
  auto lease = ledger->begin("/tmp/book.epub");
  EXPECT_FALSE(lease->systemGranted());
  EXPECT_EQ(ledger->activeCount(), 1);
  lease->end();
  lease->end();
  EXPECT_EQ(ledger->stops(), 1);
  { auto dropped = ledger->begin("/tmp/other.epub"); }
  EXPECT_EQ(ledger->starts(), 2);
  EXPECT_EQ(ledger->stops(), 2);
  EXPECT_EQ(ledger->activeCount(), 0);
  auto outliving = ledger->begin("/tmp/book.epub");
  ledger.reset();
  outliving->end();
  EXPECT_TRUE(outliving->ended());
}

class SourceBookmarkStoreTest : public ::testing::Test, protected testing::RegistryFixture {
 protected:
  const std::string fingerprint = std::string(64, 'e');
};

// Renamed in its directory, the file resolves stale once and the bookmark is rewritten; gone, it
// fails to resolve, as does a fingerprint never saved.
TEST_F(SourceBookmarkStoreTest, FollowsARenameAndFailsForAFileThatIsGone) {
  const auto resolve = [&](const std::string& of) {
    return async::runUntilDone(bookmarkStore->resolve(of), 5s);
  };
  writeFile(directory / "books/book.epub", "content");
  async::runUntilDone(bookmarkStore->save(directory / "books/book.epub", fingerprint), 5s);
  EXPECT_EQ(resolve(fingerprint).isStale, false);
  std::filesystem::rename(directory / "books/book.epub", directory / "books/renamed.epub");
  const auto moved = resolve(fingerprint);
  EXPECT_EQ(moved.url, directory / "books/renamed.epub");
  EXPECT_TRUE(moved.isStale);
  EXPECT_TRUE(moved.didRefresh);
  const auto again = resolve(fingerprint);
  EXPECT_FALSE(again.isStale);
  EXPECT_EQ(again.url, directory / "books/renamed.epub");
  std::filesystem::remove(directory / "books/renamed.epub");
  EXPECT_THROW(resolve(fingerprint), std::system_error);
  EXPECT_THROW(resolve(std::string(64, 'f')), std::system_error);
}

TEST_F(SourceBookmarkStoreTest, AnInvalidFingerprintIsRefusedWithoutTouchingTheDisk) {
  writeFile(directory / "book.epub", "content");
  for (const std::string& bad : {std::string(63, 'a'), std::string(63, 'a') + "A",
                                 std::string("../../../../../../etc/passwd")}) {
    try {
      async::runUntilDone(bookmarkStore->save(directory / "book.epub", bad), 5s);
      ADD_FAILURE() << bad;
    } catch (const SourceBookmarkStoreFailureError& error) {
      EXPECT_EQ(error.failure(), SourceBookmarkStoreFailure::invalidFingerprint);
    }
  }
  EXPECT_FALSE(std::filesystem::exists(directory / "Publications"));
}

}  // namespace
}  // namespace tomekeeper
