#include "intake/PublicationExtractionCache.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <optional>
#include <random>
#include <regex>
#include <set>

#include "async/Completion.h"
#include "async/RunUntilDone.h"
#include "async/Spawn.h"
#include "intake/IntakeFailures.h"
#include "intake/PublicationCacheOperationLease.h"
#include "opening/OpenPerformanceTrace.h"
#include "opening/PublicationFingerprintService.h"
#include "support/EpubBuilder.h"
#include "support/FaultInjectingFileSystem.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::EpubBuilder;
using testing::ZipArchiveBuilder;

const std::string kFingerprint(64, 'a');
const std::regex kUpperCaseUUID(
    "[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");

// Every name under `root`, relative to it.
std::set<std::string> namesUnder(const fs::path& root) {
  std::set<std::string> names;
  if (!fs::exists(root)) return names;
  for (const auto& item : fs::recursive_directory_iterator(root)) {
    names.insert(fs::relative(item.path(), root).string());
  }
  return names;
}

bool holdsOperationNames(const fs::path& root) {
  for (const std::string& name : namesUnder(root)) {
    if (name.find(".operation-") != std::string::npos ||
        name.find(".extract-") != std::string::npos) {
      return true;
    }
  }
  return false;
}

class PublicationCacheOperationLeaseTest : public ::testing::Test {
 protected:
  testing::TemporaryDirectory root_;
};

TEST_F(PublicationCacheOperationLeaseTest, HoldsALockedFileBesideItsWorkArea) {
  PublicationCacheOperationLease lease(root_.path());
  const std::string lockName = lease.lockURL().filename().string();
  const std::string areaName = lease.operationRoot().filename().string();
  ASSERT_TRUE(lockName.starts_with(".operation-") && lockName.ends_with(".lock"));
  EXPECT_EQ(areaName, lockName.substr(0, lockName.size() - 5) + ".partial");
  EXPECT_TRUE(std::regex_match(lockName.substr(11, 36), kUpperCaseUUID)) << lockName;
  EXPECT_TRUE(fs::is_directory(lease.operationRoot()));

  const int other = ::open(lease.lockURL().c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_GE(other, 0);
  EXPECT_NE(::flock(other, LOCK_EX | LOCK_NB), 0);
  ::close(other);
}

// Finished, released or refused, a lease leaves no name behind; a second finish removes nothing.
TEST_F(PublicationCacheOperationLeaseTest, LeavesNoNameBehind) {
  EXPECT_THROW(PublicationCacheOperationLease(root_ / "absent"), std::system_error);
  EXPECT_TRUE(namesUnder(root_.path()).empty());
  { PublicationCacheOperationLease released(root_.path()); }
  EXPECT_TRUE(namesUnder(root_.path()).empty());
  PublicationCacheOperationLease lease(root_.path());
  std::ofstream(lease.operationRoot() / "work") << "partial";
  lease.finish();
  EXPECT_TRUE(namesUnder(root_.path()).empty());
  // A new lease under the old names would be removed by a second finish.
  fs::create_directory(lease.operationRoot());
  lease.finish();
  EXPECT_TRUE(fs::exists(lease.operationRoot()));
}

class PublicationExtractionCacheTest : public ::testing::Test {
 protected:
  fs::path writeBook(const EpubBuilder& book, const std::string& name = "book.epub") {
    const fs::path path = directory_ / name;
    book.writeTo(path);
    return path;
  }

  PreparedPublicationResources prepare(const fs::path& source,
                                       const std::string& fingerprint = kFingerprint) {
    return async::runUntilDone(cache_.prepare(source, fingerprint), 60s);
  }

  // A stale or live operation of another run: a work area and its lock file.
  std::pair<fs::path, fs::path> makeOperation(const std::string& id) {
    fs::create_directories(root_ / (".operation-" + id + ".partial") / "Extracted");
    std::ofstream(root_ / (".operation-" + id + ".partial") / "Extracted" / "x") << "x";
    std::ofstream(root_ / (".operation-" + id + ".lock"));
    return {root_ / (".operation-" + id + ".partial"), root_ / (".operation-" + id + ".lock")};
  }

  testing::TemporaryDirectory directory_;
  fs::path root_ = directory_ / "Caches" / "Publications";
  PublicationExtractionCache cache_{root_};
};

TEST_F(PublicationExtractionCacheTest, ExtractsValidatesAndDescribesABook) {
  const PreparedPublicationResources resources = prepare(writeBook(EpubBuilder()));

  const fs::path finalDirectory = root_ / kFingerprint / "Extracted";
  EXPECT_EQ(resources.fingerprint, kFingerprint);
  EXPECT_EQ(resources.extractedRoot, finalDirectory);
  EXPECT_FALSE(resources.usesFontObfuscation());
  EXPECT_TRUE(fs::is_regular_file(finalDirectory / "OEBPS/package.opf"));
  const std::string id = resources.descriptor.publicationID.string();
  EXPECT_TRUE(std::regex_match(id, kUpperCaseUUID)) << id;
  EXPECT_EQ(resources.descriptor.accessMode,
            PublicationDescriptor::AccessMode::applicationResourceScheme);
  EXPECT_EQ(
      namesUnder(root_),
      (std::set<std::string>{
          kFingerprint, kFingerprint + "/Extracted", kFingerprint + "/Extracted/mimetype",
          kFingerprint + "/Extracted/META-INF", kFingerprint + "/Extracted/META-INF/container.xml",
          kFingerprint + "/Extracted/OEBPS", kFingerprint + "/Extracted/OEBPS/package.opf",
          kFingerprint + "/Extracted/OEBPS/chapter1.xhtml"}));
}

// A book fingerprinted by the single pass is read once: its prepare commits the staged tree even
// with the file gone. What no prepare takes leaves nothing once discarded.
TEST_F(PublicationExtractionCacheTest, APrepareCommitsWhatTheSinglePassStaged) {
  const fs::path source = writeBook(EpubBuilder());
  const std::string fingerprint =
      async::runUntilDone(cache_.fingerprintWhileExtracting(source), 60s);
  EXPECT_EQ(fingerprint, PublicationFingerprintService::fingerprintFile(source, {}));
  EXPECT_TRUE(holdsOperationNames(root_));
  fs::remove(source);
  const auto resources = prepare(source, fingerprint);
  EXPECT_TRUE(fs::is_regular_file(resources.extractedRoot / "OEBPS/package.opf"));
  EXPECT_FALSE(holdsOperationNames(root_));

  const fs::path again = writeBook(EpubBuilder(), "again.epub");
  cache_.discardStaged(async::runUntilDone(cache_.fingerprintWhileExtracting(again), 60s));
  EXPECT_FALSE(holdsOperationNames(root_));
}

// The package's URL and the resource base under it name the package's path, escaped, under the
// publication's identifier.
TEST_F(PublicationExtractionCacheTest, DescribesThePackageByItsEscapedPath) {
  const struct {
    const char* name;
    std::string packagePath;
    std::string packageURL;
    std::string resourceBase;
  } cases[] = {
      {"a package in a folder", "OEBPS/package.opf", "OEBPS/package.opf", "OEBPS/"},
      {"a package at the root", "package.opf", "package.opf", ""},
      {"a path to escape",
       "Text Files/b\xC3\xBC"
       "ch%.opf",
       "Text%20Files/b%C3%BCch%25.opf", "Text%20Files/"},
  };
  char fingerprintLetter = 'a';
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    EpubBuilder book;
    if (testCase.packagePath != EpubBuilder::kPackageDocumentPath) {
      book.withContainerXML(EpubBuilder::containerXML(testCase.packagePath));
      book.addFile(testCase.packagePath, "<package/>");
    }
    const auto resources = prepare(writeBook(book), std::string(64, fingerprintLetter++));
    const std::string base =
        "tomekeeper://publication/" + resources.descriptor.publicationID.string() + "/";
    EXPECT_EQ(resources.descriptor.packageURL, base + testCase.packageURL);
    EXPECT_EQ(resources.descriptor.resourceBaseURL, base + testCase.resourceBase);
  }
}

// A second open reuses the cached directory without opening the archive, under a new
// identifier; a cached copy that lost its container is rebuilt.
TEST_F(PublicationExtractionCacheTest, ASecondOpenReusesTheDirectoryWithANewIdentifier) {
  const fs::path source = writeBook(EpubBuilder());
  const auto first = prepare(source);
  const fs::path marker = first.extractedRoot / "OEBPS/chapter1.xhtml";
  struct stat before {};
  ASSERT_EQ(::stat(marker.c_str(), &before), 0);
  fs::remove(source);

  const auto second = prepare(source);
  struct stat after {};
  ASSERT_EQ(::stat(marker.c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
  EXPECT_EQ(second.extractedRoot, first.extractedRoot);
  EXPECT_NE(second.descriptor.publicationID, first.descriptor.publicationID);

  writeBook(EpubBuilder());
  fs::remove(first.extractedRoot / "META-INF/container.xml");
  EXPECT_TRUE(fs::exists(prepare(source).extractedRoot / "META-INF/container.xml"));
}

// A book refused by the inspection, the extraction (a lie or a full disk) or the validation, or
// refused again after its cached copy failed: the failure reaches the caller and only the empty
// fingerprint directory is left.
TEST_F(PublicationExtractionCacheTest, ARefusedBookLeavesOnlyItsEmptyFingerprintDirectory) {
  std::mt19937 generator(7);
  std::string plate(3 << 20, '\0');
  for (char& byte : plate) byte = static_cast<char>(generator());
  const struct {
    const char* name;
    std::function<void(EpubBuilder&)> change;
    std::vector<testing::FileFault> faults;
    std::string failure;
  } cases[] = {
      {"a symbolic link",
       [](EpubBuilder& book) {
         book.archive().entryNamed("OEBPS/chapter1.xhtml").externalAttributes =
             ZipArchiveBuilder::kSymbolicLinkAttributes;
       },
       {},
       "EPUBArchiveInspectionFailure.symbolicLink"},
      {"a wrong checksum",
       [](EpubBuilder& book) { book.archive().entryNamed("OEBPS/chapter1.xhtml").centralCRC = 1; },
       {},
       "EPUBArchiveExtractionFailure.checksumMismatch"},
      {"a full disk half-way through the extraction",
       [&](EpubBuilder& book) { book.addFile("OEBPS/images/plate.png", plate); },
       {{testing::FileOperation::write, ENOSPC, "plate.png", 2}},
       "EPUBArchiveExtractionFailure.cannotCreateOutput"},
      {"rights metadata",
       [](EpubBuilder& book) { book.withRightsXML(""); },
       {},
       "EPUBContainerValidationFailure.unsupportedDRM"},
      {"a cached copy that fails, and a book refused again",
       [&](EpubBuilder& book) {
         prepare(writeBook(EpubBuilder()));
         std::ofstream(root_ / kFingerprint / "Extracted/META-INF/rights.xml");
         book.withRightsXML("<rights/>");
       },
       {},
       "EPUBContainerValidationFailure.unsupportedDRM"},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    EpubBuilder book;
    testCase.change(book);
    const fs::path source = writeBook(book);
    testing::FaultInjectingFileSystem fileSystem(testCase.faults);
    try {
      prepare(source);
      ADD_FAILURE() << "the book was prepared";
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.reflectiveText(), testCase.failure);
    }
    EXPECT_EQ(namesUnder(root_), std::set<std::string>{kFingerprint});
  }
}

TEST_F(PublicationExtractionCacheTest, ACancelledPrepareLeavesNoOperationBehind) {
  EpubBuilder book;
  for (int index = 0; index < 20; ++index) {
    book.addFile("OEBPS/text/part" + std::to_string(index) + ".xhtml", "<p>part</p>");
  }
  const fs::path source = writeBook(book);
  std::stop_source stop;
  // Stopped half-way through the extraction, while its operation and lock exist.
  testing::FaultInjectingFileSystem fileSystem;
  bool sawOperation = false;
  fileSystem.beforeCall = [&](testing::FileOperation operation, const std::string& path) {
    if (operation != testing::FileOperation::open || path.find("part10") == std::string::npos)
      return;
    sawOperation = holdsOperationNames(root_);
    stop.request_stop();
  };
  EXPECT_THROW(async::runUntilDone(cache_.prepare(source, kFingerprint), 60s, stop.get_token()),
               async::OperationCancelled);
  EXPECT_TRUE(sawOperation);
  EXPECT_FALSE(holdsOperationNames(root_));
  EXPECT_FALSE(fs::exists(root_ / kFingerprint / "Extracted"));
}

TEST_F(PublicationExtractionCacheTest, TwoParallelPreparesOfOneFingerprintBothSucceed) {
  EpubBuilder book;
  for (int index = 0; index < 200; ++index) {
    book.addFile("OEBPS/page" + std::to_string(index) + ".xhtml",
                 "<p>" + std::to_string(index * 7919) + "</p>");
  }
  const fs::path source = writeBook(book);
  std::optional<PreparedPublicationResources> first;
  std::optional<PreparedPublicationResources> second;
  auto both = [&]() -> async::Task<void> {
    auto done = std::make_shared<async::Completion<void>>();
    async::spawn([](PublicationExtractionCache cache, fs::path path,
                    std::optional<PreparedPublicationResources>& result,
                    std::shared_ptr<async::Completion<void>> completion) -> async::Task<void> {
      try {
        result = co_await cache.prepare(path, kFingerprint);
        completion->resolve();
      } catch (...) {
        completion->reject(std::current_exception());
      }
    }(cache_, source, first, done));
    second = co_await cache_.prepare(source, kFingerprint);
    co_await *done;
  };
  async::runUntilDone(both(), 60s);

  ASSERT_TRUE(first && second);
  EXPECT_EQ(first->extractedRoot, second->extractedRoot);
  EXPECT_NE(first->descriptor.publicationID, second->descriptor.publicationID);
  std::set<std::string> topLevel;
  for (const auto& item : fs::directory_iterator(root_)) topLevel.insert(item.path().filename());
  EXPECT_EQ(topLevel, std::set<std::string>{kFingerprint});
  std::set<std::string> publication;
  for (const auto& item : fs::directory_iterator(root_ / kFingerprint)) {
    publication.insert(item.path().filename());
  }
  EXPECT_EQ(publication, std::set<std::string>{"Extracted"});
}

TEST_F(PublicationExtractionCacheTest, MarksTheStagesOfTheBoundTrace) {
  const fs::path source = writeBook(EpubBuilder());
  auto trace = std::make_shared<OpenPerformanceTrace>();
  async::runUntilDone(OpenPerformanceTrace::bind(trace, cache_.prepare(source, kFingerprint)), 60s);
  OpenPerformanceTrace::State state = trace->state();
  EXPECT_EQ(state.extractionCacheHit, false);
  EXPECT_EQ(state.archiveEntryCount, 4);
  for (const char* stage :
       {"archiveInspection", "archiveExtraction", "containerValidation", "cacheCommit"}) {
    EXPECT_TRUE(state.durationsMS.contains(stage)) << stage;
  }
  EXPECT_FALSE(state.durationsMS.contains("extractionCacheValidation"));

  auto hitTrace = std::make_shared<OpenPerformanceTrace>();
  async::runUntilDone(OpenPerformanceTrace::bind(hitTrace, cache_.prepare(source, kFingerprint)),
                      60s);
  state = hitTrace->state();
  EXPECT_EQ(state.extractionCacheHit, true);
  EXPECT_TRUE(state.durationsMS.contains("extractionCacheValidation"));
  EXPECT_FALSE(state.durationsMS.contains("archiveInspection"));
}

// --- The stale sweep ------------------------------------------------------------

// A prepare sweeps an operation whose lock nobody holds, and leaves what is not an operation
// with a free lock, and this process's own lease.
TEST_F(PublicationExtractionCacheTest, SweepsOnlyOperationsWhoseLockNobodyHolds) {
  fs::create_directories(root_);
  const auto [area, lock] = makeOperation("11111111-1111-4111-8111-111111111111");
  const fs::path withoutLock = root_ / ".operation-22222222-2222-4222-8222-222222222222.partial";
  fs::create_directories(withoutLock);
  const fs::path plainFile = root_ / ".operation-33333333-3333-4333-8333-333333333333.partial";
  std::ofstream(plainFile) << "file";
  std::ofstream(root_ / ".operation-33333333-3333-4333-8333-333333333333.lock");
  const fs::path strayLock = root_ / ".operation-44444444-4444-4444-8444-444444444444.lock";
  std::ofstream{strayLock};
  PublicationCacheOperationLease lease(root_);
  prepare(writeBook(EpubBuilder()));
  EXPECT_FALSE(fs::exists(area));
  EXPECT_FALSE(fs::exists(lock));
  EXPECT_TRUE(fs::is_directory(withoutLock));
  EXPECT_TRUE(fs::is_regular_file(plainFile));
  EXPECT_TRUE(fs::exists(strayLock));
  EXPECT_TRUE(fs::is_directory(lease.operationRoot()));
  EXPECT_TRUE(fs::exists(lease.lockURL()));
}

TEST_F(PublicationExtractionCacheTest, ALiveLockOfAnotherProcessSurvivesTheSweep) {
  fs::create_directories(root_);
  const auto [area, lock] = makeOperation("55555555-5555-4555-8555-555555555555");
  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  const pid_t holder = ::fork();
  ASSERT_GE(holder, 0);
  if (holder == 0) {
    // Only async-signal-safe calls in the child of a threaded process.
    const int descriptor = ::open(lock.c_str(), O_RDWR);
    const char answer = (descriptor >= 0 && ::flock(descriptor, LOCK_EX) == 0) ? 'y' : 'n';
    (void)!::write(ready[1], &answer, 1);
    while (true) ::pause();
  }
  ::close(ready[1]);
  char answer = 0;
  ASSERT_EQ(::read(ready[0], &answer, 1), 1);
  ::close(ready[0]);
  ASSERT_EQ(answer, 'y');

  cache_.sweepStaleOperations();
  EXPECT_TRUE(fs::exists(area / "Extracted" / "x"));
  EXPECT_TRUE(fs::exists(lock));

  ::kill(holder, SIGKILL);
  ::waitpid(holder, nullptr, 0);
  cache_.sweepStaleOperations();
  EXPECT_FALSE(fs::exists(area));
  EXPECT_FALSE(fs::exists(lock));
}

// --- Measuring and clearing -------------------------------------------------------

TEST_F(PublicationExtractionCacheTest, MeasuresAllocatedSizesOfVisibleFiles) {
  EXPECT_EQ(async::runUntilDone(cache_.measureSize(), 10s), 0);
  prepare(writeBook(EpubBuilder()));
  std::int64_t expected = 0;
  for (const auto& item : fs::recursive_directory_iterator(root_)) {
    struct stat status {};
    ASSERT_EQ(::lstat(item.path().c_str(), &status), 0);
    if (S_ISREG(status.st_mode)) expected += static_cast<std::int64_t>(status.st_blocks) * 512;
  }
  // A running operation is not counted.
  makeOperation("66666666-6666-4666-8666-666666666666");
  std::ofstream(root_ / ".operation-66666666-6666-4666-8666-666666666666.partial" / "big")
      << std::string(100000, 'b');

  const std::int64_t measured = async::runUntilDone(cache_.measureSize(), 10s);
  EXPECT_EQ(measured, expected);
  EXPECT_GT(measured, 0);
}

TEST_F(PublicationExtractionCacheTest, ClearRemovesTheCacheAndSucceedsWithoutOne) {
  async::runUntilDone(cache_.clear(), 10s);
  prepare(writeBook(EpubBuilder()));
  async::runUntilDone(cache_.clear(), 10s);
  EXPECT_FALSE(fs::exists(root_));
  EXPECT_TRUE(fs::exists(root_.parent_path()));
}

}  // namespace
}  // namespace tomekeeper
