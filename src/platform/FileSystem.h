#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

namespace tomekeeper {

// The system calls through which the atomic writer, the stores and the extractor reach the
// disk. Each has the contract of the call it is named after: it returns what that call returns
// and, on failure, leaves errno set as that call would. Paths are passed whole.
//
// The process uses one file system at a time, `FileSystem::current()`: the kernel's unless a
// test has put another in its place with ScopedFileSystem. Tests use that to fail a chosen call
// with a chosen errno (a full disk half-way through a write, a failing fsync, a permission that
// root would ignore), which no real disk does on demand. Implementations must be safe to call
// from any thread: stores and extractions run on background threads.
class FileSystem {
 public:
  virtual ~FileSystem() = default;

  virtual int open(const std::filesystem::path& path, int flags, mode_t mode) = 0;
  // mkostemp(3) with O_CLOEXEC: `pattern` ends in "XXXXXX", which is replaced in place.
  virtual int makeTemporaryFile(std::string& pattern) = 0;
  virtual int makeDirectory(const std::filesystem::path& path, mode_t mode) = 0;
  virtual ssize_t read(int descriptor, void* buffer, size_t count) = 0;
  virtual ssize_t write(int descriptor, const void* bytes, size_t count) = 0;
  virtual int changeMode(int descriptor, mode_t mode) = 0;
  // fsync(2) of one file, and syncfs(2) of the file system that holds `descriptor`.
  virtual int synchronize(int descriptor) = 0;
  virtual int synchronizeFileSystem(int descriptor) = 0;
  virtual int close(int descriptor) = 0;
  virtual int rename(const std::filesystem::path& from, const std::filesystem::path& to) = 0;
  // renameat2(2) with RENAME_NOREPLACE. File systems that do not know the flag (NFS, ecryptfs)
  // fail with EINVAL; see moveWithoutReplacing for what callers do then.
  virtual int renameWithoutReplacing(const std::filesystem::path& from,
                                     const std::filesystem::path& to) = 0;
  virtual int unlink(const std::filesystem::path& path) = 0;

  // The kernel's file system; lives for the whole process.
  static FileSystem& standard();
  // The file system in use now.
  static FileSystem& current();
};

// Puts `replacement` in place of the current file system for the holder's lifetime, then puts
// back what was there. For tests: make it while no operation is under way, and keep
// `replacement` alive until the holder is gone. Holders nest.
class ScopedFileSystem {
 public:
  explicit ScopedFileSystem(FileSystem& replacement);
  ~ScopedFileSystem();
  ScopedFileSystem(const ScopedFileSystem&) = delete;
  ScopedFileSystem& operator=(const ScopedFileSystem&) = delete;

 private:
  FileSystem* previous_;
};

}  // namespace tomekeeper
