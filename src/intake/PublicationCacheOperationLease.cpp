#include "intake/PublicationCacheOperationLease.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "model/Uuid.h"

namespace tomekeeper {
namespace {

[[noreturn]] void throwError(int code, const char* what) {
  throw std::system_error(code != 0 ? code : EIO, std::generic_category(), what);
}

}  // namespace

PublicationCacheOperationLease::PublicationCacheOperationLease(
    const std::filesystem::path& cachesRoot) {
  const std::string name = ".operation-" + Uuid::random().string();
  lockURL_ = cachesRoot / (name + ".lock");
  operationRoot_ = cachesRoot / (name + ".partial");

  const int created = ::open(lockURL_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
  if (created < 0) throwError(errno, "create operation lock file");
  ::close(created);

  descriptor_ = ::open(lockURL_.c_str(), O_RDWR | O_CLOEXEC);
  if (descriptor_ < 0) {
    const int code = errno;
    ::unlink(lockURL_.c_str());
    throwError(code, "open operation lock file");
  }
  // The name is fresh, so nobody else can hold it; no waiting.
  if (::flock(descriptor_, LOCK_EX | LOCK_NB) != 0) {
    const int code = errno;
    ::close(descriptor_);
    ::unlink(lockURL_.c_str());
    throwError(code, "lock operation lock file");
  }
  if (::mkdir(operationRoot_.c_str(), 0777) != 0) {
    const int code = errno;
    ::flock(descriptor_, LOCK_UN);
    ::close(descriptor_);
    ::unlink(lockURL_.c_str());
    throwError(code, "create operation directory");
  }
}

PublicationCacheOperationLease::~PublicationCacheOperationLease() {
  finish();
}

void PublicationCacheOperationLease::finish() noexcept {
  {
    std::lock_guard guard(stateLock_);
    if (isFinished_) return;
    isFinished_ = true;
  }
  std::error_code ignored;
  std::filesystem::remove_all(operationRoot_, ignored);
  ::flock(descriptor_, LOCK_UN);
  ::close(descriptor_);
  ::unlink(lockURL_.c_str());
}

}  // namespace tomekeeper
