#pragma once

#include <cstdint>
#include <filesystem>
#include <set>
#include <stop_token>
#include <string>
#include <string_view>

#include "opening/PublicationIntakeFindings.h"

namespace tomekeeper {

// What the validator learnt of an extracted publication.
struct ValidatedEPUBContainer {
  // The root, standardised and with symbolic links resolved.
  std::filesystem::path publicationRoot;
  // The package document, standardised and with symbolic links resolved.
  std::filesystem::path packageDocumentURL;
  // The rootfile's validated path, relative to the root, as the file is named
  // on disk (which may differ from the full-path in letter case).
  std::string packageDocumentPath;
  // True exactly when META-INF/encryption.xml exists and lists only the two
  // font obfuscation algorithms.
  bool usesFontObfuscation = false;
  // The obfuscation algorithms encryption.xml names; empty when it is absent.
  std::set<FontObfuscationAlgorithm> fontObfuscationAlgorithms;

  bool operator==(const ValidatedEPUBContainer&) const = default;
};

// The last gate before an extracted publication counts as usable: finds the
// package document through META-INF/container.xml, refuses DRM (rights.xml,
// or any encryption other than font obfuscation) and tells whether fonts are
// obfuscated. These META-INF files and the rootfile's path are found without
// regard to letter case when no entry has the exact name (one match only, and
// only inside the root). Reads at most two small files, lists a directory
// only where an exact name is missing, and writes nothing; the package
// document is only checked to exist. A value without state.
class EPUBContainerValidator {
 public:
  static constexpr std::int64_t kStandardMaximumMetadataSize = 1048576;
  // The font obfuscation algorithm of the EPUB Open Container Format, and the
  // older font mangling identifier that reading systems also accept.
  static constexpr const char* kIDPFFontObfuscation = "http://www.idpf.org/2008/embedding";
  static constexpr const char* kAdobeFontMangling = "http://ns.adobe.com/pdf/enc#RC";

  explicit EPUBContainerValidator(std::int64_t maximumMetadataSize = kStandardMaximumMetadataSize)
      : maximumMetadataSize_(maximumMetadataSize) {}

  // Largest size of container.xml or encryption.xml.
  std::int64_t maximumMetadataSize() const { return maximumMetadataSize_; }

  // Blocking; checks `stopToken` once at the start. Throws
  // EPUBContainerValidationFailureError or async::OperationCancelled.
  ValidatedEPUBContainer validate(const std::filesystem::path& publicationRoot,
                                  const std::stop_token& stopToken = {}) const;

  // The decisions that the documents alone make, apart from any file (also
  // the fuzzers' entry points). The validated path of the chosen rootfile;
  // throws malformedContainer, missingRootfile or invalidRootfilePath.
  static std::string chooseRootfilePath(std::string_view containerXML);
  // True when the document lists only obfuscation algorithms; throws
  // malformedEncryptionMetadata or unsupportedDRM.
  static bool checkEncryption(std::string_view encryptionXML);
  // The algorithms the document names, never empty; throws as checkEncryption does.
  static std::set<FontObfuscationAlgorithm> fontObfuscationAlgorithms(
      std::string_view encryptionXML);

 private:
  std::int64_t maximumMetadataSize_;
};

}  // namespace tomekeeper
