#pragma once

#include <filesystem>
#include <memory>
#include <string_view>

#include "persistence/JSONAnnotationRepository.h"
#include "persistence/JSONBookmarkRepository.h"
#include "persistence/JSONReadingPositionRepository.h"

namespace tomekeeper {

// The three stores of one book, each a new serialised object with its own executor. They live
// with the session that asked for them.
struct PublicationStateRepositories {
  std::shared_ptr<JSONReadingPositionRepository> position;
  std::shared_ptr<JSONBookmarkRepository> bookmarks;
  std::shared_ptr<JSONAnnotationRepository> annotations;
};

// Makes the per-book repositories under `publicationsRoot` (Publications/ in the application's
// data directory): <fingerprint>/reading-position.json, bookmarks.json and annotations.json. The
// directory of a book is named by its fingerprint, so reading state follows the book's content
// and survives moving the file or clearing the extraction cache. A plain value; any thread.
struct PublicationStateRepositoryFactory {
  static constexpr std::string_view kReadingPositionFileName = "reading-position.json";
  static constexpr std::string_view kBookmarksFileName = "bookmarks.json";
  static constexpr std::string_view kAnnotationsFileName = "annotations.json";

  std::filesystem::path publicationsRoot;

  // New repositories on the standardised (absolute, lexically normal) file paths of
  // `fingerprint`. Throws PublicationStateRepositoryFailure::invalidFingerprint for anything but
  // 64 lower-case hexadecimal characters, which is what makes the fingerprint safe as a
  // directory name. Touches no file.
  PublicationStateRepositories makeRepositories(std::string_view fingerprint) const;

  bool operator==(const PublicationStateRepositoryFactory&) const = default;
};

}  // namespace tomekeeper
