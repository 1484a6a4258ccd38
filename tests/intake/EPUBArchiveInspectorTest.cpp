#include "intake/EPUBArchiveInspector.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <optional>
#include <stop_token>
#include <system_error>
#include <vector>

#include "async/RunUntilDone.h"
#include "intake/EPUBArchiveSinglePass.h"
#include "intake/IntakeFailures.h"
#include "support/EpubBuilder.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper {
namespace {

using namespace std::chrono_literals;
using testing::EpubBuilder;
using testing::ZipArchiveBuilder;
using Failure = EPUBArchiveInspectionFailure;

class EPUBArchiveInspectorTest : public ::testing::Test {
 protected:
  template <typename Builder>
  std::filesystem::path write(const Builder& builder) {
    const auto path = directory_ / ("book" + std::to_string(counter_++) + ".epub");
    builder.writeTo(path);
    return path;
  }

  EPUBArchiveInspection inspect(
      const std::filesystem::path& path,
      EPUBArchiveInspector::Limits limits = EPUBArchiveInspector::Limits()) {
    return async::runUntilDone(EPUBArchiveInspector(limits).inspect(path), 30s);
  }

  // The failure an inspection ends in, or nothing when it passes.
  template <typename Builder>
  std::optional<Failure> failureOf(const Builder& builder, EPUBArchiveInspector::Limits limits =
                                                               EPUBArchiveInspector::Limits()) {
    try {
      inspect(write(builder), limits);
      return std::nullopt;
    } catch (const EPUBArchiveInspectionFailureError& error) {
      return error.failure();
    }
  }

  testing::TemporaryDirectory directory_;
  int counter_ = 0;
};

// --- A well-formed book -------------------------------------------------------

TEST_F(EPUBArchiveInspectorTest, ListsEveryEntryWithItsCentralValuesAndDataOffset) {
  EpubBuilder book;
  book.archive().addDirectory("OEBPS/images");
  const std::string bytes = book.build();
  const auto path = write(book);

  const EPUBArchiveInspection inspection = inspect(path);

  ASSERT_EQ(inspection.entries.size(), 5u);
  const EPUBArchiveEntry& mimetype = inspection.entries[0];
  EXPECT_EQ(mimetype.path, "mimetype");
  EXPECT_EQ(mimetype.compressionMethod, 0);
  EXPECT_EQ(mimetype.localDataOffset, 30u + 8u);
  EXPECT_EQ(mimetype.crc32, ZipArchiveBuilder::crc32("application/epub+zip"));
  EXPECT_EQ(bytes.substr(mimetype.localDataOffset, mimetype.compressedSize),
            "application/epub+zip");
  EXPECT_EQ(inspection.entries[1].path, "META-INF/container.xml");
  EXPECT_EQ(inspection.entries[1].compressionMethod, 8);
  EXPECT_EQ(inspection.entries[4].path, "OEBPS/images");
  EXPECT_TRUE(inspection.entries[4].isDirectory);
  std::uint64_t total = 0;
  for (const auto& entry : inspection.entries) total += entry.uncompressedSize;
  EXPECT_EQ(inspection.totalUncompressedSize, total);
}

// --- Locating and checking the end record ---------------------------------------

TEST_F(EPUBArchiveInspectorTest, RefusesAFileOf21BytesAndOneThatCannotBeOpenedAsMalformed) {
  std::ofstream(directory_ / "short.epub") << std::string(21, 'P');
  for (const char* name : {"short.epub", "absent.epub"}) {
    try {
      inspect(directory_ / name);
      ADD_FAILURE() << name << " was accepted";
    } catch (const EPUBArchiveInspectionFailureError& error) {
      EXPECT_EQ(error.failure(), Failure::malformedArchive) << name;
    }
  }
}

// A book plus one deflated entry that declares these sizes; the inspector
// never reads the data.
EpubBuilder bookWithDeclaredSizes(std::uint32_t compressed, std::uint32_t uncompressed) {
  EpubBuilder book;
  auto& entry = book.archive().add({});
  entry.name = "OEBPS/bomb.bin";
  entry.method = ZipArchiveBuilder::kDeflated;
  entry.compressedData = std::string(compressed, 'z');
  entry.centralUncompressedSize = uncompressed;
  return book;
}

// The size of a new book's central directory.
std::uint32_t centralDirectorySize() {
  EpubBuilder book;
  std::uint32_t size = 0;
  for (std::size_t index = 0; index < book.archive().entryCount(); ++index) {
    size += 46 + static_cast<std::uint32_t>(book.archive().entry(index).name.size());
  }
  return size;
}

// --- Each record of a book -----------------------------------------------------

// Each case changes a valid book: its end record, its central records, its local headers,
// its names; the inspection ends in the case's failure, or passes.
TEST_F(EPUBArchiveInspectorTest, JudgesABookByItsRecords) {
  using Entry = ZipArchiveBuilder::Entry;
  using End = ZipArchiveBuilder::EndRecord;
  // Changes to one field of the end record, or of the chapter's entry.
  const auto endField = [](auto field, auto value) {
    return [=](EpubBuilder& book) { book.archive().endRecord().*field = value; };
  };
  const auto chapterField = [](auto field, auto value) {
    return [=](EpubBuilder& book) {
      book.archive().entryNamed("OEBPS/chapter1.xhtml").*field = value;
    };
  };
  const auto chapter = [](void (*change)(Entry&)) {
    return
        [change](EpubBuilder& book) { change(book.archive().entryNamed("OEBPS/chapter1.xhtml")); };
  };
  const auto files = [](std::vector<std::string> names) {
    return [names](EpubBuilder& book) {
      for (const auto& name : names) {
        if (name.ends_with('/')) {
          book.archive().addDirectory(name);
        } else {
          book.addFile(name, name);
        }
      }
    };
  };
  struct Case {
    std::string name;
    std::function<void(EpubBuilder&)> change;
    std::optional<Failure> failure;
  };
  std::vector<Case> cases = {
      {"no entries", [](EpubBuilder& book) { book.archive() = ZipArchiveBuilder(); },
       Failure::missingMimetype},
      {"required names in another case",
       [](EpubBuilder& book) {
         book.archive() = ZipArchiveBuilder();
         book.archive().addStored("MIMETYPE", "application/epub+zip");
         book.archive().addDeflated("META-INF/Container.XML", EpubBuilder::containerXML("a.opf"));
       },
       std::nullopt},
      {"ten thousand entries",
       [](EpubBuilder& book) {
         for (int index = 4; index < 10000; ++index) {
           book.addFile("OEBPS/f" + std::to_string(index), "", ZipArchiveBuilder::kStored);
         }
       },
       std::nullopt},
      // The longer directory takes in the first bytes of the end record.
      {"a central directory with trailing bytes",
       endField(&End::centralDirectorySize, centralDirectorySize() + 4), Failure::malformedArchive},
      {"a central directory missing a byte",
       endField(&End::centralDirectorySize, centralDirectorySize() - 1), Failure::invalidPath},
      {"a central directory of the exact size",
       endField(&End::centralDirectorySize, centralDirectorySize()), std::nullopt},
      {"a mimetype that comes last and is compressed",
       [](EpubBuilder& book) {
         book.archive().remove("mimetype");
         book.archive().addDeflated("mimetype", "application/epub+zip");
       },
       std::nullopt},
      {"data descriptors",
       [](EpubBuilder& book) {
         book.archive().entryNamed("OEBPS/chapter1.xhtml").dataDescriptor = true;
         book.archive().entryNamed("mimetype").dataDescriptor = true;
       },
       std::nullopt},
      {"an empty file entry", [](EpubBuilder& book) { book.addFile("OEBPS/empty.css", "", 0); },
       std::nullopt},
      {"no mimetype", [](EpubBuilder& book) { book.archive().remove("mimetype"); },
       Failure::missingMimetype},
      {"a directory named mimetype",
       [](EpubBuilder& book) {
         book.archive().remove("mimetype");
         book.archive().addDirectory("mimetype");
       },
       Failure::missingMimetype},
      {"no container", [](EpubBuilder& book) { book.archive().remove("META-INF/container.xml"); },
       Failure::missingContainer},
      {"an end record signature inside the comment",
       [](EpubBuilder& book) {
         // A false record whose comment length does not reach the end of the file.
         const std::string fake =
             std::string("PK\x05\x06", 4) + std::string(16, '\0') + std::string("\x05\x00", 2);
         book.archive().setComment("before " + fake + " after, and more");
       },
       std::nullopt},
      {"a 65535-byte comment",
       [](EpubBuilder& book) { book.archive().setComment(std::string(65535, 'c')); }, std::nullopt},
      {"bytes after the comment",
       [](EpubBuilder& book) { book.archive().setBytesAfterEndRecord("junk"); },
       Failure::malformedArchive},
      {"another disk", endField(&End::diskNumber, 1), Failure::malformedArchive},
      {"the directory on another disk", endField(&End::centralDirectoryDisk, 1),
       Failure::malformedArchive},
      {"entries on other disks", endField(&End::entriesOnDisk, 3), Failure::malformedArchive},
      {"the ZIP64 entry count",
       [](EpubBuilder& book) {
         book.archive().endRecord().entriesOnDisk = 0xFFFF;
         book.archive().endRecord().totalEntries = 0xFFFF;
       },
       Failure::unsupportedZIP64},
      {"the ZIP64 directory size", endField(&End::centralDirectorySize, 0xFFFFFFFF),
       Failure::unsupportedZIP64},
      {"the ZIP64 directory offset", endField(&End::centralDirectoryOffset, 0xFFFFFFFF),
       Failure::unsupportedZIP64},
      {"a ZIP64 compressed size", chapterField(&Entry::centralCompressedSize, 0xFFFFFFFF),
       Failure::unsupportedZIP64},
      {"a ZIP64 uncompressed size", chapterField(&Entry::centralUncompressedSize, 0xFFFFFFFF),
       Failure::unsupportedZIP64},
      {"a ZIP64 local header offset", chapterField(&Entry::centralLocalHeaderOffset, 0xFFFFFFFF),
       Failure::unsupportedZIP64},
      {"10 001 entries declared",
       [](EpubBuilder& book) {
         book.archive().endRecord().entriesOnDisk = 10001;
         book.archive().endRecord().totalEntries = 10001;
       },
       Failure::tooManyEntries},
      {"a ratio of 200", [](EpubBuilder& book) { book = bookWithDeclaredSizes(10, 2000); },
       std::nullopt},
      {"a ratio of 200 in integer division",
       [](EpubBuilder& book) { book = bookWithDeclaredSizes(10, 2009); }, std::nullopt},
      {"a ratio of 201", [](EpubBuilder& book) { book = bookWithDeclaredSizes(10, 2010); },
       Failure::suspiciousExpansion},
      {"bytes out of no compressed bytes",
       [](EpubBuilder& book) { book = bookWithDeclaredSizes(0, 1); }, Failure::suspiciousExpansion},
      {"a declared total above one gibibyte",
       [](EpubBuilder& book) {
         // Two entries of 512 MiB each at a ratio under 200; with the book's own entries the
         // sum passes 1 GiB. The data is declared, never written.
         for (const char* name : {"OEBPS/one.bin", "OEBPS/two.bin"}) {
           auto& entry = book.archive().add({});
           entry.name = name;
           entry.method = ZipArchiveBuilder::kDeflated;
           entry.compressedData = "z";
           entry.centralCompressedSize = 2800000;
           entry.centralUncompressedSize = 512u * 1024 * 1024;
         }
         book.archive().setBytesBeforeCentralDirectory(std::string(2900000, '\0'));
       },
       Failure::suspiciousExpansion},
      {"a central directory above its limit", endField(&End::centralDirectorySize, 67108865),
       Failure::centralDirectoryTooLarge},
      // Exactly the limit passes that check and fails the next: it runs past the file.
      {"a central directory at its limit", endField(&End::centralDirectorySize, 67108864),
       Failure::malformedArchive},
      {"the encrypted flag", chapterField(&Entry::flags, 0x0001), Failure::encryptedEntry},
      {"method 12", chapterField(&Entry::method, 12), Failure::unsupportedCompression},
      {"a stored entry whose sizes differ",
       [](EpubBuilder& book) {
         book.archive().entryNamed("mimetype").centralUncompressedSize = 21;
       },
       Failure::malformedArchive},
      {"the first bad entry decides",
       [](EpubBuilder& book) {
         book.archive().entryNamed("META-INF/container.xml").method = 12;
         book.archive().entryNamed("OEBPS/chapter1.xhtml").flags = 0x0001;
       },
       Failure::unsupportedCompression},
      {"local flags that differ", chapterField(&Entry::localFlags, 0x0800),
       Failure::malformedArchive},
      {"a local method that differs", chapterField(&Entry::localMethod, 0),
       Failure::malformedArchive},
      {"a local name that differs", chapterField(&Entry::localName, "OEBPS/chapter2.xhtml"),
       Failure::malformedArchive},
      {"an empty local name", chapterField(&Entry::localName, ""), Failure::malformedArchive},
      {"a wrong local signature", chapterField(&Entry::localSignature, 0x04034b51),
       Failure::malformedArchive},
      {"a local header offset off by one", chapterField(&Entry::centralLocalHeaderOffset, 1),
       Failure::malformedArchive},
      {"local sizes and CRC are not compared", chapter([](Entry& entry) {
         entry.localCRC = 1;
         entry.localCompressedSize = 2;
         entry.localUncompressedSize = 3;
       }),
       std::nullopt},
      {"data that runs into the central directory",
       chapterField(&Entry::centralCompressedSize, 100000), Failure::malformedArchive},
      {"a local header beyond the central directory",
       chapterField(&Entry::centralLocalHeaderOffset, 0x7FFFFFFF), Failure::malformedArchive},
      {"a name that runs past the directory", chapterField(&Entry::centralNameLength, 4000),
       Failure::invalidPath},
      {"invalid UTF-8 under the UTF-8 flag",
       [](EpubBuilder& book) {
         book.addFile("OEBPS/\xFF.xhtml", "x");
         book.archive().entryNamed("OEBPS/\xFF.xhtml").flags = 0x0800;
       },
       Failure::invalidPath},
      {"symbolic link attributes",
       chapterField(&Entry::externalAttributes, ZipArchiveBuilder::kSymbolicLinkAttributes),
       Failure::symbolicLink},
      {"symbolic link attributes on a directory name",
       [](EpubBuilder& book) {
         book.archive().addDirectory("OEBPS/link").externalAttributes =
             ZipArchiveBuilder::kSymbolicLinkAttributes;
       },
       Failure::symbolicLink},
      {"names that differ only in case", files({"OEBPS/A.xhtml", "oebps/a.XHTML"}),
       Failure::conflictingPath},
      {"names that differ only in composition",
       files({"OEBPS/caf\xC3\xA9.xhtml", "OEBPS/cafe\xCC\x81.xhtml"}), Failure::conflictingPath},
      {"folding beyond ASCII",
       files({"OEBPS/\xC3\x89t\xC3\xA9.xhtml", "OEBPS/\xC3\xA9t\xC3\xA9.xhtml"}),
       Failure::conflictingPath},
      {"a file, then a directory through it", files({"OEBPS/a", "OEBPS/a/b"}),
       Failure::conflictingPath},
      {"a directory through a path, then a file of that name", files({"OEBPS/a/b", "OEBPS/A"}),
       Failure::conflictingPath},
      {"an explicit directory, then a file of that name", files({"OEBPS/d/", "OEBPS/d"}),
       Failure::conflictingPath},
      {"an implied directory, then the explicit one", files({"OEBPS/a/b", "OEBPS/a/"}),
       std::nullopt},
      {"an explicit directory, then one implied", files({"OEBPS/a/", "OEBPS/a/b"}), std::nullopt},
      {"the same directory twice", files({"OEBPS/a/", "OEBPS/A/"}), Failure::conflictingPath},
  };
  // Names that leave the book or are not paths at all; "x/C:" is a path.
  for (const std::string& name : std::vector<std::string>{
           "../evil", "OEBPS/../../evil", "/etc/passwd", "OEBPS\\..\\evil", "a//b", "./a", "a/./b",
           "C:/x", "C:x", "OEBPS/..", std::string("a\0b", 3), "", "OEBPS/\xC3\x28.xhtml",
           "OEBPS/\xED\xA0\x80.xhtml", "x/C:"}) {
    cases.push_back({"the entry name " + name,
                     [name](EpubBuilder& book) { book.addFile(name, "content"); },
                     name == "x/C:" ? std::nullopt : std::optional(Failure::invalidPath)});
  }
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    EpubBuilder book;
    testCase.change(book);
    EXPECT_EQ(failureOf(book), testCase.failure);
    // The single pass, which checks local headers as its stream meets them, refuses alike.
    if (!testCase.failure) continue;
    const auto path = write(book);
    EXPECT_THROW(EPUBArchiveSinglePass().extract(path, directory_ / "Extracted"),
                 EPUBArchiveInspectionFailureError);
    EXPECT_FALSE(std::filesystem::exists(directory_ / "Extracted"));
  }
}

// --- Expansion ----------------------------------------------------------------------

TEST_F(EPUBArchiveInspectorTest, TotalExactlyAtTheLimitPasses) {
  EpubBuilder book;
  const auto path = write(book);
  const std::uint64_t total = inspect(path).totalUncompressedSize;
  EXPECT_EQ(failureOf(book, {.maximumTotalUncompressedSize = total}), std::nullopt);
  EXPECT_EQ(failureOf(book, {.maximumTotalUncompressedSize = total - 1}),
            Failure::suspiciousExpansion);
}

// --- Cancellation and I/O failures --------------------------------------------------

// Blocking, and through the awaiting task.
TEST_F(EPUBArchiveInspectorTest, StopsAtTheHeadOfAnEntryWhenCancelled) {
  const auto path = write(EpubBuilder());
  std::stop_source source;
  source.request_stop();
  EXPECT_THROW(EPUBArchiveInspector().inspectBlocking(path, source.get_token()),
               async::OperationCancelled);
  EXPECT_THROW(async::runUntilDone(EPUBArchiveInspector().inspect(path), 30s, source.get_token()),
               async::OperationCancelled);
}

// Serves the file from memory and fails every read after the first `readsBeforeFailure`.
class FailingReads final : public ArchiveFileOpening {
 public:
  FailingReads(std::string bytes, int readsBeforeFailure)
      : bytes_(std::move(bytes)), readsBeforeFailure_(readsBeforeFailure) {}
  std::unique_ptr<ArchiveFile> open(const std::filesystem::path&) const override {
    class File final : public ArchiveFile {
     public:
      File(const std::string& bytes, int reads)
          : memory_(std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size())),
            reads_(reads) {}
      std::uint64_t seekToEnd() override { return memory_.seekToEnd(); }
      void seek(std::uint64_t offset) override { memory_.seek(offset); }
      std::size_t read(std::span<std::uint8_t> into) override {
        if (reads_-- <= 0) throw std::system_error(EIO, std::generic_category(), "read");
        return memory_.read(into);
      }

     private:
      MemoryArchiveFile memory_;
      int reads_;
    };
    return std::make_unique<File>(bytes_, readsBeforeFailure_);
  }

 private:
  std::string bytes_;
  int readsBeforeFailure_;
};

TEST_F(EPUBArchiveInspectorTest, AReadErrorReachesTheCallerUnchanged) {
  const std::string bytes = EpubBuilder().build();
  for (int reads : {0, 1, 2, 3}) {
    const EPUBArchiveInspector inspector(EPUBArchiveInspector::Limits(),
                                         std::make_shared<FailingReads>(bytes, reads));
    try {
      inspector.inspectBlocking("book.epub");
      FAIL() << "expected a read error after " << reads << " reads";
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.code().value(), EIO);
    }
  }
  const EPUBArchiveInspector healthy(EPUBArchiveInspector::Limits(),
                                     std::make_shared<FailingReads>(bytes, 1000));
  EXPECT_EQ(healthy.inspectBlocking("book.epub").entries.size(), 4u);
}

}  // namespace
}  // namespace tomekeeper
