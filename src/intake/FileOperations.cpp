#include "intake/FileOperations.h"

#include <fcntl.h>
#include <stdio.h>

#include <cerrno>

namespace tomekeeper {

void moveWithoutReplacing(const std::filesystem::path& from, const std::filesystem::path& to,
                          std::error_code& error) noexcept {
  error.clear();
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) != 0) {
    error.assign(errno, std::generic_category());
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
