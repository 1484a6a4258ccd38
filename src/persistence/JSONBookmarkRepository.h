#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "async/SerialExecutor.h"
#include "persistence/BookmarkRepository.h"

namespace tomekeeper {

// The bookmarks in one JSON file, Publications/<fingerprint>/bookmarks.json:
// {"schemaVersion":1,"bookmarksByFingerprint":{"<fingerprint>":[<Bookmark>,...]}}. Lists are
// kept in insertion order and sorted on reading. Every operation loads the file anew, changes it
// in memory and writes it whole and atomically; there is no cache. Keys of other books are read
// and kept.
// Each replacement keeps the version it replaces as a rolling backup (see StoreBackups.h).
// Each operation first merges the conflict copies a file-sync engine left beside the file
// (see ConflictCopies.h).
//
// Failures (BookmarkPersistenceFailure): a fingerprint that is not 64 lower-case hexadecimal
// characters, a file that cannot be read or does not decode: invalidStore; a schemaVersion other
// than 1: unsupportedSchema; the directory, the encoding or the write fails: cannotWrite. A
// broken file is never repaired: every operation fails and the file stays as it is. A missing
// file is an empty store.
//
// Call from the main executor. Operations run one at a time on the repository's own executor;
// a started operation owns what it needs, so the repository may be released while it runs.
class JSONBookmarkRepository final : public BookmarkRepository {
 public:
  struct Store {
    std::int64_t schemaVersion = 1;
    std::map<std::string, std::vector<Bookmark>> bookmarksByFingerprint;

    bool operator==(const Store&) const = default;
  };

  explicit JSONBookmarkRepository(std::filesystem::path fileURL);

  const std::filesystem::path& fileURL() const noexcept { return fileURL_; }

  async::Task<std::vector<Bookmark>> bookmarks(std::string fingerprint) override;
  async::Task<void> save(Bookmark bookmark) override;
  async::Task<void> deleteBookmark(Uuid id, std::string fingerprint) override;
  async::Task<void> deleteAll(std::string fingerprint) override;

  // The store in `contents`, the text of a file. Throws invalidStore for anything that does not
  // decode, unsupportedSchema for a schemaVersion other than 1. Pure; for the repository, tools
  // and the fuzzer.
  static Store decodeStore(std::string_view contents);
  // The compact JSON text of `store`. Throws nlohmann::json::exception for text that is not UTF-8
  // and std::invalid_argument for a number that is not finite.
  static std::string encodeStore(const Store& store);

  // The store in the file (empty when there is none), with the failures above. Blocking.
  static Store loadStore(const std::filesystem::path& fileURL);
  // The whole cycle of save on the calling thread: load, replace or append, write. Blocking;
  // the repository's operations and tools that write a store outside the application use it.
  static void saveNow(const std::filesystem::path& fileURL, const Bookmark& bookmark);

 private:
  std::filesystem::path fileURL_;
  std::shared_ptr<async::SerialExecutor> executor_;
};

}  // namespace tomekeeper
