#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "async/SerialExecutor.h"
#include "async/Task.h"

namespace tomekeeper {

struct DecodedSecurityScopedBookmark {
  std::filesystem::path url;
  bool isStale = false;
};

// Makes and reads the saved route back to a user's file.
class SecurityScopedBookmarkCoding {
 public:
  virtual ~SecurityScopedBookmarkCoding() = default;
  // Both blocking; called on the bookmark store's executor. Both throw when
  // the file cannot be described or found.
  virtual std::string makeBookmarkData(const std::filesystem::path& file) = 0;
  virtual DecodedSecurityScopedBookmark decode(const std::string& data) = 0;
};

// The bookmark of this platform: a small JSON document with the canonical
// path, device, inode, size and modification time. The path naming the same
// device and inode resolves as it is. A file gone from the path (or replaced
// by another) but found by device and inode in the same directory was renamed:
// it resolves to its new name, stale. Anything else fails.
class SystemSecurityScopedBookmarkCodec final : public SecurityScopedBookmarkCoding {
 public:
  std::string makeBookmarkData(const std::filesystem::path& file) override;
  DecodedSecurityScopedBookmark decode(const std::string& data) override;
};

// Per book, the bookmark that reaches the user's original file again, in
// Publications/<fingerprint>/source-bookmark.data. Operations run one at a
// time on the store's own executor, which holds a pointer to the store: the
// store must outlive every operation it started.
class SourceBookmarkStore {
 public:
  struct Resolution {
    std::filesystem::path url;
    bool isStale = false;
    bool didRefresh = false;
  };

  SourceBookmarkStore(std::filesystem::path publicationsRoot,
                      std::shared_ptr<SecurityScopedBookmarkCoding> codec);

  const std::filesystem::path& publicationsRoot() const { return publicationsRoot_; }

  // Throws SourceBookmarkStoreFailure::invalidFingerprint for anything but a
  // valid fingerprint, before any file is touched.
  std::filesystem::path bookmarkFileURL(const std::string& fingerprint) const;

  // Saves a bookmark of `file` for `fingerprint`, replacing the old one
  // atomically. Throws on any failure.
  async::Task<void> save(std::filesystem::path file, std::string fingerprint);

  // Finds the file again. A stale bookmark is rewritten for the file's new
  // place (`didRefresh`). Throws when the bookmark is missing, undecodable, or
  // cannot be refreshed.
  async::Task<Resolution> resolve(std::string fingerprint);

 private:
  void saveNow(const std::filesystem::path& file, const std::string& fingerprint) const;

  std::filesystem::path publicationsRoot_;
  std::shared_ptr<SecurityScopedBookmarkCoding> codec_;
  async::SerialExecutor executor_;
};

}  // namespace tomekeeper
