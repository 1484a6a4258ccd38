#pragma once

#include <filesystem>

namespace tomekeeper::testing {

// A fresh directory under the system's temporary directory, removed with
// everything in it when the object goes away.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const std::filesystem::path& relative) const {
    return path_ / relative;
  }

 private:
  std::filesystem::path path_;
};

}  // namespace tomekeeper::testing
