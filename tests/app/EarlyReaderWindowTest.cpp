// The window of a book read for the first time shows as soon as its package document is known,
// while the rest is prepared: the coordinator with its real registry and cache, a fake window
// system and fake sessions.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "app/DocumentOpenCoordinator.h"
#include "app/GatedPublicationCache.h"
#include "app/ShellFakes.h"
#include "async/Completion.h"
#include "async/OperationCancelled.h"
#include "async/RunUntilDone.h"
#include "intake/PublicationExtractionCache.h"
#include "opening/PublicationFingerprintService.h"
#include "support/EpubBuilder.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper::testing {
namespace {

// What the book is, and what happens while its window waits for the rest of the preparation.
enum class Book { plain, packageDocumentLast, alreadyOpen, refusedForDRM };
enum class WhileWaiting { nothing, userClosesTheWindow };
enum class Outcome { readerWindowTakesOver, existingWindowComesForward, errorShown, cancelled };

struct EarlyWindowCase {
  const char* name;
  Book book;
  WhileWaiting whileWaiting;
  Outcome outcome;
};

constexpr const char* kEarlyTitle = "Early Title \u2014 Early Author";

class EarlyReaderWindowTest : public ::testing::TestWithParam<EarlyWindowCase> {
 protected:
  void SetUp() override {
    std::filesystem::create_directories(directory / "runtime");
    cache = std::make_shared<GatedPublicationCache>(directory / "caches",
                                                    GatedPublicationCache::SinglePass::offered);
    DocumentOpenCoordinator::Environment environment;
    environment.supportDirectory = directory / "support";
    environment.cachesRoot = directory / "caches";
    environment.runtimeRoot = directory / "runtime";
    environment.publicationCache = cache;
    environment.startReaderAhead = [this](const std::filesystem::path& runtimeRoot) {
      readersStartedAhead.push_back(runtimeRoot);
    };
    coordinator = DocumentOpenCoordinator::create(environment, platform, windows, sessions);
  }

  std::filesystem::path writeBook(Book kind) const {
    PackageDescription package{.title = "Early Title", .creators = {"Early Author"}};
    package.withChapters(3, "part");
    EpubBuilder builder;
    builder.withPackageDocument(package);
    for (int chapter = 1; chapter <= 3; ++chapter) {
      builder.addFile("OEBPS/part" + std::to_string(chapter) + ".xhtml",
                      "<html xmlns=\"http://www.w3.org/1999/xhtml\"><body><p>" +
                          std::string(20000, 'x') + "</p></body></html>");
    }
    if (kind == Book::packageDocumentLast) {
      builder.withContainerXML(EpubBuilder::containerXML("late/package.opf"))
          .addFile("late/package.opf", package.text());
    }
    if (kind == Book::refusedForDRM) {
      builder.withEncryptionXML(EpubBuilder::encryptionXML({"http://example.com/drm"}));
    }
    const std::filesystem::path file = directory / "books" / "early.epub";
    std::filesystem::create_directories(file.parent_path());
    builder.writeTo(file);
    return file;
  }

  std::size_t operationDirectories() const {
    std::size_t count = 0;
    if (!std::filesystem::exists(directory / "caches")) return 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory / "caches")) {
      if (entry.path().filename().string().starts_with(".operation-")) ++count;
    }
    return count;
  }

  TemporaryDirectory directory;
  std::shared_ptr<GatedPublicationCache> cache;
  std::shared_ptr<FakePlatform> platform = std::make_shared<FakePlatform>();
  std::shared_ptr<FakeWindowFactory> windows = std::make_shared<FakeWindowFactory>();
  std::shared_ptr<FakeSessionFactory> sessions = std::make_shared<FakeSessionFactory>();
  std::shared_ptr<DocumentOpenCoordinator> coordinator;
  std::vector<std::filesystem::path> readersStartedAhead;
};

TEST_P(EarlyReaderWindowTest, ShowsTheTitledWindowBeforeTheBookIsReadyAndEndsItRight) {
  const EarlyWindowCase& testCase = GetParam();
  const std::filesystem::path book = writeBook(testCase.book);
  const std::string fingerprint = PublicationFingerprintService::fingerprintFile(book, {});
  std::shared_ptr<FakeWindow> existing;
  if (testCase.book == Book::alreadyOpen) {
    // The same book under another name, open already.
    const auto copy = directory / "books" / "copy.epub";
    std::filesystem::copy_file(book, copy);
    cache->gate->resolve();
    async::runUntilDone(coordinator->open(copy, RecentDocumentUse::remember, std::nullopt));
    ASSERT_EQ(windows->readerWindows.size(), 1u);
    existing = windows->readerWindows.front();
    windows->openingWindows.clear();
    readersStartedAhead.clear();
  }
  // Its first open extracted the book; this open reads the other file in a pass of its own.
  coordinator->requestOpen(book);
  ASSERT_TRUE(iterateUntil([&] { return windows->openingWindows.size() == 1; }));
  const std::shared_ptr<FakeWindow> early = windows->openingWindows.front();
  EXPECT_EQ(early->title, kEarlyTitle);
  EXPECT_TRUE(early->identifier().empty());
  if (testCase.book == Book::plain || testCase.book == Book::packageDocumentLast) {
    // Seen while the rest of the preparation waits: no session yet, the window up.
    EXPECT_TRUE(early->visible);
    EXPECT_EQ(early->presentCount, 1);
    EXPECT_TRUE(sessions->sessions.empty());
    EXPECT_EQ(coordinator->openingWindowCount(), 1u);
  }
  // The reader's web view starts with the window, while the book is still prepared.
  EXPECT_EQ(readersStartedAhead, std::vector<std::filesystem::path>{directory / "runtime"});
  if (testCase.whileWaiting == WhileWaiting::userClosesTheWindow) early->close();
  cache->gate->resolve();
  ASSERT_TRUE(iterateUntil([&] { return coordinator->activeOpenOperations() == 0; }));

  EXPECT_EQ(coordinator->openingWindowCount(), 0u);
  EXPECT_EQ(operationDirectories(), 0u);
  switch (testCase.outcome) {
    case Outcome::readerWindowTakesOver: {
      ASSERT_EQ(windows->readerWindows.size(), 1u);
      const auto& reader = windows->readerWindows.front();
      EXPECT_TRUE(early->takenOver);
      EXPECT_FALSE(early->closed);
      EXPECT_EQ(windows->requests.front().openingWindow, early);
      EXPECT_TRUE(reader->visible);
      EXPECT_EQ(reader->identifier(), fingerprint);
      EXPECT_EQ(reader->title, "A Title \u2014 An Author");
      EXPECT_FALSE(early->progress.empty());
      EXPECT_TRUE(coordinator->registry()->isActive(fingerprint));
      break;
    }
    case Outcome::existingWindowComesForward:
      EXPECT_TRUE(early->closed);
      EXPECT_EQ(windows->readerWindows.size(), 1u);
      EXPECT_EQ(existing->presentCount, 2);
      EXPECT_EQ(coordinator->openWindows().size(), 1u);
      EXPECT_TRUE(platform->alerts.empty());
      break;
    case Outcome::errorShown:
      EXPECT_TRUE(early->closed);
      EXPECT_TRUE(windows->readerWindows.empty());
      ASSERT_EQ(platform->alerts.size(), 1u);
      EXPECT_FALSE(coordinator->registry()->isReserved(fingerprint));
      break;
    case Outcome::cancelled:
      EXPECT_TRUE(early->closed);
      EXPECT_FALSE(early->takenOver);
      EXPECT_TRUE(windows->readerWindows.empty());
      EXPECT_TRUE(sessions->sessions.empty());
      EXPECT_TRUE(platform->alerts.empty());
      EXPECT_FALSE(coordinator->registry()->isReserved(fingerprint));
      EXPECT_TRUE(coordinator->openWindows().empty());
      break;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, EarlyReaderWindowTest,
    ::testing::Values(
        EarlyWindowCase{"BecomesTheReaderWindow", Book::plain, WhileWaiting::nothing,
                        Outcome::readerWindowTakesOver},
        EarlyWindowCase{"ShowsForAPackageDocumentAtTheEndOfTheArchive", Book::packageDocumentLast,
                        WhileWaiting::nothing, Outcome::readerWindowTakesOver},
        EarlyWindowCase{"ClosesForTheWindowOfTheSameBookAlreadyOpen", Book::alreadyOpen,
                        WhileWaiting::nothing, Outcome::existingWindowComesForward},
        EarlyWindowCase{"ClosesWhenThePreparationFailsAndTheErrorShows", Book::refusedForDRM,
                        WhileWaiting::nothing, Outcome::errorShown},
        EarlyWindowCase{"ClosedByTheUserCancelsTheOpenQuietly", Book::plain,
                        WhileWaiting::userClosesTheWindow, Outcome::cancelled}),
    [](const ::testing::TestParamInfo<EarlyWindowCase>& info) { return info.param.name; });

}  // namespace
}  // namespace tomekeeper::testing
