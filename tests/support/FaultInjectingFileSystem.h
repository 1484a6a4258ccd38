#pragma once

#include <cerrno>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/FileSystem.h"

namespace tomekeeper::testing {

// The calls of FileSystem that a fault can be put on.
enum class FileOperation {
  open,
  makeTemporaryFile,
  makeDirectory,
  read,
  write,
  changeMode,
  synchronize,
  synchronizeFileSystem,
  close,
  rename,
  renameWithoutReplacing,
  unlink,
};

// One planned failure: the call `operation` fails with `error` once `skip` matching calls have
// gone through, and every matching call after that fails too (a full disk stays full). A call
// matches when the path it works on (for calls on a descriptor, the path the descriptor was
// opened with) contains `pathContains`.
struct FileFault {
  FileOperation operation;
  int error;
  std::string pathContains;
  int skip = 0;
};

// The kernel's file system with faults put on chosen calls, installed for its lifetime in place
// of the process's file system. Records every call that failed by a fault. Thread-safe.
class FaultInjectingFileSystem final : public FileSystem {
 public:
  explicit FaultInjectingFileSystem(std::vector<FileFault> faults = {});
  ~FaultInjectingFileSystem() override;

  void addFault(FileFault fault);
  // Called before every call, with its operation and the path it works on, on the calling
  // thread: a test can make something happen at an exact point of the work.
  std::function<void(FileOperation operation, const std::string& path)> beforeCall;
  // How many calls failed by a fault so far.
  int injectedFailures() const;

  int open(const std::filesystem::path& path, int flags, mode_t mode) override;
  int makeTemporaryFile(std::string& pattern) override;
  int makeDirectory(const std::filesystem::path& path, mode_t mode) override;
  ssize_t read(int descriptor, void* buffer, size_t count) override;
  ssize_t write(int descriptor, const void* bytes, size_t count) override;
  int changeMode(int descriptor, mode_t mode) override;
  int synchronize(int descriptor) override;
  int synchronizeFileSystem(int descriptor) override;
  int close(int descriptor) override;
  int rename(const std::filesystem::path& from, const std::filesystem::path& to) override;
  int renameWithoutReplacing(const std::filesystem::path& from,
                             const std::filesystem::path& to) override;
  int unlink(const std::filesystem::path& path) override;

 private:
  // The errno to fail with, when a fault applies to this call.
  std::optional<int> takeFault(FileOperation operation, const std::string& path);
  std::optional<int> takeFault(FileOperation operation, int descriptor);
  void remember(int descriptor, const std::filesystem::path& path);
  // Fails the call with the planned errno, or makes it.
  template <typename Subject, typename Call>
  auto failOrCall(FileOperation operation, const Subject& subject, Call call) {
    if (const std::optional<int> fault = takeFault(operation, subject)) {
      errno = *fault;
      return decltype(call())(-1);
    }
    return call();
  }

  FileSystem& kernel_;
  mutable std::mutex mutex_;
  struct PlannedFault {
    FileFault fault;
    int seen = 0;
  };
  std::vector<PlannedFault> faults_;
  std::map<int, std::string> openPaths_;
  int injectedFailures_ = 0;
  ScopedFileSystem installation_;
};

}  // namespace tomekeeper::testing
