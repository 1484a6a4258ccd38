#include "intake/EPUBArchiveExtractor.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <stop_token>

#include "async/OperationCancelled.h"
#include "intake/EPUBArchiveInspector.h"
#include "intake/EPUBArchiveSinglePass.h"
#include "intake/FileOperations.h"
#include "intake/IntakeFailures.h"
#include "intake/ZipCRC32.h"
#include "opening/PublicationFingerprintService.h"
#include "support/EpubBuilder.h"
#include "support/FaultInjectingFileSystem.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper {
namespace {

namespace fs = std::filesystem;
using testing::EpubBuilder;
using testing::ZipArchiveBuilder;
using Failure = EPUBArchiveExtractionFailure;
using testing::FaultInjectingFileSystem;
using testing::FileFault;
using testing::FileOperation;
using testing::writeFile;

std::string readFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::stringstream contents;
  contents << file.rdbuf();
  return contents.str();
}

std::string randomBytes(std::size_t count, unsigned seed) {
  std::mt19937 generator(seed);
  std::string bytes(count, '\0');
  for (char& byte : bytes) byte = static_cast<char>(generator() & 0xFF);
  return bytes;
}

class EPUBArchiveExtractorTest : public ::testing::Test {
 protected:
  fs::path write(const EpubBuilder& book) {
    const fs::path path = directory_ / "book.epub";
    book.writeTo(path);
    return path;
  }

  EPUBArchiveInspection inspect(const fs::path& path) {
    return EPUBArchiveInspector().inspectBlocking(path);
  }

  enum class Way { extractor, singlePass };
  static constexpr std::int64_t kStandard = EPUBArchiveExtractor::kStandardBufferSize;

  // Takes `book` into `destination_` the chosen way and returns the failure, if any.
  std::optional<Failure> failureOf(const EpubBuilder& book, std::int64_t bufferSize = kStandard,
                                   Way way = Way::extractor) {
    const fs::path path = write(book);
    try {
      if (way == Way::singlePass) {
        EPUBArchiveSinglePass(EPUBArchiveInspector(), EPUBArchiveExtractor(bufferSize))
            .extract(path, destination_);
      } else {
        EPUBArchiveExtractor(bufferSize).extract(path, inspect(path), destination_);
      }
      return std::nullopt;
    } catch (const EPUBArchiveExtractionFailureError& error) {
      return error.failure();
    }
  }

  // Names in the destination's parent, other than the archive.
  std::vector<std::string> leftovers() const {
    std::vector<std::string> names;
    for (const auto& item : fs::directory_iterator(destination_.parent_path())) {
      names.push_back(item.path().filename().string());
    }
    return names;
  }

  void expectNothingLeftBehind() const {
    EXPECT_FALSE(fs::exists(destination_));
    for (const auto& name : leftovers()) EXPECT_FALSE(name.starts_with(".extract-")) << name;
  }

  testing::TemporaryDirectory directory_;
  fs::path destination_ = directory_ / "out" / "Extracted";
};

// Whole, and as a running state fed in pieces of any size.
TEST(ZipCRC32Test, AgreesWithZlib) {
  const auto bytesOf = [](const std::string& text) {
    return std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
  };
  EXPECT_EQ(ZipCRC32::of(bytesOf("123456789")), 0xCBF43926u);
  for (std::size_t size : {0, 1, 7, 4096, 100003}) {
    EXPECT_EQ(ZipCRC32::of(bytesOf(randomBytes(size, static_cast<unsigned>(size)))),
              ZipArchiveBuilder::crc32(randomBytes(size, static_cast<unsigned>(size))))
        << size;
  }
  const std::string bytes = randomBytes(70001, 5);
  const auto whole = bytesOf(bytes);
  for (std::size_t piece : {1, 3, 4096, 65536}) {
    std::uint32_t state = ZipCRC32::kInitialState;
    for (std::size_t offset = 0; offset < whole.size(); offset += piece) {
      state =
          ZipCRC32::update(state, whole.subspan(offset, std::min(piece, whole.size() - offset)));
    }
    EXPECT_EQ(ZipCRC32::finish(state), ZipArchiveBuilder::crc32(bytes)) << piece;
  }
}

// Both ways in, the extractor after the inspector and the single pass, write the same files;
// the single pass's fingerprint and inspection are those of the hash and the inspector.
TEST_F(EPUBArchiveExtractorTest, BothWaysInWriteEveryEntry) {
  const std::string image = randomBytes(700000, 1);
  std::string text;
  for (int line = 0; text.size() < 900000; ++line) {
    text += "<p>Line " + std::to_string(line * 7919 % 100003) + "</p>\n";
  }
  const std::string stored = randomBytes(10000, 2);
  const std::string deflated = randomBytes(5000, 3) + std::string(20000, 'q');
  // Inflated in one call when its bytes arrive in one piece, streamed otherwise.
  const std::string chapter = text.substr(0, 100000);
  EpubBuilder large;
  large.addFile("OEBPS/images/cover.jpg", image, ZipArchiveBuilder::kStored);
  large.addFile("OEBPS/long.xhtml", text);
  large.addFile("OEBPS/chapter.xhtml", chapter);
  large.addFile("OEBPS/empty.xhtml", "");
  EpubBuilder small;
  small.addFile("OEBPS/stored.bin", stored, ZipArchiveBuilder::kStored);
  small.addFile("OEBPS/deflated.bin", deflated);
  small.addFile("OEBPS/empty.css", "", ZipArchiveBuilder::kStored);
  small.archive().entryNamed("OEBPS/chapter1.xhtml").dataDescriptor = true;
  small.archive().entryNamed("OEBPS/chapter1.xhtml").localExtraField = std::string(300, 'x');
  small.archive().setBytesBeforeCentralDirectory("gap");
  for (EpubBuilder* book : {&large, &small}) book->archive().addDirectory("OEBPS/empty");
  const struct {
    const char* name;
    const EpubBuilder& book;
    std::int64_t bufferSize;
    std::map<std::string, std::string> files;
  } cases[] = {
      {"large entries",
       large,
       EPUBArchiveExtractor::kStandardBufferSize,
       {{"OEBPS/images/cover.jpg", image},
        {"OEBPS/long.xhtml", text},
        {"OEBPS/chapter.xhtml", chapter},
        {"OEBPS/empty.xhtml", ""}}},
      {"entries and headers across many small blocks",
       small,
       64,
       {{"OEBPS/stored.bin", stored}, {"OEBPS/deflated.bin", deflated}, {"OEBPS/empty.css", ""}}},
  };
  for (const auto& testCase : cases) {
    for (const Way way : {Way::extractor, Way::singlePass}) {
      SCOPED_TRACE(std::string(testCase.name) + (way == Way::singlePass ? ", single pass" : ""));
      const fs::path path = write(testCase.book);
      const EPUBArchiveInspection inspection = inspect(path);
      const EPUBArchiveExtractor extractor(testCase.bufferSize);
      ExtractedPublication result;
      if (way == Way::extractor) {
        result = extractor.extract(path, inspection, destination_);
      } else {
        const SinglePassExtraction pass =
            EPUBArchiveSinglePass(EPUBArchiveInspector(), extractor).extract(path, destination_);
        EXPECT_EQ(pass.fingerprint, PublicationFingerprintService::fingerprintFile(path, {}));
        EXPECT_EQ(pass.inspection, inspection);
        result = pass.extracted;
      }
      EXPECT_EQ(result.rootURL, destination_);
      EXPECT_EQ(result.entryCount, static_cast<std::int64_t>(inspection.entries.size()));
      EXPECT_EQ(result.totalUncompressedSize, inspection.totalUncompressedSize);
      EXPECT_EQ(readFile(destination_ / "mimetype"), "application/epub+zip");
      EXPECT_TRUE(fs::is_directory(destination_ / "OEBPS/empty"));
      for (const auto& [name, contents] : testCase.files) {
        EXPECT_EQ(readFile(destination_ / name), contents) << name;
      }
      EXPECT_EQ(leftovers(), std::vector<std::string>{"Extracted"});
      fs::remove_all(destination_);
    }
  }
  fs::create_directories(destination_);
  EXPECT_EQ(failureOf(EpubBuilder()), Failure::destinationExists);
  EXPECT_EQ(leftovers(), std::vector<std::string>{"Extracted"});
  EXPECT_TRUE(fs::is_empty(destination_));
}

TEST_F(EPUBArchiveExtractorTest, AnEmptyInspectionCommitsAnEmptyDirectory) {
  const fs::path path = write(EpubBuilder());
  const ExtractedPublication result =
      EPUBArchiveExtractor().extract(path, EPUBArchiveInspection{}, destination_);
  EXPECT_EQ(result.entryCount, 0);
  EXPECT_TRUE(fs::is_empty(destination_));
}

// Entries whose bytes lie about their contents: both ways in refuse them the same way, before
// a surplus byte is written, and leave nothing behind, whether an entry's compressed bytes come
// in one piece (inflated in one call) or in many small ones (streamed).
TEST_F(EPUBArchiveExtractorTest, BothWaysInRefuseBytesThatDisagreeWithTheirRecord) {
  using Entry = ZipArchiveBuilder::Entry;
  const struct {
    const char* name;
    const char* entry;
    void (*change)(Entry&);
    Failure failure;
  } cases[] = {
      {"a surplus byte of a deflated entry", "OEBPS/chapter1.xhtml",
       [](Entry& entry) {
         entry.centralUncompressedSize = static_cast<std::uint32_t>(entry.content.size() - 1);
       },
       Failure::sizeMismatch},
      {"a stream that produces too few bytes", "OEBPS/chapter1.xhtml",
       [](Entry& entry) {
         entry.centralUncompressedSize = static_cast<std::uint32_t>(entry.content.size() + 1);
       },
       Failure::sizeMismatch},
      {"a wrong CRC with the right size", "OEBPS/chapter1.xhtml",
       [](Entry& entry) { entry.centralCRC = 0x12345678; }, Failure::checksumMismatch},
      {"a wrong CRC on a stored entry", "mimetype", [](Entry& entry) { entry.centralCRC = 0; },
       Failure::checksumMismatch},
      {"trailing bytes inside a deflated entry", "OEBPS/chapter1.xhtml",
       [](Entry& entry) { entry.trailingBytes = "tail"; }, Failure::decompressionFailed},
      {"trailing bytes that fill whole blocks", "OEBPS/chapter1.xhtml",
       [](Entry& entry) { entry.trailingBytes = std::string(256, 't'); },
       Failure::decompressionFailed},
      {"a stream that runs short", "OEBPS/chapter1.xhtml",
       [](Entry& entry) {
         const std::string stream = ZipArchiveBuilder::deflate(entry.content);
         entry.compressedData = stream.substr(0, stream.size() / 2);
       },
       Failure::decompressionFailed},
      {"a corrupt stream", "OEBPS/chapter1.xhtml",
       [](Entry& entry) { entry.compressedData = std::string(50, '\xFF'); },
       Failure::decompressionFailed},
      {"a deflated entry without compressed bytes", "OEBPS/chapter1.xhtml",
       [](Entry& entry) {
         entry.content = "";
         entry.compressedData = "";
       },
       Failure::decompressionFailed},
  };
  for (const auto& testCase : cases) {
    for (const std::int64_t bufferSize : {kStandard, std::int64_t{64}}) {
      for (const Way way : {Way::extractor, Way::singlePass}) {
        SCOPED_TRACE(std::string(testCase.name) + (way == Way::singlePass ? ", single pass" : "") +
                     (bufferSize == kStandard ? ", one piece" : ", small pieces"));
        EpubBuilder book;
        testCase.change(book.archive().entryNamed(testCase.entry));
        EXPECT_EQ(failureOf(book, bufferSize, way), testCase.failure);
        expectNothingLeftBehind();
      }
    }
  }
}

// Reads that misbehave: a stop is asked for at the read numbered `stopAtRead`, or, with
// `rewriteTheEnd`, the last byte of the file reads differently from its second read on, as if
// the file were rewritten between the inspection and the pass.
class MisbehavingReads final : public ArchiveFileOpening {
 public:
  MisbehavingReads(std::stop_source source, int stopAtRead, bool rewriteTheEnd = false)
      : source_(std::move(source)), stopAtRead_(stopAtRead), rewriteTheEnd_(rewriteTheEnd) {}
  std::unique_ptr<ArchiveFile> open(const fs::path& path) const override {
    class File final : public ArchiveFile {
     public:
      File(std::unique_ptr<ArchiveFile> real, const MisbehavingReads& owner)
          : real_(std::move(real)), owner_(owner), reads_(owner.stopAtRead_) {}
      std::uint64_t seekToEnd() override { return size_ = position_ = real_->seekToEnd(); }
      void seek(std::uint64_t offset) override { real_->seek(position_ = offset); }
      std::size_t read(std::span<std::uint8_t> into) override {
        if (--reads_ == 0) owner_.source_.request_stop();
        const std::size_t count = real_->read(into);
        position_ += count;
        if (owner_.rewriteTheEnd_ && count > 0 && position_ == size_ && readsOfTheEnd_++ > 0) {
          into[count - 1] ^= 1;
        }
        return count;
      }

     private:
      std::unique_ptr<ArchiveFile> real_;
      const MisbehavingReads& owner_;
      int reads_;
      std::uint64_t size_ = 0, position_ = 0;
      int readsOfTheEnd_ = 0;
    };
    return std::make_unique<File>(ArchiveFileOpening::fileSystem()->open(path), *this);
  }

 private:
  std::stop_source source_;
  int stopAtRead_;
  bool rewriteTheEnd_;
};

// What only the single pass meets: records that share bytes (which cannot be streamed) and a
// file that changes under the read. Its local header checks run with the inspector's tests.
TEST_F(EPUBArchiveExtractorTest, TheSinglePassRefusesWhatItCannotTrust) {
  using Entry = ZipArchiveBuilder::Entry;
  const struct {
    const char* name;
    void (*change)(Entry&);
    std::shared_ptr<const ArchiveFileOpening> files;
    std::string failure;
  } cases[] = {
      {"two records of one local header", [](Entry& entry) { entry.centralLocalHeaderOffset = 0; },
       ArchiveFileOpening::fileSystem(), "EPUBArchiveInspectionFailure.malformedArchive"},
      {"a file rewritten under the read", [](Entry&) {},
       std::make_shared<MisbehavingReads>(std::stop_source(), 0, true),
       "EPUBArchiveExtractionFailure.unreadableArchive"},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    EpubBuilder book;
    testCase.change(book.archive().entryNamed("OEBPS/chapter1.xhtml"));
    const fs::path path = write(book);
    const EPUBArchiveSinglePass pass(EPUBArchiveInspector({}, testCase.files),
                                     EPUBArchiveExtractor(kStandard, testCase.files));
    try {
      pass.extract(path, destination_);
      ADD_FAILURE() << "the book was taken in";
    } catch (const tomekeeper::Failure& failure) {
      EXPECT_EQ(failure.reflectiveText(), testCase.failure);
    }
    expectNothingLeftBehind();
  }
}

// Inspections made by hand reach what the inspector would refuse.
EPUBArchiveEntry storedEntry(std::string path, std::uint64_t offset, std::uint64_t size,
                             std::uint32_t crc) {
  return EPUBArchiveEntry{std::move(path), size, size, 0, false, offset, crc};
}

TEST_F(EPUBArchiveExtractorTest, RefusesWhatTheInspectorWouldHaveRefused) {
  const fs::path path = write(EpubBuilder());
  const std::uint32_t crc = ZipArchiveBuilder::crc32("application/epub+zip");
  EPUBArchiveEntry method12 = storedEntry("mimetype", 38, 20, 0);
  method12.compressionMethod = 12;
  const struct {
    const char* name;
    EPUBArchiveInspection inspection;
    Failure failure;
  } cases[] = {
      {"an output path outside the staging directory",
       {{storedEntry("../escaped", 38, 20, 0)}, 20},
       Failure::invalidEntryMetadata},
      {"a method other than stored or deflated", {{method12}, 20}, Failure::invalidEntryMetadata},
      {"data beyond the end of the file",
       {{storedEntry("big", fs::file_size(path) - 10, 100, 0)}, 100},
       Failure::unreadableArchive},
      {"a file in the way of a directory",
       {{storedEntry("a", 38, 20, crc), storedEntry("a/b", 38, 20, crc)}, 40},
       Failure::cannotCreateOutput},
      // Last: the archive goes.
      {"an archive that cannot be opened", inspect(path), Failure::unreadableArchive},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    if (&testCase == &cases[std::size(cases) - 1]) fs::remove(path);
    try {
      EPUBArchiveExtractor().extract(path, testCase.inspection, destination_);
      ADD_FAILURE() << "the extraction was committed";
    } catch (const EPUBArchiveExtractionFailureError& error) {
      EXPECT_EQ(error.failure(), testCase.failure);
    }
    EXPECT_FALSE(fs::exists(destination_.parent_path() / "escaped"));
    expectNothingLeftBehind();
  }
}

// Before anything is written, and between the blocks of an entry.
TEST_F(EPUBArchiveExtractorTest, CancellationLeavesNoDestinationNorStagingDirectory) {
  EpubBuilder book;
  book.addFile("OEBPS/big.bin", randomBytes(4096, 4), ZipArchiveBuilder::kStored);
  const fs::path path = write(book);
  std::stop_source stopped;
  stopped.request_stop();
  EXPECT_THROW(EPUBArchiveExtractor().extract(path, EPUBArchiveInspection{}, destination_,
                                              stopped.get_token()),
               async::OperationCancelled);
  expectNothingLeftBehind();
  std::stop_source source;
  const EPUBArchiveExtractor extractor(64, std::make_shared<MisbehavingReads>(source, 10));
  EXPECT_THROW(extractor.extract(path, inspect(path), destination_, source.get_token()),
               async::OperationCancelled);
  expectNothingLeftBehind();
}

// The disk fills, fails or refuses at each step, both ways in: the failure names the step, and
// neither the destination nor a staging directory is left behind.
TEST_F(EPUBArchiveExtractorTest, ADiskFaultAtAnyStepCommitsNothing) {
  using Durability = EPUBArchiveExtractor::Durability;
  const struct {
    const char* name;
    FileFault fault;
    Failure failure = Failure::cannotCreateOutput;
    Durability durability = Durability::synchronizeOnceBeforeCommit;
  } cases[] = {
      {"staging directory refused", {FileOperation::makeDirectory, EACCES, ".extract-"}},
      {"output file refused", {FileOperation::open, EACCES, "chapter1.xhtml"}},
      {"disk full half-way through an entry", {FileOperation::write, ENOSPC, "big.bin", 5}},
      {"disk full at a later entry", {FileOperation::write, ENOSPC, "chapter1.xhtml"}},
      {"input/output error on write", {FileOperation::write, EIO, ""}},
      {"close reports a lost write", {FileOperation::close, ENOSPC, "big.bin"}},
      {"fsync of a file fails",
       {FileOperation::synchronize, EIO, "big.bin"},
       Failure::cannotCreateOutput,
       Durability::synchronizeEachFile},
      {"syncfs fails before the commit move",
       {FileOperation::synchronizeFileSystem, EIO, ".extract-"}},
      {"the commit move fails",
       {FileOperation::renameWithoutReplacing, EIO, "Extracted"},
       Failure::commitFailed},
  };
  EpubBuilder book;
  book.addFile("OEBPS/big.bin", randomBytes(4096, 5), ZipArchiveBuilder::kStored);
  const fs::path path = write(book);
  const EPUBArchiveInspection inspection = inspect(path);
  for (const auto& testCase : cases) {
    for (const Way way : {Way::extractor, Way::singlePass}) {
      SCOPED_TRACE(std::string(testCase.name) + (way == Way::singlePass ? ", single pass" : ""));
      FaultInjectingFileSystem fileSystem({testCase.fault});
      const EPUBArchiveExtractor extractor(64, ArchiveFileOpening::fileSystem(),
                                           testCase.durability);
      try {
        if (way == Way::singlePass) {
          EPUBArchiveSinglePass(EPUBArchiveInspector(), extractor).extract(path, destination_);
        } else {
          extractor.extract(path, inspection, destination_);
        }
        ADD_FAILURE() << "the extraction was committed";
      } catch (const EPUBArchiveExtractionFailureError& error) {
        EXPECT_EQ(error.failure(), testCase.failure);
      }
      EXPECT_GE(fileSystem.injectedFailures(), 1);
      expectNothingLeftBehind();
    }
  }
}

// NFS and ecryptfs refuse RENAME_NOREPLACE with EINVAL: the move falls back to a plain rename,
// and still never replaces what is at the destination.
TEST_F(EPUBArchiveExtractorTest, CommitsWhereTheFileSystemRefusesTheNoReplaceFlag) {
  FaultInjectingFileSystem fileSystem({{FileOperation::renameWithoutReplacing, EINVAL, ""}});
  EXPECT_EQ(failureOf(EpubBuilder()), std::nullopt);
  EXPECT_EQ(readFile(destination_ / "mimetype"), "application/epub+zip");

  const fs::path staged = directory_ / "staged";
  fs::create_directories(staged);
  writeFile(staged / "new", "new");
  std::error_code error;
  moveWithoutReplacing(staged, destination_, error);
  EXPECT_EQ(error, std::errc::file_exists);
  EXPECT_EQ(readFile(destination_ / "mimetype"), "application/epub+zip");
  EXPECT_TRUE(fs::exists(staged / "new"));
}

}  // namespace
}  // namespace tomekeeper
