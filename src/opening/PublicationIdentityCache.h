#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "async/SerialExecutor.h"
#include "async/Task.h"

namespace tomekeeper {

// Remembers the fingerprint of a file for as long as its size and
// modification time stay as they were, so that an unchanged book is not
// hashed again. An accelerator only: every failure is swallowed, and losing
// the store costs time, never an outcome. The store is one JSON file; each
// operation reads it anew on the cache's own executor.
class PublicationIdentityCache {
 public:
  static constexpr std::size_t kMaximumRecords = 512;

  // What a file looked like.
  struct SourceSnapshot {
    std::string path;  // Canonical: absolute, normal, symbolic links resolved.
    std::optional<std::string> fileResourceIdentifier;  // "<st_dev>:<st_ino>"
    std::int64_t byteCount = 0;
    double modificationTime = 0;  // Seconds since 2001-01-01T00:00:00Z.

    // Throws DocumentOpenFailure::sourceUnavailable for anything but a regular
    // file, and std::system_error when the file cannot be queried. Blocking.
    static SourceSnapshot capture(const std::filesystem::path& file);

    // Same path, or the same file system identity.
    bool namesSameFile(const SourceSnapshot& other) const;
    bool operator==(const SourceSnapshot&) const = default;
  };

  struct Record {
    SourceSnapshot source;
    std::string fingerprint;
    bool operator==(const Record&) const = default;
  };

  // `storeFile` is DocumentAccess/identity-cache.json under the application's
  // data directory.
  explicit PublicationIdentityCache(std::filesystem::path storeFile);

  const std::filesystem::path& fileURL() const { return storeFile_; }

  // The remembered fingerprint of `file` if it is unchanged, newest record
  // first. Never throws.
  async::Task<std::optional<std::string>> cachedFingerprint(std::filesystem::path file);

  // Remembers that `file` as it is now has `fingerprint`, replacing every
  // record of the same file and keeping the newest 512. Never throws.
  async::Task<void> record(std::filesystem::path file, std::string fingerprint);

  // The records as stored, oldest first; empty for a missing or damaged store.
  // Blocking; for tests and tools.
  std::vector<Record> loadRecords() const;

 private:
  std::filesystem::path storeFile_;
  async::SerialExecutor executor_;
};

}  // namespace tomekeeper
