// The tomekeeper-intake program, run as a child process on books made by the
// archive builder: what it prints, its exit status, what it leaves on disk, and
// what a killed run leaves for the next prepare.

#include <glib.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <nlohmann/json.hpp>

#include <chrono>
#include <functional>
#include <thread>

#include "async/RunUntilDone.h"
#include "intake/PublicationExtractionCache.h"
#include "opening/PublicationFingerprintService.h"
#include "support/EpubBuilder.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::EpubBuilder;
using testing::ZipArchiveBuilder;

struct ProgramResult {
  int exitStatus = -1;
  std::string output;
};

class IntakeProgramTest : public ::testing::Test {
 protected:
  // Runs the program with a private TMPDIR, so that what it leaves there shows.
  ProgramResult run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), TOMEKEEPER_INTAKE_PROGRAM);
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    gchar** environment = g_get_environ();
    environment = g_environ_setenv(environment, "TMPDIR", temporary_.c_str(), TRUE);
    gchar* output = nullptr;
    gint waitStatus = 0;
    GError* error = nullptr;
    const gboolean spawned =
        g_spawn_sync(nullptr, argv.data(), environment, G_SPAWN_STDERR_TO_DEV_NULL, nullptr,
                     nullptr, &output, nullptr, &waitStatus, &error);
    g_strfreev(environment);
    if (!spawned) {
      ADD_FAILURE() << error->message;
      g_error_free(error);
      return {};
    }
    ProgramResult result{WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : -1, output};
    g_free(output);
    return result;
  }

  fs::path write(const EpubBuilder& book, const std::string& name = "book.epub") {
    const fs::path path = directory_ / name;
    book.writeTo(path);
    return path;
  }

  testing::TemporaryDirectory directory_;
  fs::path temporary_ = [this] {
    fs::create_directories(directory_ / "tmp");
    return directory_ / "tmp";
  }();
};

TEST_F(IntakeProgramTest, AcceptsABookAndPrintsItsFigures) {
  const ProgramResult result = run({write(EpubBuilder()).string()});
  EXPECT_EQ(result.exitStatus, 0);
  ASSERT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 1) << result.output;
  const nlohmann::json line = nlohmann::json::parse(result.output);
  EXPECT_EQ(line["outcome"], "accepted");
  EXPECT_EQ(line["entries"], 4);
  EXPECT_EQ(line["packageDocumentPath"], "OEBPS/package.opf");
  EXPECT_EQ(line["usesFontObfuscation"], false);
  EXPECT_EQ(line["cacheHit"], false);
  EXPECT_GT(line["totalUncompressedSize"].get<std::uint64_t>(), 0u);
  EXPECT_TRUE(fs::is_empty(temporary_));
}

TEST_F(IntakeProgramTest, WithACacheKeepsTheResultAndReportsTheHitNextTime) {
  const fs::path book = write(EpubBuilder());
  const fs::path caches = directory_ / "caches";
  const ProgramResult first = run({book.string(), "--cache", caches.string()});
  const ProgramResult second = run({book.string(), "--cache", caches.string()});
  EXPECT_EQ(first.exitStatus, 0);
  EXPECT_EQ(nlohmann::json::parse(first.output)["cacheHit"], false);
  EXPECT_EQ(nlohmann::json::parse(second.output)["cacheHit"], true);
  const std::string fingerprint = PublicationFingerprintService::fingerprintFile(book, {});
  EXPECT_TRUE(fs::is_regular_file(caches / fingerprint / "Extracted/OEBPS/package.opf"));
}

TEST_F(IntakeProgramTest, UsageErrorsExitWithOne) {
  EXPECT_EQ(run({}).exitStatus, 1);
  EXPECT_EQ(run({"a.epub", "b.epub"}).exitStatus, 1);
  EXPECT_EQ(run({"a.epub", "--cache"}).exitStatus, 1);
  EXPECT_EQ(run({"a.epub", "--unknown"}).exitStatus, 1);
}

// One book for each failure the program reports; the many ways to each failure are the
// inspector's, extractor's and validator's own tests.
TEST_F(IntakeProgramTest, RefusesEveryKindOfHostileBookWithItsFailure) {
  using Entry = ZipArchiveBuilder::Entry;
  const auto chapter = [](void (*change)(Entry&)) {
    return
        [change](EpubBuilder& book) { change(book.archive().entryNamed("OEBPS/chapter1.xhtml")); };
  };
  const struct {
    std::string failure;
    std::function<void(EpubBuilder&)> change;
  } cases[] = {
      {"EPUBArchiveInspectionFailure.invalidPath",
       [](EpubBuilder& book) { book.addFile("../escape.xhtml", "x"); }},
      {"EPUBArchiveInspectionFailure.symbolicLink",
       [](EpubBuilder& book) {
         book.archive().addDirectory("OEBPS/link").externalAttributes =
             ZipArchiveBuilder::kSymbolicLinkAttributes;
       }},
      {"EPUBArchiveInspectionFailure.conflictingPath",
       [](EpubBuilder& book) { book.addFile("OEBPS/Chapter1.XHTML", "x"); }},
      {"EPUBArchiveInspectionFailure.unsupportedZIP64",
       [](EpubBuilder& book) { book.archive().endRecord().centralDirectoryOffset = 0xFFFFFFFF; }},
      {"EPUBArchiveInspectionFailure.encryptedEntry",
       chapter([](Entry& entry) { entry.flags = 1; })},
      {"EPUBArchiveInspectionFailure.unsupportedCompression",
       chapter([](Entry& entry) { entry.method = 12; })},
      {"EPUBArchiveInspectionFailure.suspiciousExpansion", chapter([](Entry& entry) {
         entry.centralUncompressedSize =
             static_cast<std::uint32_t>(ZipArchiveBuilder::deflate(entry.content).size() * 201);
       })},
      {"EPUBArchiveInspectionFailure.malformedArchive",
       chapter([](Entry& entry) { entry.localMethod = 0; })},
      {"EPUBArchiveExtractionFailure.checksumMismatch",
       chapter([](Entry& entry) { entry.centralCRC = 7; })},
      {"EPUBArchiveExtractionFailure.decompressionFailed",
       chapter([](Entry& entry) { entry.trailingBytes = "more"; })},
      {"EPUBContainerValidationFailure.unsupportedDRM",
       [](EpubBuilder& book) { book.withRightsXML("<rights/>"); }},
      {"EPUBContainerValidationFailure.malformedEncryptionMetadata",
       [](EpubBuilder& book) { book.withEncryptionXML(EpubBuilder::encryptionXML({})); }},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.failure);
    EpubBuilder book;
    testCase.change(book);
    const ProgramResult result = run({write(book).string()});
    EXPECT_EQ(result.exitStatus, 2) << result.output;
    ASSERT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 1) << result.output;
    const nlohmann::json line = nlohmann::json::parse(result.output);
    EXPECT_EQ(line["outcome"], "refused");
    EXPECT_EQ(line["failure"], testCase.failure);
    EXPECT_FALSE(line["title"].get<std::string>().empty());
    EXPECT_FALSE(line["message"].get<std::string>().empty());
    EXPECT_TRUE(fs::is_empty(temporary_));
  }
}

TEST_F(IntakeProgramTest, AcceptsEveryBookOfTheSampleCorpus) {
  const fs::path corpus = fs::path(TOMEKEEPER_SOURCE_DIR) / ".." / "shared" / "corpus" / "samples";
  if (!fs::is_directory(corpus)) GTEST_SKIP() << "no sample corpus at " << corpus;
  int books = 0;
  for (const auto& item : fs::directory_iterator(corpus)) {
    if (item.path().extension() != ".epub") continue;
    ++books;
    const ProgramResult result = run({item.path().string()});
    EXPECT_EQ(result.exitStatus, 0) << item.path() << ": " << result.output;
    EXPECT_EQ(nlohmann::json::parse(result.output)["outcome"], "accepted") << item.path();
  }
  EXPECT_GT(books, 0);
  EXPECT_TRUE(fs::is_empty(temporary_));
}

bool holdsOperationNames(const fs::path& root) {
  for (const auto& item : fs::recursive_directory_iterator(root)) {
    const std::string name = item.path().filename().string();
    if (name.starts_with(".operation-") || name.starts_with(".extract-")) return true;
  }
  return false;
}

bool stagingHasFiles(const fs::path& root) {
  std::error_code error;
  for (auto item = fs::recursive_directory_iterator(root, error);
       item != fs::recursive_directory_iterator(); item.increment(error)) {
    if (error) return false;
    if (item->path().parent_path().filename().string().starts_with(".extract-")) return true;
  }
  return false;
}

TEST_F(IntakeProgramTest, ARunKilledInMidExtractionLeavesNothingTheNextPrepareKeeps) {
  // Stored entries, each flushed to storage on its own: long enough to be
  // caught in the middle.
  EpubBuilder book;
  for (int index = 0; index < 2000; ++index) {
    book.addFile("OEBPS/images/" + std::to_string(index) + ".bin",
                 std::string(16384, static_cast<char>('a' + index % 26)),
                 ZipArchiveBuilder::kStored);
  }
  const fs::path source = write(book);
  const fs::path caches = directory_ / "caches";

  std::string program = TOMEKEEPER_INTAKE_PROGRAM;
  std::string sourceArgument = source.string();
  std::string cacheOption = "--cache";
  std::string cacheArgument = caches.string();
  char* argv[] = {program.data(), sourceArgument.data(), cacheOption.data(), cacheArgument.data(),
                  nullptr};
  GPid child = 0;
  GError* error = nullptr;
  ASSERT_TRUE(g_spawn_async(
      nullptr, argv, nullptr,
      static_cast<GSpawnFlags>(G_SPAWN_DO_NOT_REAP_CHILD | G_SPAWN_STDOUT_TO_DEV_NULL |
                               G_SPAWN_STDERR_TO_DEV_NULL),
      nullptr, nullptr, &child, &error));
  const auto deadline = std::chrono::steady_clock::now() + 60s;
  while (!stagingHasFiles(caches) && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(1ms);
  }
  ::kill(child, SIGKILL);
  int status = 0;
  ::waitpid(child, &status, 0);
  g_spawn_close_pid(child);
  ASSERT_TRUE(WIFSIGNALED(status)) << "the run ended before it could be killed";
  ASSERT_TRUE(holdsOperationNames(caches));

  const std::string fingerprint = PublicationFingerprintService::fingerprintFile(source, {});
  const PublicationExtractionCache cache(caches);
  const PreparedPublicationResources resources =
      async::runUntilDone(cache.prepare(source, fingerprint), 120s);
  EXPECT_TRUE(fs::is_regular_file(resources.extractedRoot / "OEBPS/images/1999.bin"));
  EXPECT_FALSE(holdsOperationNames(caches));
}

}  // namespace
}  // namespace tomekeeper
