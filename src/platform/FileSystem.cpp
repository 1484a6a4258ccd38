#include "platform/FileSystem.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

namespace tomekeeper {

namespace {

class KernelFileSystem final : public FileSystem {
 public:
  int open(const std::filesystem::path& path, int flags, mode_t mode) override {
    return ::open(path.c_str(), flags, mode);
  }
  int makeTemporaryFile(std::string& pattern) override {
    return ::mkostemp(pattern.data(), O_CLOEXEC);
  }
  int makeDirectory(const std::filesystem::path& path, mode_t mode) override {
    return ::mkdir(path.c_str(), mode);
  }
  ssize_t read(int descriptor, void* buffer, size_t count) override {
    return ::read(descriptor, buffer, count);
  }
  ssize_t write(int descriptor, const void* bytes, size_t count) override {
    return ::write(descriptor, bytes, count);
  }
  int changeMode(int descriptor, mode_t mode) override { return ::fchmod(descriptor, mode); }
  int synchronize(int descriptor) override { return ::fsync(descriptor); }
  int synchronizeFileSystem(int descriptor) override { return ::syncfs(descriptor); }
  int close(int descriptor) override { return ::close(descriptor); }
  int rename(const std::filesystem::path& from, const std::filesystem::path& to) override {
    return ::rename(from.c_str(), to.c_str());
  }
  int renameWithoutReplacing(const std::filesystem::path& from,
                             const std::filesystem::path& to) override {
    return ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE);
  }
  int unlink(const std::filesystem::path& path) override { return ::unlink(path.c_str()); }
};

// Null until a test replaces it: constant-initialised, so it is valid for static initialisers.
std::atomic<FileSystem*> currentFileSystem{nullptr};

}  // namespace

FileSystem& FileSystem::standard() {
  static KernelFileSystem kernel;
  return kernel;
}

FileSystem& FileSystem::current() {
  FileSystem* replacement = currentFileSystem.load(std::memory_order_acquire);
  return replacement != nullptr ? *replacement : standard();
}

ScopedFileSystem::ScopedFileSystem(FileSystem& replacement)
    : previous_(currentFileSystem.exchange(&replacement, std::memory_order_acq_rel)) {}

ScopedFileSystem::~ScopedFileSystem() {
  currentFileSystem.store(previous_, std::memory_order_release);
}

}  // namespace tomekeeper
