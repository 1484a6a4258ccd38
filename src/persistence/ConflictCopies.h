#pragma once

#include <filesystem>
#include <string_view>
#include <vector>

#include "persistence/JSONAnnotationRepository.h"
#include "persistence/ReadingDataBackups.h"

// A state directory may sit in a folder that a file-sync engine keeps. When two machines change
// the same store before they meet, such an engine keeps one version under the store's name and
// writes the other beside it as a conflict copy. The copies are merged back into the store, so
// that no highlight made on either machine is lost, and then moved aside, never deleted.
namespace tomekeeper {

// Whether `name` is a conflict copy of the store file `storeName` ("bookmarks.json"): the
// store's stem, then a marker, then its extension. The markers are those of the common engines:
// ".sync-conflict-<date>-<time>-<device>", " (<anything>conflicted copy<anything>)" and
// "_conflict-<anything>". A backup (bookmarks.json.1) or a copy of a backup is not one.
bool isConflictCopyName(std::string_view name, std::string_view storeName);

// The folder beside the stores into which merged copies are moved.
inline constexpr std::string_view kConflictsDirectoryName = "conflicts";

struct ConflictMergeOutcome {
  // Copies merged into their store and moved into conflicts/ (their new paths).
  std::vector<std::filesystem::path> mergedCopies;
  // Copies that do not decode, left where they are; so are all copies of a store in place that
  // does not decode, since a broken store is never repaired.
  std::vector<std::filesystem::path> copiesLeftInPlace;

  bool operator==(const ConflictMergeOutcome&) const = default;
};

// Merges the conflict copies of `store`, the file `storeFile`, into it. Bookmarks and
// annotations are merged by id across all books' lists, keeping the newest version of each
// (an annotation's modifiedAt, a bookmark's createdAt; the store's own on a tie): the store's
// records keep their order and records found only in copies follow. Each book's reading position
// is the one of the file modified last. The merge replaces the store with
// replaceStoreKeepingBackups, and only then are the copies moved into conflicts/ (a name taken
// there gets a numeric suffix), so a process killed in between merges the same copies again on
// the next call, to the same result. Throws std::system_error or filesystem_error when the store
// cannot be read, written or a copy cannot be moved; what was done by then stays done. Blocking;
// no repository of the store may be saving meanwhile.
ConflictMergeOutcome mergeConflictCopies(PublicationStore store,
                                         const std::filesystem::path& storeFile);

// mergeConflictCopies for the three stores of a book's directory, one after the other.
ConflictMergeOutcome mergeConflictCopiesIn(const std::filesystem::path& publicationDirectory);

// The annotations of `storeFile` with its conflict copies merged as mergeConflictCopies would,
// in memory only: nothing is written or moved, so a reader of the stores (the export command)
// sees every highlight while the application is not running. Fails as
// JSONAnnotationRepository::loadStore does for the store itself; copies that do not decode are
// passed over. Blocking.
JSONAnnotationRepository::Store loadAnnotationsWithConflictCopies(
    const std::filesystem::path& storeFile);

namespace detail {

// For the repositories, at the start of each operation: merges as above, and when that fails
// logs why and goes on; the copies stay and the next operation tries again.
void mergeConflictCopiesBeforeUse(PublicationStore store, const std::filesystem::path& storeFile);

}  // namespace detail
}  // namespace tomekeeper
