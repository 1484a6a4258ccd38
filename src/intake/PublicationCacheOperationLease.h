#pragma once

#include <filesystem>
#include <mutex>

namespace tomekeeper {

// The private work area of one cache operation, guarded by an exclusive
// `flock` on its own lock file: `.operation-<UUID>.lock` beside
// `.operation-<UUID>.partial/` in the caches root. While the lock is held no
// sweep, in this process or another, touches the work area; when the process
// dies the system drops the lock and the next sweep removes the leftovers.
// `finish` is idempotent and safe from any thread; the destructor calls it.
class PublicationCacheOperationLease {
 public:
  // Creates and locks the lock file, then the work area. `cachesRoot` must
  // exist. Throws std::system_error and leaves nothing behind on failure.
  explicit PublicationCacheOperationLease(const std::filesystem::path& cachesRoot);
  ~PublicationCacheOperationLease();
  PublicationCacheOperationLease(const PublicationCacheOperationLease&) = delete;
  PublicationCacheOperationLease& operator=(const PublicationCacheOperationLease&) = delete;

  const std::filesystem::path& operationRoot() const { return operationRoot_; }
  const std::filesystem::path& lockURL() const { return lockURL_; }

  // Removes the work area, then unlocks and closes, then removes the lock
  // file: the lock is held until the work area is gone, so a sweep never sees
  // a free lock beside a live work area. Errors are ignored.
  void finish() noexcept;

 private:
  std::filesystem::path operationRoot_;
  std::filesystem::path lockURL_;
  int descriptor_ = -1;
  std::mutex stateLock_;
  bool isFinished_ = false;
};

}  // namespace tomekeeper
