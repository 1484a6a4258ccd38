#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "support/ZipArchiveBuilder.h"

namespace tomekeeper::testing {

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
