#include "persistence/ConflictCopies.h"

#include <glib.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <system_error>

#include "async/Failure.h"
#include "persistence/JSONAnnotationRepository.h"
#include "persistence/JSONBookmarkRepository.h"
#include "persistence/JSONReadingPositionRepository.h"
#include "persistence/StoreBackups.h"
#include "platform/AtomicFileWriter.h"
#include "platform/FileSystem.h"

namespace tomekeeper {

namespace {

bool isConflictMarker(std::string_view marker) {
  if (marker.starts_with(".sync-conflict-") || marker.starts_with("_conflict-")) {
    return marker.size() > std::string_view("_conflict-").size();
  }
  return marker.starts_with(" (") && marker.ends_with(")") &&
         marker.find("conflicted copy") != std::string_view::npos;
}

// One version of a store: its decoded contents and when its file was last modified.
template <typename Store>
struct Version {
  Store store;
  std::int64_t modifiedNanoseconds = 0;
};

std::int64_t modificationNanoseconds(const std::filesystem::path& file) {
  struct stat status {};
  if (::stat(file.c_str(), &status) != 0) return 0;
  return status.st_mtim.tv_sec * 1'000'000'000LL + status.st_mtim.tv_nsec;
}

template <typename Record>
Date versionDate(const Record& record) {
  if constexpr (requires { record.modifiedAt; }) {
    return record.modifiedAt;
  } else {
    return record.createdAt;
  }
}

// Merges `incoming` into `merged` by id: a record already there is replaced only by a strictly
// newer version, in its place; a new one is appended to its book's list.
template <typename Record>
void mergeRecords(std::map<std::string, std::vector<Record>>& merged,
                  const std::map<std::string, std::vector<Record>>& incoming) {
  for (const auto& [fingerprint, records] : incoming) {
    for (const Record& record : records) {
      Record* existing = nullptr;
      for (auto& [key, list] : merged) {
        for (Record& stored : list) {
          if (stored.id == record.id) existing = &stored;
        }
      }
      if (existing == nullptr) {
        merged[fingerprint].push_back(record);
      } else if (versionDate(record) > versionDate(*existing)) {
        *existing = record;
      }
    }
  }
}

void mergeInto(Version<JSONBookmarkRepository::Store>& merged,
               const Version<JSONBookmarkRepository::Store>& copy) {
  mergeRecords(merged.store.bookmarksByFingerprint, copy.store.bookmarksByFingerprint);
}

void mergeInto(Version<JSONAnnotationRepository::Store>& merged,
               const Version<JSONAnnotationRepository::Store>& copy) {
  mergeRecords(merged.store.annotationsByFingerprint, copy.store.annotationsByFingerprint);
}

// Positions have no date of their own: the file modified last holds the latest one. Sync
// engines carry a file's modification time to the other machines.
void mergeInto(Version<JSONReadingPositionRepository::Store>& merged,
               const Version<JSONReadingPositionRepository::Store>& copy,
               std::map<std::string, std::int64_t>& positionDates) {
  for (const auto& [fingerprint, locator] : copy.store.locators) {
    const auto date = positionDates.find(fingerprint);
    if (date == positionDates.end() || copy.modifiedNanoseconds > date->second) {
      merged.store.locators.insert_or_assign(fingerprint, locator);
      positionDates[fingerprint] = copy.modifiedNanoseconds;
    }
  }
}

std::vector<std::filesystem::path> conflictCopiesOf(const std::filesystem::path& storeFile) {
  std::vector<std::filesystem::path> copies;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(storeFile.parent_path(), error), end;
       !error && entry != end; entry.increment(error)) {
    if (isConflictCopyName(entry->path().filename().string(), storeFile.filename().string()) &&
        entry->is_regular_file(error)) {
      copies.push_back(entry->path());
    }
  }
  std::sort(copies.begin(), copies.end());
  return copies;
}

// Moves `copy` into conflicts/ beside it under a name not taken there, never over a file.
std::filesystem::path moveAside(const std::filesystem::path& copy) {
  FileSystem& fileSystem = FileSystem::current();
  const std::filesystem::path directory = copy.parent_path() / kConflictsDirectoryName;
  if (fileSystem.makeDirectory(directory, 0755) != 0 && errno != EEXIST) {
    throw std::system_error(errno, std::generic_category(), "mkdir conflicts");
  }
  for (int attempt = 0;; ++attempt) {
    std::filesystem::path target = directory / copy.filename();
    if (attempt > 0) target += "." + std::to_string(attempt);
    if (fileSystem.renameWithoutReplacing(copy, target) == 0) return target;
    if (errno == EEXIST) continue;
    // A file system without RENAME_NOREPLACE: look first. Only this process merges the copies of
    // a store, so no other file can take the name in between.
    if (errno == EINVAL) {
      if (std::filesystem::exists(target)) continue;
      if (fileSystem.rename(copy, target) == 0) return target;
    }
    throw std::system_error(errno, std::generic_category(), "move conflict copy");
  }
}

// The store in `storeFile` with `copies` merged into it, in memory; copies that do not decode
// go to `outcome.copiesLeftInPlace`, the others to `mergedCopies`. Throws what the repository's
// loadStore throws for the store itself.
template <typename Repository>
typename Repository::Store mergedInMemory(const std::filesystem::path& storeFile,
                                          const std::vector<std::filesystem::path>& copies,
                                          ConflictMergeOutcome& outcome,
                                          std::vector<std::filesystem::path>& mergedCopies) {
  using Store = typename Repository::Store;
  Version<Store> merged;
  merged.store = Repository::loadStore(storeFile);
  merged.modifiedNanoseconds = modificationNanoseconds(storeFile);
  std::map<std::string, std::int64_t> positionDates;
  if constexpr (std::is_same_v<Repository, JSONReadingPositionRepository>) {
    for (const auto& entry : merged.store.locators) {
      positionDates[entry.first] = merged.modifiedNanoseconds;
    }
  }
  for (const std::filesystem::path& copy : copies) {
    Version<Store> version;
    try {
      const std::optional<std::string> copyContents = readWholeFile(copy);
      if (!copyContents) continue;  // gone since the listing
      version.store = Repository::decodeStore(*copyContents);
      version.modifiedNanoseconds = modificationNanoseconds(copy);
    } catch (const std::exception&) {
      outcome.copiesLeftInPlace.push_back(copy);
      continue;
    }
    if constexpr (std::is_same_v<Repository, JSONReadingPositionRepository>) {
      mergeInto(merged, version, positionDates);
    } else {
      mergeInto(merged, version);
    }
    mergedCopies.push_back(copy);
  }
  return std::move(merged.store);
}

template <typename Repository>
ConflictMergeOutcome mergeStore(const std::filesystem::path& storeFile) {
  ConflictMergeOutcome outcome;
  const std::vector<std::filesystem::path> copies = conflictCopiesOf(storeFile);
  if (copies.empty()) return outcome;
  std::vector<std::filesystem::path> mergedCopies;
  typename Repository::Store merged;
  try {
    merged = mergedInMemory<Repository>(storeFile, copies, outcome, mergedCopies);
  } catch (const Failure&) {
    // The store in place does not decode (or cannot be read): it is never repaired.
    outcome.copiesLeftInPlace = copies;
    return outcome;
  }
  if (mergedCopies.empty()) return outcome;
  replaceStoreKeepingBackups(storeFile, Repository::encodeStore(merged));
  for (const std::filesystem::path& copy : mergedCopies) {
    outcome.mergedCopies.push_back(moveAside(copy));
  }
  return outcome;
}

void append(ConflictMergeOutcome& outcome, ConflictMergeOutcome more) {
  outcome.mergedCopies.insert(outcome.mergedCopies.end(), more.mergedCopies.begin(),
                              more.mergedCopies.end());
  outcome.copiesLeftInPlace.insert(outcome.copiesLeftInPlace.end(), more.copiesLeftInPlace.begin(),
                                   more.copiesLeftInPlace.end());
}

}  // namespace

bool isConflictCopyName(std::string_view name, std::string_view storeName) {
  const std::size_t dot = storeName.rfind('.');
  const std::string_view stem = storeName.substr(0, dot);
  const std::string_view extension =
      dot == std::string_view::npos ? std::string_view() : storeName.substr(dot);
  if (name.size() <= storeName.size() || !name.starts_with(stem) || !name.ends_with(extension)) {
    return false;
  }
  return isConflictMarker(name.substr(stem.size(), name.size() - stem.size() - extension.size()));
}

ConflictMergeOutcome mergeConflictCopies(PublicationStore store,
                                         const std::filesystem::path& storeFile) {
  switch (store) {
    case PublicationStore::readingPosition:
      return mergeStore<JSONReadingPositionRepository>(storeFile);
    case PublicationStore::bookmarks:
      return mergeStore<JSONBookmarkRepository>(storeFile);
    case PublicationStore::annotations:
      return mergeStore<JSONAnnotationRepository>(storeFile);
  }
  return {};
}

ConflictMergeOutcome mergeConflictCopiesIn(const std::filesystem::path& publicationDirectory) {
  ConflictMergeOutcome outcome;
  for (const PublicationStore store :
       {PublicationStore::readingPosition, PublicationStore::bookmarks,
        PublicationStore::annotations}) {
    append(outcome,
           mergeConflictCopies(store, publicationDirectory / publicationStoreFileName(store)));
  }
  return outcome;
}

JSONAnnotationRepository::Store loadAnnotationsWithConflictCopies(
    const std::filesystem::path& storeFile) {
  ConflictMergeOutcome ignored;
  std::vector<std::filesystem::path> merged;
  return mergedInMemory<JSONAnnotationRepository>(storeFile, conflictCopiesOf(storeFile), ignored,
                                                  merged);
}

namespace detail {

void mergeConflictCopiesBeforeUse(PublicationStore store, const std::filesystem::path& storeFile) {
  // Said once per copy and process: a copy left in place is found again by every operation.
  static std::mutex reportedMutex;
  static std::set<std::filesystem::path> reported;
  const auto reportOnce = [](const std::filesystem::path& subject) {
    const std::lock_guard lock(reportedMutex);
    return reported.insert(subject).second;
  };
  try {
    const ConflictMergeOutcome outcome = mergeConflictCopies(store, storeFile);
    for (const std::filesystem::path& copy : outcome.copiesLeftInPlace) {
      if (!reportOnce(copy)) continue;
      g_message("A conflict copy was not merged, as it or its store does not decode: %s",
                copy.c_str());
    }
  } catch (const std::exception& error) {
    if (!reportOnce(storeFile)) return;
    g_message("The conflict copies of %s were not merged: %s", storeFile.c_str(), error.what());
  }
}

}  // namespace detail
}  // namespace tomekeeper
