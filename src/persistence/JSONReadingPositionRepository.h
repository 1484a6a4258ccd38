#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "async/SerialExecutor.h"
#include "persistence/ReadingPositionRepository.h"

namespace tomekeeper {

// The reading positions in one JSON file, Publications/<fingerprint>/reading-position.json:
// {"schemaVersion":1,"locators":{"<fingerprint>":<Locator>}}. Every operation loads the file
// anew, changes it in memory and writes it whole and atomically; there is no cache. The
// fingerprint is a plain key here and is not checked.
// Each replacement keeps the version it replaces as a rolling backup (see StoreBackups.h).
// Each operation first merges the conflict copies a file-sync engine left beside the file
// (see ConflictCopies.h).
//
// Failures (ReadingPositionPersistenceFailure): the file cannot be read: cannotRead; it does not
// decode, or its schemaVersion is not 1: corruptStore; the directory, the encoding or the write
// fails: cannotWrite. A broken file is never repaired: every operation fails and the file stays
// as it is. A missing file is an empty store.
//
// Call from the main executor. Operations run one at a time on the repository's own executor;
// a started operation owns what it needs, so the repository may be released while it runs.
class JSONReadingPositionRepository final : public ReadingPositionRepository {
 public:
  struct Store {
    std::int64_t schemaVersion = 1;
    std::map<std::string, Locator> locators;

    bool operator==(const Store&) const = default;
  };

  explicit JSONReadingPositionRepository(std::filesystem::path fileURL);

  const std::filesystem::path& fileURL() const noexcept { return fileURL_; }

  async::Task<std::optional<Locator>> locator(std::string fingerprint) override;
  async::Task<void> save(Locator locator, std::string fingerprint) override;
  async::Task<void> deleteLocator(std::string fingerprint) override;

  // The store in `contents`, the text of a file. Throws corruptStore for anything but a
  // well-formed store of schemaVersion 1. Pure; for the repository, tools and the fuzzer.
  static Store decodeStore(std::string_view contents);
  // The compact JSON text of `store`. Throws nlohmann::json::exception for text that is not UTF-8
  // and std::invalid_argument for a number that is not finite.
  static std::string encodeStore(const Store& store);

  // The store in the file (empty when there is none), with the failures above. Blocking.
  static Store loadStore(const std::filesystem::path& fileURL);

 private:
  std::filesystem::path fileURL_;
  std::shared_ptr<async::SerialExecutor> executor_;
};

}  // namespace tomekeeper
