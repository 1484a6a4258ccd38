#pragma once

#include <filesystem>
#include <string>

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

// Writes `contents` to `file` whole, making its directory first; a failure fails the test.
void writeFile(const std::filesystem::path& file, const std::string& contents);

}  // namespace tomekeeper::testing
