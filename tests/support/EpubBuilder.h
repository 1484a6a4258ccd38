#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "support/ZipArchiveBuilder.h"

namespace tomekeeper::testing {

// One item of a package document's manifest.
struct ManifestItem {
  ManifestItem(std::string itemID, std::string itemHref,
               std::string itemMediaType = "application/xhtml+xml", std::string itemProperties = {})
      : id(std::move(itemID)),
        href(std::move(itemHref)),
        mediaType(std::move(itemMediaType)),
        properties(std::move(itemProperties)) {}

  std::string id;
  std::string href;
  std::string mediaType;
  std::string properties;
};

// What test books vary in their package document; `text()` writes the document. Attribute and
// metadata strings are written as given, so a test can add what it needs (a rendition prefix, a
// page progression direction, a layout property).
struct PackageDescription {
  std::string identifier = "urn:uuid:6c1a0c3e-8f0e-4d7e-9a57-3d1d7f0f4b21";
  std::string title = "A Test Book";
  std::vector<std::string> creators;
  std::string language = "en";
  std::string packageAttributes;
  std::string extraMetadata;
  std::vector<ManifestItem> manifest;
  // The idrefs of the spine, in reading order.
  std::vector<std::string> spine;
  std::string spineAttributes;

  // XHTML sections "<prefix>1.xhtml" ... "<prefix>N.xhtml" with ids "chapter1" ... "chapterN",
  // in the manifest and, in that order, the spine.
  PackageDescription& withChapters(int count, const std::string& hrefPrefix = "chapter");

  std::string text() const;
};

// Builds test EPUBs on top of ZipArchiveBuilder. A new builder already holds a
// minimal valid book: a stored "mimetype", "META-INF/container.xml" pointing
// at "OEBPS/package.opf", the package document and one chapter. Additions go
// after these entries; `archive()` gives the underlying builder for any change
// a hostile book needs.
class EpubBuilder {
 public:
  static constexpr const char* kPackageDocumentPath = "OEBPS/package.opf";

  EpubBuilder();

  // Adds a file, deflated unless `method` says otherwise.
  EpubBuilder& addFile(std::string name, std::string content,
                       std::uint16_t method = ZipArchiveBuilder::kDeflated);
  // Replaces the content of an existing entry, keeping its place and method.
  EpubBuilder& replaceFile(const std::string& name, std::string content);
  EpubBuilder& withPackageDocument(const PackageDescription& package) {
    return replaceFile(kPackageDocumentPath, package.text());
  }
  EpubBuilder& withContainerXML(std::string content) {
    return replaceFile("META-INF/container.xml", std::move(content));
  }
  EpubBuilder& withEncryptionXML(std::string content) {
    return addFile("META-INF/encryption.xml", std::move(content));
  }
  EpubBuilder& withRightsXML(std::string content) {
    return addFile("META-INF/rights.xml", std::move(content));
  }

  ZipArchiveBuilder& archive() { return archive_; }
  std::string build() const { return archive_.build(); }
  void writeTo(const std::filesystem::path& path) const { archive_.writeTo(path); }

  // A container.xml naming one rootfile.
  static std::string containerXML(const std::string& fullPath,
                                  const std::string& mediaType = "application/oebps-package+xml");
  // An encryption.xml with one EncryptedData per algorithm.
  static std::string encryptionXML(const std::vector<std::string>& algorithms);

 private:
  ZipArchiveBuilder archive_;
};

}  // namespace tomekeeper::testing
