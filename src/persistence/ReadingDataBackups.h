#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "async/Failure.h"
#include "model/Date.h"

namespace tomekeeper {

// The three stores of one book's directory.
enum class PublicationStore { readingPosition, bookmarks, annotations };

// The file name of `store` in a book's directory.
std::string_view publicationStoreFileName(PublicationStore store);

// Restoring failed: the backup no longer decodes (it changed since it was offered, or was
// removed): backupUnreadable; the store could not be replaced: cannotWrite.
TOMEKEEPER_FAILURE(ReadingDataRestoreFailure, backupUnreadable, cannotWrite);

// The newest backup of one store that decodes, and what it holds for the book.
struct StoreBackupSummary {
  PublicationStore store = PublicationStore::bookmarks;
  std::filesystem::path backupFile;
  int generation = 1;  // 1 is the newest; see StoreBackups.h
  // When the backup was taken, which is the last moment its version was the store's: the
  // modification time of the backup file.
  Date savedAt;
  // Bookmarks or annotations of the book; 1 or 0 for the reading position.
  std::size_t recordCount = 0;
  // Whether the store in place decodes now; false also for a store that cannot be read.
  bool currentStoreDecodes = true;

  bool operator==(const StoreBackupSummary&) const = default;
};

// What "Restore Reading Data…" offers for one book: per store, its newest backup that decodes.
// Stores without any such backup are left out, so an empty offer means nothing to restore.
struct ReadingDataBackupOffer {
  std::vector<StoreBackupSummary> stores;

  const StoreBackupSummary* find(PublicationStore store) const;
  std::size_t bookmarkCount() const;
  std::size_t annotationCount() const;
  bool hasReadingPosition() const;
  // The latest savedAt of the stores offered.
  std::optional<Date> savedAt() const;

  bool operator==(const ReadingDataBackupOffer&) const = default;
};

// Looks through <publicationDirectory>/<store>.1 … .3 of each store, newest first, for one that
// its repository decodes (whatever the store in place holds: a broken store is never repaired,
// but its backups are offered). Backups that do not decode are passed over, never changed.
// Counts are those of `fingerprint`. Throws nothing for missing or unreadable files. Blocking.
ReadingDataBackupOffer findReadingDataBackups(const std::filesystem::path& publicationDirectory,
                                              std::string_view fingerprint);

// Puts each backup of `offer` in place of its store. The backup is read and decoded again first,
// and the store it replaces becomes the newest backup in turn, so a restore can itself be
// undone. Stores are restored one after another in the offer's order; a failure stops there and
// throws ReadingDataRestoreFailure, leaving the stores not yet restored as they were. Blocking;
// a repository of the book must not be saving meanwhile.
void restoreReadingDataBackups(const ReadingDataBackupOffer& offer);

}  // namespace tomekeeper
