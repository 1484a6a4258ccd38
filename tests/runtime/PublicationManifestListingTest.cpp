#include "runtime/PublicationManifestListing.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "intake/EPUBArchiveExtractor.h"
#include "intake/EPUBArchiveInspector.h"
#include "support/EpubBuilder.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper {
namespace {

namespace fs = std::filesystem;
using testing::EpubBuilder;
using testing::ManifestItem;
using testing::PackageDescription;

class PublicationManifestListingTest : public ::testing::Test {
 protected:
  // Builds, checks and unpacks `book` as the application does, and reads its listing.
  PublicationManifestListing listingOf(const EpubBuilder& book) {
    const fs::path archive = directory_ / "book.epub";
    book.writeTo(archive);
    const EPUBArchiveInspection inspection = EPUBArchiveInspector().inspectBlocking(archive);
    root_ = EPUBArchiveExtractor().extract(archive, inspection, directory_ / "Extracted").rootURL;
    std::optional<PublicationManifestListing> listing =
        PublicationManifestListing::read(PublicationResourceProvider(root_));
    if (!listing) throw std::runtime_error("no container");
    return std::move(*listing);
  }

  bool lists(const PublicationManifestListing& listing, const std::string& path) const {
    return listing.lists(fs::canonical(root_ / path));
  }

  ::tomekeeper::testing::TemporaryDirectory directory_;
  fs::path root_;
};

TEST_F(PublicationManifestListingTest, ListsManifestItemsThePackageAndTheContainerOnly) {
  PackageDescription package;
  package.withChapters(1);
  package.manifest.emplace_back("photo", "images/Photo%20One.png", "image/png");
  package.manifest.emplace_back("up", "../Shared/font.woff2", "font/woff2");
  package.manifest.emplace_back("absolute", "/Shared/style.css", "text/css");
  package.manifest.emplace_back("cased", "IMAGES/LOGO.PNG", "image/png");
  package.manifest.emplace_back("remote", "https://example.invalid/a.png", "image/png");
  package.manifest.emplace_back("missing", "images/none.png", "image/png");
  EpubBuilder book;
  book.withPackageDocument(package)
      .addFile("OEBPS/images/Photo One.png", "png")
      .addFile("OEBPS/images/logo.png", "png")
      .addFile("OEBPS/images/unlisted.png", "png")
      .addFile("Shared/font.woff2", "font")
      .addFile("Shared/style.css", "p{}")
      .withEncryptionXML(EpubBuilder::encryptionXML({}));
  const PublicationManifestListing listing = listingOf(book);
  EXPECT_EQ(listing.packagePath(), "OEBPS/package.opf");
  const struct {
    const char* path;
    bool listed;
  } cases[] = {
      {"OEBPS/chapter1.xhtml", true},     {"OEBPS/images/Photo One.png", true},
      {"Shared/font.woff2", true},        {"Shared/style.css", true},
      {"OEBPS/images/logo.png", true},    {"OEBPS/package.opf", true},
      {"META-INF/container.xml", true},   {"META-INF/encryption.xml", true},
      {"OEBPS/images/unlisted.png", false}, {"mimetype", false},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.path);
    EXPECT_EQ(lists(listing, testCase.path), testCase.listed);
  }
  EXPECT_FALSE(listing.lists(fs::canonical(root_ / "META-INF")));
}

TEST_F(PublicationManifestListingTest, ExpandsInternalEntitiesOfThePackage) {
  PackageDescription package;
  package.withChapters(1);
  package.manifest.emplace_back("photo", "images/&name;.png", "image/png");
  std::string text = package.text();
  const std::size_t declarationEnd = text.find("?>") + 2;
  text.insert(declarationEnd, "<!DOCTYPE package [<!ENTITY name \"photo\">]>");
  EpubBuilder book;
  book.replaceFile(EpubBuilder::kPackageDocumentPath, text)
      .addFile("OEBPS/images/photo.png", "png");
  EXPECT_TRUE(lists(listingOf(book), "OEBPS/images/photo.png"));
}

TEST(PublicationManifestListingReadTest, ADirectoryWithoutContainerHasNoListing) {
  ::tomekeeper::testing::TemporaryDirectory directory;
  EXPECT_FALSE(PublicationManifestListing::read(PublicationResourceProvider(directory.path())));
  fs::create_directories(directory / "META-INF");
  std::ofstream(directory / "META-INF/container.xml") << "<container><rootfiles>";
  EXPECT_THROW(PublicationManifestListing::read(PublicationResourceProvider(directory.path())),
               PublicationResourceErrorError);
}

TEST(PublicationReferenceResolutionTest, ResolvesAsTheURLStandardWithinTheRoot) {
  const struct {
    const char* document;
    const char* reference;
    std::optional<std::string> resolved;
  } cases[] = {
      {"OEBPS/package.opf", "text/a.xhtml", "OEBPS/text/a.xhtml"},
      {"OEBPS/package.opf", "../../../../EPUB/images/photo.jpg", "EPUB/images/photo.jpg"},
      {"OEBPS/package.opf", "/EPUB/images/photo.jpg", "EPUB/images/photo.jpg"},
      {"package.opf", "./a/%2e%2E/b.css?x#y", "b.css"},
      {"OEBPS/package.opf", "..", std::nullopt},
      {"OEBPS/package.opf", "http://example.invalid/a.png", std::nullopt},
      {"OEBPS/package.opf", "//example.invalid/a.png", std::nullopt},
      {"OEBPS/package.opf", "data:image/png;base64,AA", std::nullopt},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.reference);
    EXPECT_EQ(resolvedPublicationReference(testCase.document, testCase.reference),
              testCase.resolved);
  }
}

}  // namespace
}  // namespace tomekeeper
