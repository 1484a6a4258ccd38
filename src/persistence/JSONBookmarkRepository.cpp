#include "persistence/JSONBookmarkRepository.h"

#include "model/JSONCoding.h"
#include "opening/Fingerprint.h"
#include "persistence/ConflictCopies.h"
#include "persistence/JSONStoreFile.h"
#include "persistence/PersistenceFailures.h"
#include "persistence/RecordList.h"
#include "persistence/StoreBackups.h"

namespace tomekeeper {

namespace {

using StoreFailure = BookmarkPersistenceFailure;
using Store = JSONBookmarkRepository::Store;

void requireValidFingerprint(std::string_view fingerprint) {
  if (!isValidFingerprint(fingerprint)) throwFailure(StoreFailure::invalidStore);
}

nlohmann::json encodeStoreValue(const Store& store) {
  nlohmann::json lists = nlohmann::json::object();
  for (const auto& [fingerprint, bookmarks] : store.bookmarksByFingerprint) {
    nlohmann::json list = nlohmann::json::array();
    for (const Bookmark& bookmark : bookmarks) list.push_back(bookmark);
    lists[fingerprint] = std::move(list);
  }
  return {{"schemaVersion", store.schemaVersion}, {"bookmarksByFingerprint", std::move(lists)}};
}

void writeStore(const std::filesystem::path& fileURL, const Store& store) {
  detail::writeStoreFileKeepingBackups(fileURL, encodeStoreValue(store), StoreFailure::cannotWrite);
}

}  // namespace

JSONBookmarkRepository::JSONBookmarkRepository(std::filesystem::path fileURL)
    : fileURL_(std::move(fileURL)), executor_(std::make_shared<async::SerialExecutor>()) {}

Store JSONBookmarkRepository::decodeStore(std::string_view contents) {
  Store store;
  try {
    const nlohmann::json document = detail::parseStoreDocument(contents);
    requireJSONObject(document, "JSONBookmarkRepository.Store");
    store.schemaVersion = decodeRequiredField<std::int64_t>(document, "schemaVersion");
    store.bookmarksByFingerprint =
        detail::decodeDictionaryField<std::vector<Bookmark>>(document, "bookmarksByFingerprint");
  } catch (const JSONDecodingError&) {
    throwFailure(StoreFailure::invalidStore);
  }
  if (store.schemaVersion != 1) throwFailure(StoreFailure::unsupportedSchema);
  return store;
}

std::string JSONBookmarkRepository::encodeStore(const Store& store) {
  return detail::encodeStoreDocument(encodeStoreValue(store));
}

Store JSONBookmarkRepository::loadStore(const std::filesystem::path& fileURL) {
  const std::optional<std::string> contents =
      detail::readStoreFile(fileURL, StoreFailure::invalidStore);
  if (!contents) return Store{};
  return decodeStore(*contents);
}

void JSONBookmarkRepository::saveNow(const std::filesystem::path& fileURL,
                                     const Bookmark& bookmark) {
  requireValidFingerprint(bookmark.bookFingerprint);
  Store store = loadStore(fileURL);
  detail::replaceOrAppend(store.bookmarksByFingerprint, bookmark);
  writeStore(fileURL, store);
}

async::Task<std::vector<Bookmark>> JSONBookmarkRepository::bookmarks(std::string fingerprint) {
  return detail::runSerially(executor_, [fileURL = fileURL_, fingerprint = std::move(fingerprint)] {
    detail::mergeConflictCopiesBeforeUse(PublicationStore::bookmarks, fileURL);
    requireValidFingerprint(fingerprint);
    Store store = loadStore(fileURL);
    const auto list = store.bookmarksByFingerprint.find(fingerprint);
    if (list == store.bookmarksByFingerprint.end()) return std::vector<Bookmark>{};
    return detail::sortedNewestFirst(std::move(list->second));
  });
}

async::Task<void> JSONBookmarkRepository::save(Bookmark bookmark) {
  return detail::runSerially(executor_, [fileURL = fileURL_, bookmark = std::move(bookmark)] {
    detail::mergeConflictCopiesBeforeUse(PublicationStore::bookmarks, fileURL);
    saveNow(fileURL, bookmark);
  });
}

async::Task<void> JSONBookmarkRepository::deleteBookmark(Uuid id, std::string fingerprint) {
  return detail::runSerially(
      executor_, [fileURL = fileURL_, id, fingerprint = std::move(fingerprint)] {
        detail::mergeConflictCopiesBeforeUse(PublicationStore::bookmarks, fileURL);
        requireValidFingerprint(fingerprint);
        Store store = loadStore(fileURL);
        detail::removeRecords(store.bookmarksByFingerprint, fingerprint, id);
        writeStore(fileURL, store);
      });
}

async::Task<void> JSONBookmarkRepository::deleteAll(std::string fingerprint) {
  return detail::runSerially(executor_, [fileURL = fileURL_, fingerprint = std::move(fingerprint)] {
    detail::mergeConflictCopiesBeforeUse(PublicationStore::bookmarks, fileURL);
    requireValidFingerprint(fingerprint);
    Store store = loadStore(fileURL);
    store.bookmarksByFingerprint.erase(fingerprint);
    writeStore(fileURL, store);
  });
}

}  // namespace tomekeeper
