#include "intake/EPUBArchiveInspector.h"

#include <gtest/gtest.h>

#include <fstream>
#include <optional>
#include <stop_token>
#include <system_error>
#include <vector>

#include "async/RunUntilDone.h"
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
  std::filesystem::path write(const ZipArchiveBuilder& builder) {
    const auto path = directory_ / ("book" + std::to_string(counter_++) + ".epub");
    builder.writeTo(path);
    return path;
  }
  std::filesystem::path write(const EpubBuilder& builder) {
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

  // A valid book plus one more entry with this raw name.
  std::optional<Failure> failureWithEntryNamed(const std::string& name) {
    EpubBuilder book;
    book.addFile(name, "content");
    return failureOf(book);
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

TEST_F(EPUBArchiveInspectorTest, MimetypeMayComeLastAndBeCompressed) {
  EpubBuilder book;
  book.archive().remove("mimetype");
  book.archive().addDeflated("mimetype", "application/epub+zip");
  EXPECT_EQ(failureOf(book), std::nullopt);
}

TEST_F(EPUBArchiveInspectorTest, RequiredNamesAreComparedFolded) {
  ZipArchiveBuilder archive;
  archive.addStored("MIMETYPE", "application/epub+zip");
  archive.addDeflated("META-INF/Container.XML", EpubBuilder::containerXML("a.opf"));
  EXPECT_EQ(failureOf(archive), std::nullopt);
}

TEST_F(EPUBArchiveInspectorTest, AcceptsDataDescriptors) {
  EpubBuilder book;
  book.archive().entryNamed("OEBPS/chapter1.xhtml").dataDescriptor = true;
  book.archive().entryNamed("mimetype").dataDescriptor = true;
  EXPECT_EQ(failureOf(book), std::nullopt);
}

TEST_F(EPUBArchiveInspectorTest, AcceptsAnEmptyFileEntry) {
  EpubBuilder book;
  book.addFile("OEBPS/empty.css", "", ZipArchiveBuilder::kStored);
  EXPECT_EQ(failureOf(book), std::nullopt);
}

// --- Missing required entries -------------------------------------------------

TEST_F(EPUBArchiveInspectorTest, RefusesArchiveWithoutMimetype) {
  EpubBuilder book;
  book.archive().remove("mimetype");
  EXPECT_EQ(failureOf(book), Failure::missingMimetype);
}

TEST_F(EPUBArchiveInspectorTest, ADirectoryNamedMimetypeDoesNotCount) {
  EpubBuilder book;
  book.archive().remove("mimetype");
  book.archive().addDirectory("mimetype");
  EXPECT_EQ(failureOf(book), Failure::missingMimetype);
}

TEST_F(EPUBArchiveInspectorTest, RefusesArchiveWithoutContainer) {
  EpubBuilder book;
  book.archive().remove("META-INF/container.xml");
  EXPECT_EQ(failureOf(book), Failure::missingContainer);
}

TEST_F(EPUBArchiveInspectorTest, AnArchiveWithoutEntriesEndsInMissingMimetype) {
  EXPECT_EQ(failureOf(ZipArchiveBuilder()), Failure::missingMimetype);
}

// --- Locating and checking the end record ---------------------------------------

TEST_F(EPUBArchiveInspectorTest, RefusesFileOf21Bytes) {
  const auto path = directory_ / "short.epub";
  std::ofstream(path) << std::string(21, 'P');
  EXPECT_THROW(
      {
        try {
          inspect(path);
        } catch (const EPUBArchiveInspectionFailureError& error) {
          EXPECT_EQ(error.failure(), Failure::malformedArchive);
          throw;
        }
      },
      EPUBArchiveInspectionFailureError);
}

TEST_F(EPUBArchiveInspectorTest, RefusesFileThatCannotBeOpenedAsMalformed) {
  try {
    inspect(directory_ / "absent.epub");
    FAIL() << "expected a refusal";
  } catch (const EPUBArchiveInspectionFailureError& error) {
    EXPECT_EQ(error.failure(), Failure::malformedArchive);
  }
}

TEST_F(EPUBArchiveInspectorTest, SkipsAnEndRecordSignatureInsideTheComment) {
  EpubBuilder book;
  // A false record whose comment length does not reach the end of the file.
  std::string fake("PK\x05\x06", 4);
  fake += std::string(16, '\0');
  fake += std::string("\x05\x00", 2);
  book.archive().setComment("before " + fake + " after, and more");
  EXPECT_EQ(failureOf(book), std::nullopt);
}

TEST_F(EPUBArchiveInspectorTest, FindsTheRecordBehindA65535ByteComment) {
  EpubBuilder book;
  book.archive().setComment(std::string(65535, 'c'));
  EXPECT_EQ(failureOf(book), std::nullopt);
}

TEST_F(EPUBArchiveInspectorTest, RefusesBytesAfterTheComment) {
  EpubBuilder book;
  book.archive().setBytesAfterEndRecord("junk");
  EXPECT_EQ(failureOf(book), Failure::malformedArchive);
}

TEST_F(EPUBArchiveInspectorTest, RefusesMultipleDisks) {
  EpubBuilder disk;
  disk.archive().endRecord().diskNumber = 1;
  EXPECT_EQ(failureOf(disk), Failure::malformedArchive);
  EpubBuilder directoryDisk;
  directoryDisk.archive().endRecord().centralDirectoryDisk = 1;
  EXPECT_EQ(failureOf(directoryDisk), Failure::malformedArchive);
  EpubBuilder counts;
  counts.archive().endRecord().entriesOnDisk = 3;
  EXPECT_EQ(failureOf(counts), Failure::malformedArchive);
}

TEST_F(EPUBArchiveInspectorTest, ZIP64SentinelsInTheEndRecordAreUnsupported) {
  EpubBuilder count;
  count.archive().endRecord().entriesOnDisk = 0xFFFF;
  count.archive().endRecord().totalEntries = 0xFFFF;
  EXPECT_EQ(failureOf(count), Failure::unsupportedZIP64);
  EpubBuilder size;
  size.archive().endRecord().centralDirectorySize = 0xFFFFFFFF;
  EXPECT_EQ(failureOf(size), Failure::unsupportedZIP64);
  EpubBuilder offset;
  offset.archive().endRecord().centralDirectoryOffset = 0xFFFFFFFF;
  EXPECT_EQ(failureOf(offset), Failure::unsupportedZIP64);
}

TEST_F(EPUBArchiveInspectorTest, ZIP64SentinelsInACentralRecordAreUnsupported) {
  EpubBuilder compressed;
  compressed.archive().entryNamed("OEBPS/chapter1.xhtml").centralCompressedSize = 0xFFFFFFFF;
  EXPECT_EQ(failureOf(compressed), Failure::unsupportedZIP64);
  EpubBuilder uncompressed;
  uncompressed.archive().entryNamed("OEBPS/chapter1.xhtml").centralUncompressedSize = 0xFFFFFFFF;
  EXPECT_EQ(failureOf(uncompressed), Failure::unsupportedZIP64);
  EpubBuilder offset;
  offset.archive().entryNamed("OEBPS/chapter1.xhtml").centralLocalHeaderOffset = 0xFFFFFFFF;
  EXPECT_EQ(failureOf(offset), Failure::unsupportedZIP64);
}

TEST_F(EPUBArchiveInspectorTest, TenThousandEntriesPassAndOneMoreIsTooMany) {
  EpubBuilder book;
  for (int index = 4; index < 10000; ++index) {
    book.addFile("OEBPS/f" + std::to_string(index), "", ZipArchiveBuilder::kStored);
  }
  EXPECT_EQ(failureOf(book), std::nullopt);

  EpubBuilder declared;
  declared.archive().endRecord().entriesOnDisk = 10001;
  declared.archive().endRecord().totalEntries = 10001;
  EXPECT_EQ(failureOf(declared), Failure::tooManyEntries);
}

TEST_F(EPUBArchiveInspectorTest, RefusesCentralDirectoryAboveItsLimit) {
  EpubBuilder over;
  over.archive().endRecord().centralDirectorySize = 67108865;
  EXPECT_EQ(failureOf(over), Failure::centralDirectoryTooLarge);
  // Exactly the limit passes that check and fails the next: it runs past the file.
  EpubBuilder limit;
  limit.archive().endRecord().centralDirectorySize = 67108864;
  EXPECT_EQ(failureOf(limit), Failure::malformedArchive);
}

TEST_F(EPUBArchiveInspectorTest, RefusesCentralDirectoryWithTrailingOrMissingBytes) {
  std::uint32_t size = 0;
  {
    EpubBuilder book;
    for (std::size_t index = 0; index < book.archive().entryCount(); ++index) {
      size += 46 + static_cast<std::uint32_t>(book.archive().entry(index).name.size());
    }
  }
  // The longer directory takes in the first bytes of the end record.
  EpubBuilder longer;
  longer.archive().endRecord().centralDirectorySize = size + 4;
  EXPECT_EQ(failureOf(longer), Failure::malformedArchive);
  EpubBuilder shorter;
  shorter.archive().endRecord().centralDirectorySize = size - 1;
  EXPECT_EQ(failureOf(shorter), Failure::invalidPath);
  EpubBuilder exact;
  exact.archive().endRecord().centralDirectorySize = size;
  EXPECT_EQ(failureOf(exact), std::nullopt);
}

// --- Entry flags and methods ----------------------------------------------------

TEST_F(EPUBArchiveInspectorTest, RefusesTheEncryptedFlag) {
  EpubBuilder book;
  book.archive().entryNamed("OEBPS/chapter1.xhtml").flags = 0x0001;
  EXPECT_EQ(failureOf(book), Failure::encryptedEntry);
}

TEST_F(EPUBArchiveInspectorTest, RefusesMethod12) {
  EpubBuilder book;
  book.archive().entryNamed("OEBPS/chapter1.xhtml").method = 12;
  EXPECT_EQ(failureOf(book), Failure::unsupportedCompression);
}

TEST_F(EPUBArchiveInspectorTest, RefusesStoredEntryWhoseSizesDiffer) {
  EpubBuilder book;
  book.archive().entryNamed("mimetype").centralUncompressedSize = 21;
  EXPECT_EQ(failureOf(book), Failure::malformedArchive);
}

TEST_F(EPUBArchiveInspectorTest, TheFirstBadEntryDecides) {
  EpubBuilder book;
  book.archive().entryNamed("META-INF/container.xml").method = 12;
  book.archive().entryNamed("OEBPS/chapter1.xhtml").flags = 0x0001;
  EXPECT_EQ(failureOf(book), Failure::unsupportedCompression);
}

// --- Local headers --------------------------------------------------------------

TEST_F(EPUBArchiveInspectorTest, RefusesLocalHeaderThatDisagreesWithTheCentralDirectory) {
  const auto failureWith = [&](auto change) {
    EpubBuilder book;
    change(book.archive().entryNamed("OEBPS/chapter1.xhtml"));
    return failureOf(book);
  };
  EXPECT_EQ(failureWith([](auto& entry) { entry.localFlags = 0x0800; }), Failure::malformedArchive);
  EXPECT_EQ(failureWith([](auto& entry) { entry.localMethod = 0; }), Failure::malformedArchive);
  EXPECT_EQ(failureWith([](auto& entry) { entry.localName = "OEBPS/chapter2.xhtml"; }),
            Failure::malformedArchive);
  EXPECT_EQ(failureWith([](auto& entry) { entry.localName = ""; }), Failure::malformedArchive);
  EXPECT_EQ(failureWith([](auto& entry) { entry.localSignature = 0x04034b51; }),
            Failure::malformedArchive);
  EXPECT_EQ(failureWith([](auto& entry) { entry.centralLocalHeaderOffset = 1; }),
            Failure::malformedArchive);
}

TEST_F(EPUBArchiveInspectorTest, LocalSizesAndCRCAreNotCompared) {
  EpubBuilder book;
  auto& entry = book.archive().entryNamed("OEBPS/chapter1.xhtml");
  entry.localCRC = 1;
  entry.localCompressedSize = 2;
  entry.localUncompressedSize = 3;
  EXPECT_EQ(failureOf(book), std::nullopt);
}

TEST_F(EPUBArchiveInspectorTest, RefusesDataThatRunsIntoTheCentralDirectory) {
  EpubBuilder book;
  auto& entry = book.archive().entryNamed("OEBPS/chapter1.xhtml");
  entry.centralCompressedSize = 100000;
  EXPECT_EQ(failureOf(book), Failure::malformedArchive);
}

TEST_F(EPUBArchiveInspectorTest, RefusesLocalHeaderOffsetBeyondTheCentralDirectory) {
  EpubBuilder book;
  book.archive().entryNamed("OEBPS/chapter1.xhtml").centralLocalHeaderOffset = 0x7FFFFFFF;
  EXPECT_EQ(failureOf(book), Failure::malformedArchive);
}

// --- Paths ------------------------------------------------------------------------

TEST_F(EPUBArchiveInspectorTest, RefusesTraversalAndAbsoluteNames) {
  for (const std::string& name : std::vector<std::string>{
           "../evil", "OEBPS/../../evil", "/etc/passwd", "OEBPS\\..\\evil", "a//b", "./a", "a/./b",
           "C:/x", "C:x", "OEBPS/..", std::string("a\0b", 3)}) {
    EXPECT_EQ(failureWithEntryNamed(name), Failure::invalidPath) << name;
  }
}

TEST_F(EPUBArchiveInspectorTest, AcceptsAColonAfterTheFirstComponent) {
  EXPECT_EQ(failureWithEntryNamed("x/C:"), std::nullopt);
}

TEST_F(EPUBArchiveInspectorTest, RefusesInvalidUTF8WhateverTheFlagsSay) {
  EXPECT_EQ(failureWithEntryNamed("OEBPS/\xC3\x28.xhtml"), Failure::invalidPath);
  EXPECT_EQ(failureWithEntryNamed("OEBPS/\xED\xA0\x80.xhtml"), Failure::invalidPath);
  EpubBuilder book;
  book.addFile("OEBPS/\xFF.xhtml", "x");
  book.archive().entryNamed("OEBPS/\xFF.xhtml").flags = 0x0800;
  EXPECT_EQ(failureOf(book), Failure::invalidPath);
}

TEST_F(EPUBArchiveInspectorTest, RefusesEmptyName) {
  EXPECT_EQ(failureWithEntryNamed(""), Failure::invalidPath);
}

TEST_F(EPUBArchiveInspectorTest, RefusesNameThatRunsPastTheDirectory) {
  EpubBuilder book;
  book.archive().entryNamed("OEBPS/chapter1.xhtml").centralNameLength = 4000;
  EXPECT_EQ(failureOf(book), Failure::invalidPath);
}

// --- Symbolic links -----------------------------------------------------------------

TEST_F(EPUBArchiveInspectorTest, RefusesSymbolicLinkAttributes) {
  EpubBuilder book;
  book.archive().entryNamed("OEBPS/chapter1.xhtml").externalAttributes =
      ZipArchiveBuilder::kSymbolicLinkAttributes;
  EXPECT_EQ(failureOf(book), Failure::symbolicLink);
}

TEST_F(EPUBArchiveInspectorTest, RefusesSymbolicLinkAttributesOnADirectoryName) {
  EpubBuilder book;
  book.archive().addDirectory("OEBPS/link").externalAttributes =
      ZipArchiveBuilder::kSymbolicLinkAttributes;
  EXPECT_EQ(failureOf(book), Failure::symbolicLink);
}

// --- Collisions ---------------------------------------------------------------------

TEST_F(EPUBArchiveInspectorTest, RefusesNamesThatDifferOnlyInCase) {
  EpubBuilder book;
  book.addFile("OEBPS/A.xhtml", "1").addFile("oebps/a.XHTML", "2");
  EXPECT_EQ(failureOf(book), Failure::conflictingPath);
}

TEST_F(EPUBArchiveInspectorTest, RefusesNamesThatDifferOnlyInComposition) {
  EpubBuilder book;
  book.addFile("OEBPS/caf\xC3\xA9.xhtml", "precomposed")
      .addFile("OEBPS/cafe\xCC\x81.xhtml", "decomposed");
  EXPECT_EQ(failureOf(book), Failure::conflictingPath);
}

TEST_F(EPUBArchiveInspectorTest, FoldsBeyondASCII) {
  EpubBuilder book;
  book.addFile("OEBPS/\xC3\x89t\xC3\xA9.xhtml", "upper")
      .addFile("OEBPS/\xC3\xA9t\xC3\xA9.xhtml", "lower");
  EXPECT_EQ(failureOf(book), Failure::conflictingPath);
}

TEST_F(EPUBArchiveInspectorTest, RefusesAFileThenADirectoryThroughIt) {
  EpubBuilder book;
  book.addFile("OEBPS/a", "file").addFile("OEBPS/a/b", "below");
  EXPECT_EQ(failureOf(book), Failure::conflictingPath);
}

TEST_F(EPUBArchiveInspectorTest, RefusesADirectoryThroughAPathThenAFileOfThatName) {
  EpubBuilder book;
  book.addFile("OEBPS/a/b", "below").addFile("OEBPS/A", "file");
  EXPECT_EQ(failureOf(book), Failure::conflictingPath);
}

TEST_F(EPUBArchiveInspectorTest, RefusesAnExplicitDirectoryThenAFileOfThatName) {
  EpubBuilder book;
  book.archive().addDirectory("OEBPS/d");
  book.addFile("OEBPS/d", "file");
  EXPECT_EQ(failureOf(book), Failure::conflictingPath);
}

TEST_F(EPUBArchiveInspectorTest, ImpliedAndExplicitDirectoriesGoTogetherInEitherOrder) {
  EpubBuilder later;
  later.addFile("OEBPS/a/b", "x");
  later.archive().addDirectory("OEBPS/a");
  EXPECT_EQ(failureOf(later), std::nullopt);
  EpubBuilder earlier;
  earlier.archive().addDirectory("OEBPS/a");
  earlier.addFile("OEBPS/a/b", "x");
  EXPECT_EQ(failureOf(earlier), std::nullopt);
}

TEST_F(EPUBArchiveInspectorTest, RefusesTheSameDirectoryTwice) {
  EpubBuilder book;
  book.archive().addDirectory("OEBPS/a");
  book.archive().addDirectory("OEBPS/A");
  EXPECT_EQ(failureOf(book), Failure::conflictingPath);
}

// --- Expansion ----------------------------------------------------------------------

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

TEST_F(EPUBArchiveInspectorTest, RatioOf200PassesAnd201IsRefused) {
  EXPECT_EQ(failureOf(bookWithDeclaredSizes(10, 2000)), std::nullopt);
  EXPECT_EQ(failureOf(bookWithDeclaredSizes(10, 2009)), std::nullopt);
  EXPECT_EQ(failureOf(bookWithDeclaredSizes(10, 2010)), Failure::suspiciousExpansion);
}

TEST_F(EPUBArchiveInspectorTest, RefusesNonEmptyEntryWithNoCompressedBytes) {
  EXPECT_EQ(failureOf(bookWithDeclaredSizes(0, 1)), Failure::suspiciousExpansion);
}

TEST_F(EPUBArchiveInspectorTest, RefusesDeclaredTotalAboveOneGibibyte) {
  // Two entries of 512 MiB each at a ratio under 200; with the book's own
  // entries the sum passes 1 GiB. The data is declared, never written.
  EpubBuilder book;
  for (const char* name : {"OEBPS/one.bin", "OEBPS/two.bin"}) {
    auto& entry = book.archive().add({});
    entry.name = name;
    entry.method = ZipArchiveBuilder::kDeflated;
    entry.compressedData = "z";
    entry.centralCompressedSize = 2800000;
    entry.centralUncompressedSize = 512u * 1024 * 1024;
  }
  book.archive().setBytesBeforeCentralDirectory(std::string(2900000, '\0'));
  EXPECT_EQ(failureOf(book), Failure::suspiciousExpansion);
}

TEST_F(EPUBArchiveInspectorTest, TotalExactlyAtTheLimitPasses) {
  EpubBuilder book;
  const auto path = write(book);
  const std::uint64_t total = inspect(path).totalUncompressedSize;
  EXPECT_EQ(failureOf(book, {.maximumTotalUncompressedSize = total}), std::nullopt);
  EXPECT_EQ(failureOf(book, {.maximumTotalUncompressedSize = total - 1}),
            Failure::suspiciousExpansion);
}

// --- Cancellation and I/O failures --------------------------------------------------

TEST_F(EPUBArchiveInspectorTest, StopsAtTheHeadOfAnEntryWhenCancelled) {
  const auto path = write(EpubBuilder());
  std::stop_source source;
  source.request_stop();
  EXPECT_THROW(EPUBArchiveInspector().inspectBlocking(path, source.get_token()),
               async::OperationCancelled);
}

TEST_F(EPUBArchiveInspectorTest, CancellationOfTheAwaitingTaskReachesTheInspection) {
  const auto path = write(EpubBuilder());
  std::stop_source source;
  source.request_stop();
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
