#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tomekeeper {

// What the library takes from a book's package document.
struct PackageMetadata {
  std::string title;                 // the first dc:title, white space collapsed
  std::vector<std::string> authors;  // every dc:creator, in order
  std::string language;              // the first dc:language
  // The cover image: the manifest item with the property "cover-image" or, in an older book,
  // the one a <meta name="cover"> names; its file relative to the extracted root and its media
  // type. Absent when the package names none or names one outside the root.
  std::optional<std::filesystem::path> coverImage;
  std::string coverMediaType;

  bool operator==(const PackageMetadata&) const = default;
};

// The package document is not well-formed XML or declares entities.
class PackageMetadataError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Reads the metadata of the package document at `packageDocumentPath`, relative to
// `extractedRoot`. Throws PackageMetadataError, or std::system_error when the file cannot be
// read. Blocking.
PackageMetadata readPackageMetadata(const std::filesystem::path& extractedRoot,
                                    const std::string& packageDocumentPath);

// The metadata of the package `document`, whose path relative to the root is
// `packageDocumentPath`. Throws PackageMetadataError. Any thread.
PackageMetadata parsePackageMetadata(std::string_view document,
                                     const std::string& packageDocumentPath);

}  // namespace tomekeeper
