#pragma once

#include <cerrno>
#include <system_error>

#include "platform/FileSystem.h"

namespace tomekeeper {

// Owns one descriptor of `fileSystem` and closes it on every way out. A negative descriptor
// (a failed open) is held as closed. The file system must outlive the holder.
class FileDescriptor {
 public:
  FileDescriptor(FileSystem& fileSystem, int descriptor)
      : fileSystem_(fileSystem), descriptor_(descriptor) {}
  ~FileDescriptor() {
    if (descriptor_ >= 0) fileSystem_.close(descriptor_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;

  bool isOpen() const { return descriptor_ >= 0; }
  int get() const { return descriptor_; }

  // Closes now, throwing std::system_error for the failure that a deferred close would lose
  // (on some file systems a full disk is reported only here).
  void close() {
    const int descriptor = descriptor_;
    descriptor_ = -1;
    if (fileSystem_.close(descriptor) != 0) {
      throw std::system_error(errno, std::generic_category(), "close");
    }
  }

 private:
  FileSystem& fileSystem_;
  int descriptor_;
};

}  // namespace tomekeeper
