#include "support/FaultInjectingFileSystem.h"

#include <cerrno>

namespace tomekeeper::testing {

FaultInjectingFileSystem::FaultInjectingFileSystem(std::vector<FileFault> faults)
    : kernel_(FileSystem::standard()), installation_(*this) {
  for (FileFault& fault : faults) addFault(std::move(fault));
}

FaultInjectingFileSystem::~FaultInjectingFileSystem() = default;

void FaultInjectingFileSystem::addFault(FileFault fault) {
  std::lock_guard lock(mutex_);
  faults_.push_back({std::move(fault)});
}

int FaultInjectingFileSystem::injectedFailures() const {
  std::lock_guard lock(mutex_);
  return injectedFailures_;
}

std::optional<int> FaultInjectingFileSystem::takeFault(FileOperation operation,
                                                       const std::string& path) {
  if (beforeCall) beforeCall(operation, path);
  std::lock_guard lock(mutex_);
  for (PlannedFault& planned : faults_) {
    if (planned.fault.operation != operation) continue;
    if (path.find(planned.fault.pathContains) == std::string::npos) continue;
    if (planned.seen++ < planned.fault.skip) continue;
    ++injectedFailures_;
    return planned.fault.error;
  }
  return std::nullopt;
}

std::optional<int> FaultInjectingFileSystem::takeFault(FileOperation operation, int descriptor) {
  std::string path;
  {
    std::lock_guard lock(mutex_);
    if (const auto found = openPaths_.find(descriptor); found != openPaths_.end()) {
      path = found->second;
    }
  }
  return takeFault(operation, path);
}

void FaultInjectingFileSystem::remember(int descriptor, const std::filesystem::path& path) {
  if (descriptor < 0) return;
  std::lock_guard lock(mutex_);
  openPaths_[descriptor] = path.string();
}

int FaultInjectingFileSystem::open(const std::filesystem::path& path, int flags, mode_t mode) {
  const int descriptor = failOrCall(FileOperation::open, path.string(),
                                    [&] { return kernel_.open(path, flags, mode); });
  remember(descriptor, path);
  return descriptor;
}

int FaultInjectingFileSystem::makeTemporaryFile(std::string& pattern) {
  const int descriptor = failOrCall(FileOperation::makeTemporaryFile, pattern,
                                    [&] { return kernel_.makeTemporaryFile(pattern); });
  remember(descriptor, pattern);
  return descriptor;
}

int FaultInjectingFileSystem::makeDirectory(const std::filesystem::path& path, mode_t mode) {
  return failOrCall(FileOperation::makeDirectory, path.string(),
                    [&] { return kernel_.makeDirectory(path, mode); });
}

ssize_t FaultInjectingFileSystem::read(int descriptor, void* buffer, size_t count) {
  return failOrCall(FileOperation::read, descriptor,
                    [&] { return kernel_.read(descriptor, buffer, count); });
}

ssize_t FaultInjectingFileSystem::write(int descriptor, const void* bytes, size_t count) {
  return failOrCall(FileOperation::write, descriptor,
                    [&] { return kernel_.write(descriptor, bytes, count); });
}

int FaultInjectingFileSystem::changeMode(int descriptor, mode_t mode) {
  return failOrCall(FileOperation::changeMode, descriptor,
                    [&] { return kernel_.changeMode(descriptor, mode); });
}

int FaultInjectingFileSystem::synchronize(int descriptor) {
  return failOrCall(FileOperation::synchronize, descriptor,
                    [&] { return kernel_.synchronize(descriptor); });
}

int FaultInjectingFileSystem::synchronizeFileSystem(int descriptor) {
  return failOrCall(FileOperation::synchronizeFileSystem, descriptor,
                    [&] { return kernel_.synchronizeFileSystem(descriptor); });
}

int FaultInjectingFileSystem::close(int descriptor) {
  std::optional<int> fault = takeFault(FileOperation::close, descriptor);
  {
    std::lock_guard lock(mutex_);
    openPaths_.erase(descriptor);
  }
  // A close that fails still releases the descriptor, as the kernel's does.
  const int result = kernel_.close(descriptor);
  if (fault) {
    errno = *fault;
    return -1;
  }
  return result;
}

int FaultInjectingFileSystem::rename(const std::filesystem::path& from,
                                     const std::filesystem::path& to) {
  return failOrCall(FileOperation::rename, to.string(), [&] { return kernel_.rename(from, to); });
}

int FaultInjectingFileSystem::renameWithoutReplacing(const std::filesystem::path& from,
                                                     const std::filesystem::path& to) {
  return failOrCall(FileOperation::renameWithoutReplacing, to.string(),
                    [&] { return kernel_.renameWithoutReplacing(from, to); });
}

int FaultInjectingFileSystem::unlink(const std::filesystem::path& path) {
  return failOrCall(FileOperation::unlink, path.string(), [&] { return kernel_.unlink(path); });
}

}  // namespace tomekeeper::testing
