#include "intake/PackageDocumentReadAhead.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <span>
#include <string>

#include "support/EpubBuilder.h"

namespace tomekeeper::testing {
namespace {

const std::string kPackage = PackageDescription{.title = "Read Ahead"}.text();

struct ReadAheadCase {
  const char* name;
  std::function<void(EpubBuilder&)> change;
  // The package document's path when it is read, nothing when it is left to the extraction.
  std::optional<std::string> expectedPath;
};

std::optional<PackageDocumentInArchive> readAhead(const std::string& archive) {
  MemoryArchiveFile file(
      std::span(reinterpret_cast<const std::uint8_t*>(archive.data()), archive.size()));
  const auto central = EPUBArchiveInspector().inspectCentralDirectory(file);
  return readPackageDocumentAhead(file, central);
}

class PackageDocumentReadAheadTest : public ::testing::TestWithParam<ReadAheadCase> {};

TEST_P(PackageDocumentReadAheadTest, ReadsTheRootfileOrLeavesItToTheExtraction) {
  EpubBuilder builder;
  builder.withPackageDocument(PackageDescription{.title = "Read Ahead"});
  GetParam().change(builder);
  const std::optional<PackageDocumentInArchive> package = readAhead(builder.build());
  ASSERT_EQ(package.has_value(), GetParam().expectedPath.has_value());
  if (!package) return;
  EXPECT_EQ(package->path, *GetParam().expectedPath);
  EXPECT_EQ(package->document, kPackage);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, PackageDocumentReadAheadTest,
    ::testing::Values(
        ReadAheadCase{"DeflatedNearTheStart", [](EpubBuilder&) {}, "OEBPS/package.opf"},
        ReadAheadCase{"StoredAfterEverythingElse",
                      [](EpubBuilder& builder) {
                        std::string noise(200000, '\0');
                        for (std::size_t at = 0; at < noise.size(); ++at) {
                          noise[at] = static_cast<char>((at * 2654435761u) >> 13);
                        }
                        builder.addFile("OEBPS/noise.bin", noise, ZipArchiveBuilder::kStored)
                            .withContainerXML(EpubBuilder::containerXML("late/content.opf"))
                            .addFile("late/content.opf", kPackage, ZipArchiveBuilder::kStored);
                      },
                      "late/content.opf"},
        ReadAheadCase{"RootfileNamedInAnotherLetterCase",
                      [](EpubBuilder& builder) {
                        builder.withContainerXML(EpubBuilder::containerXML("oebps/PACKAGE.opf"));
                      },
                      "OEBPS/package.opf"},
        ReadAheadCase{"ContainerThatIsNotXML",
                      [](EpubBuilder& builder) { builder.withContainerXML("<container"); },
                      std::nullopt},
        ReadAheadCase{"RootfileMissing",
                      [](EpubBuilder& builder) {
                        builder.withContainerXML(EpubBuilder::containerXML("OEBPS/other.opf"));
                      },
                      std::nullopt},
        ReadAheadCase{"RootfileEscapingTheRoot",
                      [](EpubBuilder& builder) {
                        builder.withContainerXML(EpubBuilder::containerXML("../package.opf"));
                      },
                      std::nullopt},
        ReadAheadCase{"DataThatDoesNotMatchItsChecksum",
                      [](EpubBuilder& builder) {
                        // As long as the document, one byte changed.
                        std::string changed = kPackage;
                        changed[changed.size() / 2] ^= 1;
                        builder.archive().entryNamed("OEBPS/package.opf").compressedData =
                            ZipArchiveBuilder::deflate(changed);
                      },
                      std::nullopt},
        ReadAheadCase{"BrokenLocalHeader",
                      [](EpubBuilder& builder) {
                        builder.archive().entryNamed("OEBPS/package.opf").localSignature =
                            0x01020304;
                      },
                      std::nullopt}),
    [](const ::testing::TestParamInfo<ReadAheadCase>& info) { return info.param.name; });

}  // namespace
}  // namespace tomekeeper::testing
