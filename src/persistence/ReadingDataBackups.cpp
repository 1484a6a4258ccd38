#include "persistence/ReadingDataBackups.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>

#include "persistence/JSONAnnotationRepository.h"
#include "persistence/JSONBookmarkRepository.h"
#include "persistence/JSONReadingPositionRepository.h"
#include "persistence/PublicationStateRepositoryFactory.h"
#include "persistence/StoreBackups.h"
#include "platform/AtomicFileWriter.h"

namespace tomekeeper {

namespace {

constexpr std::array kStores{PublicationStore::readingPosition, PublicationStore::bookmarks,
                             PublicationStore::annotations};

template <typename Map>
std::size_t countFor(const Map& records, std::string_view fingerprint) {
  const auto found = records.find(std::string(fingerprint));
  return found == records.end() ? 0 : found->second.size();
}

// What `contents` holds for `fingerprint`, decoded by the store's own repository; throws
// whatever that decoder throws.
std::size_t decodedRecordCount(PublicationStore store, std::string_view contents,
                               std::string_view fingerprint) {
  switch (store) {
    case PublicationStore::readingPosition:
      return JSONReadingPositionRepository::decodeStore(contents).locators.count(
          std::string(fingerprint));
    case PublicationStore::bookmarks:
      return countFor(JSONBookmarkRepository::decodeStore(contents).bookmarksByFingerprint,
                      fingerprint);
    case PublicationStore::annotations:
      return countFor(JSONAnnotationRepository::decodeStore(contents).annotationsByFingerprint,
                      fingerprint);
  }
  return 0;
}

bool decodes(PublicationStore store, const std::filesystem::path& file,
             std::string_view fingerprint) {
  try {
    // A missing store is an empty one, which is well formed.
    const std::optional<std::string> contents = readWholeFile(file);
    if (contents) decodedRecordCount(store, *contents, fingerprint);
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

std::optional<Date> modificationDate(const std::filesystem::path& file) {
  struct stat status {};
  if (::stat(file.c_str(), &status) != 0) return std::nullopt;
  const double seconds = static_cast<double>(status.st_mtim.tv_sec) +
                         static_cast<double>(status.st_mtim.tv_nsec) / 1e9;
  return Date(seconds - Date::kReferenceDateSinceUnixEpoch);
}

std::optional<StoreBackupSummary> newestBackupThatDecodes(PublicationStore store,
                                                          const std::filesystem::path& storeFile,
                                                          std::string_view fingerprint) {
  for (int generation = 1; generation <= kStoreBackupCount; ++generation) {
    const std::filesystem::path backup = storeBackupFile(storeFile, generation);
    try {
      const std::optional<std::string> contents = readWholeFile(backup);
      const std::optional<Date> savedAt = modificationDate(backup);
      if (!contents || !savedAt) continue;
      return StoreBackupSummary{store,
                                backup,
                                generation,
                                *savedAt,
                                decodedRecordCount(store, *contents, fingerprint),
                                decodes(store, storeFile, fingerprint)};
    } catch (const std::exception&) {
      // Unreadable or broken: an older generation may still do.
    }
  }
  return std::nullopt;
}

}  // namespace

std::string_view publicationStoreFileName(PublicationStore store) {
  switch (store) {
    case PublicationStore::readingPosition:
      return PublicationStateRepositoryFactory::kReadingPositionFileName;
    case PublicationStore::bookmarks:
      return PublicationStateRepositoryFactory::kBookmarksFileName;
    case PublicationStore::annotations:
      return PublicationStateRepositoryFactory::kAnnotationsFileName;
  }
  return {};
}

const StoreBackupSummary* ReadingDataBackupOffer::find(PublicationStore store) const {
  const auto found =
      std::find_if(stores.begin(), stores.end(),
                   [&](const StoreBackupSummary& entry) { return entry.store == store; });
  return found == stores.end() ? nullptr : &*found;
}

std::size_t ReadingDataBackupOffer::bookmarkCount() const {
  const StoreBackupSummary* entry = find(PublicationStore::bookmarks);
  return entry ? entry->recordCount : 0;
}

std::size_t ReadingDataBackupOffer::annotationCount() const {
  const StoreBackupSummary* entry = find(PublicationStore::annotations);
  return entry ? entry->recordCount : 0;
}

bool ReadingDataBackupOffer::hasReadingPosition() const {
  const StoreBackupSummary* entry = find(PublicationStore::readingPosition);
  return entry && entry->recordCount > 0;
}

std::optional<Date> ReadingDataBackupOffer::savedAt() const {
  std::optional<Date> latest;
  for (const StoreBackupSummary& entry : stores) {
    if (!latest || entry.savedAt > *latest) latest = entry.savedAt;
  }
  return latest;
}

ReadingDataBackupOffer findReadingDataBackups(const std::filesystem::path& publicationDirectory,
                                              std::string_view fingerprint) {
  ReadingDataBackupOffer offer;
  for (const PublicationStore store : kStores) {
    const std::filesystem::path storeFile = publicationDirectory / publicationStoreFileName(store);
    if (auto summary = newestBackupThatDecodes(store, storeFile, fingerprint)) {
      offer.stores.push_back(std::move(*summary));
    }
  }
  return offer;
}

void restoreReadingDataBackups(const ReadingDataBackupOffer& offer) {
  for (const StoreBackupSummary& entry : offer.stores) {
    std::optional<std::string> contents;
    try {
      contents = readWholeFile(entry.backupFile);
      // The fingerprint does not matter here: only whether the text decodes.
      if (contents) decodedRecordCount(entry.store, *contents, {});
    } catch (const std::exception&) {
      contents.reset();
    }
    if (!contents) throwFailure(ReadingDataRestoreFailure::backupUnreadable);
    try {
      replaceStoreKeepingBackups(
          entry.backupFile.parent_path() / publicationStoreFileName(entry.store), *contents);
    } catch (const std::exception&) {
      throwFailure(ReadingDataRestoreFailure::cannotWrite);
    }
  }
}

}  // namespace tomekeeper
