#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>

#include <stdexcept>
#include <string>
#include <system_error>

namespace tomekeeper::testing {

TemporaryDirectory::TemporaryDirectory() {
  std::string pattern =
      (std::filesystem::temp_directory_path() / "tomekeeper-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  // Tests may leave read-only directories behind; make them writable first.
  for (auto it = std::filesystem::recursive_directory_iterator(path_, ignored);
       it != std::filesystem::recursive_directory_iterator(); it.increment(ignored)) {
    if (it->is_directory(ignored) && !it->is_symlink(ignored)) {
      std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                   std::filesystem::perm_options::add, ignored);
    }
  }
  std::filesystem::remove_all(path_, ignored);
}

void writeFile(const std::filesystem::path& file, const std::string& contents) {
  std::filesystem::create_directories(file.parent_path());
  std::ofstream stream(file, std::ios::binary | std::ios::trunc);
  stream << contents;
  ASSERT_TRUE(stream.good()) << "cannot write " << file;
}

}  // namespace tomekeeper::testing
