#include "intake/FileOperations.h"

#include <sys/stat.h>

#include <cerrno>

#include "platform/FileSystem.h"

namespace tomekeeper {

void moveWithoutReplacing(const std::filesystem::path& from, const std::filesystem::path& to,
                          std::error_code& error) noexcept {
  error.clear();
  FileSystem& fileSystem = FileSystem::current();
  if (fileSystem.renameWithoutReplacing(from, to) == 0) return;
  if (errno != EINVAL && errno != ENOSYS) {
    error.assign(errno, std::generic_category());
    return;
  }
  // The file system does not know the flag (NFS, ecryptfs). A plain rename replaces only an
  // empty directory and fails on anything else, so checking for `to` first leaves one window:
  // an empty directory made there in between. A committed extraction is never empty, so what
  // matters holds: nothing is ever moved over an existing extraction.
  struct stat status {};
  if (::lstat(to.c_str(), &status) == 0) {
    error.assign(EEXIST, std::generic_category());
    return;
  }
  if (fileSystem.rename(from, to) != 0) {
    error.assign(errno == ENOTEMPTY ? EEXIST : errno, std::generic_category());
  }
}

std::filesystem::path standardised(const std::filesystem::path& path) {
  std::filesystem::path normal = std::filesystem::absolute(path).lexically_normal();
  if (!normal.has_filename() && normal.has_parent_path() && normal != normal.root_path()) {
    normal = normal.parent_path();
  }
  return normal;
}

}  // namespace tomekeeper
