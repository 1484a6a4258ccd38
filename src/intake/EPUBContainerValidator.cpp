#include "intake/EPUBContainerValidator.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <string_view>

#include "async/Task.h"
#include "intake/ArchivePath.h"
#include "intake/ContainerXMLDelegate.h"
#include "intake/FileOperations.h"
#include "intake/IntakeFailures.h"

namespace tomekeeper {
namespace {

namespace fs = std::filesystem;
using ValidationFailure = EPUBContainerValidationFailure;

[[noreturn]] void fail(ValidationFailure failure) {
  throw EPUBContainerValidationFailureError(failure);
}

constexpr std::string_view kPackageMediaType = "application/oebps-package+xml";

const std::map<std::string, FontObfuscationAlgorithm, std::less<>>& obfuscationAlgorithms() {
  static const std::map<std::string, FontObfuscationAlgorithm, std::less<>> algorithms{
      {EPUBContainerValidator::kIDPFFontObfuscation, FontObfuscationAlgorithm::idpf},
      {EPUBContainerValidator::kAdobeFontMangling, FontObfuscationAlgorithm::adobe}};
  return algorithms;
}

enum class Requirement { required, optional };

// Reads a small metadata file whole. Nothing for an absent optional file;
// `failure` for a required file that is absent, and for anything that is not
// a regular file of at most `limit` bytes that reads back at its reported size.
std::optional<std::string> readMetadataFile(const fs::path& path, std::int64_t limit,
                                            Requirement requirement, ValidationFailure failure) {
  std::error_code error;
  if (!fs::exists(path, error)) {
    if (requirement == Requirement::required) fail(failure);
    return std::nullopt;
  }
  // The link itself, not its target: a symbolic link is no regular file.
  const fs::file_status status = fs::symlink_status(path, error);
  if (error || !fs::is_regular_file(status)) fail(failure);
  const std::uintmax_t size = fs::file_size(path, error);
  if (error || size > static_cast<std::uintmax_t>(limit)) fail(failure);

  std::ifstream file(path, std::ios::binary);
  if (!file) fail(failure);
  std::string contents(size, '\0');
  file.read(contents.data(), static_cast<std::streamsize>(size));
  if (static_cast<std::uintmax_t>(file.gcount()) != size || file.peek() != EOF) fail(failure);
  return contents;
}

// The entry of `directory` called `name`; when there is none, the one entry
// whose name compares equal to it as the inspector compares archive paths
// (so without regard to letter case). Nothing when no entry or more than one
// matches: a book whose entries differ only in case never gets this far.
std::optional<fs::path> entryWithoutRegardToCase(const fs::path& directory,
                                                 const std::string& name) {
  std::error_code error;
  if (fs::exists(fs::symlink_status(directory / name, error))) return directory / name;
  if (!isWellFormedUTF8(name)) return std::nullopt;
  const std::string wanted = foldArchivePath(name);
  std::optional<fs::path> found;
  fs::directory_iterator entry(directory, error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    const std::string candidate = entry->path().filename().string();
    if (!isWellFormedUTF8(candidate) || foldArchivePath(candidate) != wanted) continue;
    if (found) return std::nullopt;
    found = entry->path();
  }
  if (error) return std::nullopt;
  return found;
}

// `relativePath` (validated, "/"-separated) under `root`, each component
// found as entryWithoutRegardToCase finds it; the path as it is on disk,
// relative to `root`, or nothing.
std::optional<std::string> pathWithoutRegardToCase(const fs::path& root,
                                                   std::string_view relativePath) {
  fs::path current = root;
  std::string found;
  for (std::size_t start = 0; start <= relativePath.size();) {
    const std::size_t end = std::min(relativePath.find('/', start), relativePath.size());
    const std::optional<fs::path> entry =
        entryWithoutRegardToCase(current, std::string(relativePath.substr(start, end - start)));
    if (!entry) return std::nullopt;
    current = *entry;
    if (!found.empty()) found += '/';
    found += entry->filename().string();
    start = end + 1;
  }
  return found;
}

// A file of META-INF as the book names it, or as written when it has none.
fs::path metadataPath(const fs::path& root, std::string_view relativePath) {
  return root / pathWithoutRegardToCase(root, relativePath).value_or(std::string(relativePath));
}

fs::path resolved(const fs::path& path) {
  std::error_code error;
  fs::path canonical = fs::weakly_canonical(standardised(path), error);
  return error ? standardised(path) : canonical;
}

}  // namespace

std::string EPUBContainerValidator::chooseRootfilePath(std::string_view containerXML) {
  ContainerXMLDelegate delegate;
  if (!parseXMLStartElements(containerXML, delegate)) fail(ValidationFailure::malformedContainer);
  if (delegate.rootfiles.empty()) fail(ValidationFailure::missingRootfile);
  const ContainerXMLDelegate::Rootfile* chosen = &delegate.rootfiles.front();
  for (const auto& rootfile : delegate.rootfiles) {
    if (rootfile.mediaType == kPackageMediaType) {
      chosen = &rootfile;
      break;
    }
  }
  std::optional<std::string> path = validateRootfilePath(chosen->path);
  if (!path) fail(ValidationFailure::invalidRootfilePath);
  return *path;
}

bool EPUBContainerValidator::checkEncryption(std::string_view encryptionXML) {
  return !fontObfuscationAlgorithms(encryptionXML).empty();
}

std::set<FontObfuscationAlgorithm> EPUBContainerValidator::fontObfuscationAlgorithms(
    std::string_view encryptionXML) {
  EncryptionXMLDelegate delegate;
  if (!parseXMLStartElements(encryptionXML, delegate)) {
    fail(ValidationFailure::malformedEncryptionMetadata);
  }
  // A file that names nothing is not taken to mean that nothing is encrypted.
  if (delegate.algorithms.empty()) fail(ValidationFailure::malformedEncryptionMetadata);
  std::set<FontObfuscationAlgorithm> found;
  for (const std::string& algorithm : delegate.algorithms) {
    const auto known = obfuscationAlgorithms().find(algorithm);
    if (known == obfuscationAlgorithms().end()) fail(ValidationFailure::unsupportedDRM);
    found.insert(known->second);
  }
  return found;
}

ValidatedEPUBContainer EPUBContainerValidator::validate(const fs::path& publicationRoot,
                                                        const std::stop_token& stopToken) const {
  async::throwIfCancelled(stopToken);
  const fs::path root = resolved(publicationRoot);

  const std::string containerXML =
      *readMetadataFile(metadataPath(root, "META-INF/container.xml"), maximumMetadataSize_,
                        Requirement::required, ValidationFailure::missingContainer);
  const std::string rootfilePath = chooseRootfilePath(containerXML);
  // Readers on file systems that ignore case open such books, so this one does too.
  const std::string packagePath =
      pathWithoutRegardToCase(root, rootfilePath).value_or(rootfilePath);

  // A symbolic link inside the publication that leads out is refused here.
  const fs::path packageURL = resolved(root / packagePath);
  if (!packageURL.native().starts_with(root.native() + "/")) {
    fail(ValidationFailure::invalidRootfilePath);
  }
  std::error_code error;
  if (!fs::exists(packageURL, error) || fs::is_directory(packageURL, error)) {
    fail(ValidationFailure::unavailablePackageDocument);
  }

  if (fs::exists(fs::symlink_status(metadataPath(root, "META-INF/rights.xml"), error))) {
    fail(ValidationFailure::unsupportedDRM);
  }

  std::set<FontObfuscationAlgorithm> algorithms;
  const std::optional<std::string> encryptionXML =
      readMetadataFile(metadataPath(root, "META-INF/encryption.xml"), maximumMetadataSize_,
                       Requirement::optional, ValidationFailure::malformedEncryptionMetadata);
  if (encryptionXML) algorithms = fontObfuscationAlgorithms(*encryptionXML);

  return ValidatedEPUBContainer{root, packageURL, packagePath, !algorithms.empty(), algorithms};
}

}  // namespace tomekeeper
