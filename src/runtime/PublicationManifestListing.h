#pragma once

#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "runtime/PublicationResourceProvider.h"

namespace tomekeeper {

// The files of one extracted publication that its pages may load: every item of the package
// document's manifest, the package document itself, and the container's own files under
// META-INF (the runtime reads encryption.xml there). Anything else in the archive, such as an
// image the author left out of the manifest, is not the book's to show.
//
// A plain value, read once when a publication is registered; any thread may ask it.
class PublicationManifestListing {
 public:
  // Reads META-INF/container.xml of `provider`'s root and the package document of its first
  // rootfile with expat, both found as the provider finds any path (letter case ignored when
  // there is no exact match). Internal entities are expanded within expat's amplification
  // limits; external ones are refused. An item whose file is missing or lies outside the
  // root is left out, as is a remote one. Absent when the root holds no container document at
  // all (a directory that was never a book, which then has no manifest to hold to). Throws
  // PublicationResourceErrorError(unavailable) when the container or the package document
  // cannot be read, is not well-formed, or names no package. Reads files; call it off the main
  // executor when the book may be large.
  static std::optional<PublicationManifestListing> read(const PublicationResourceProvider& provider);

  // Whether `file`, a path as PublicationResource::fileURL gives it, may be served.
  bool lists(const std::filesystem::path& file) const;

  // Whether `file`, a path as PublicationResource::fileURL gives it, is the document of an
  // itemref of the spine or of its manifest fallback chain (whatever their types).
  bool isSpineItem(const std::filesystem::path& file) const;

  // The package document's path from the root, as the container names it.
  const std::string& packagePath() const noexcept { return packagePath_; }

 private:
  PublicationManifestListing() = default;

  std::set<std::filesystem::path> files_;
  std::set<std::filesystem::path> spineFiles_;
  std::filesystem::path containerDirectory_;
  std::string packagePath_;
};

// `reference`, a relative URL found in the document at `documentPath` (both as their text
// gives them, percent-encoded), resolved as the URL standard resolves it against that document:
// a leading "/" starts from the root, ".." never climbs above it, a query or fragment is
// dropped. Absent for an absolute URL (one with a scheme, or starting with "//") and for an
// empty result. Pure; any thread.
std::optional<std::string> resolvedPublicationReference(std::string_view documentPath,
                                                        std::string_view reference);

}  // namespace tomekeeper
