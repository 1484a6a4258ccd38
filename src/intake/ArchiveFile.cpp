#include "intake/ArchiveFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace tomekeeper {
namespace {

[[noreturn]] void throwSystemError(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

class DescriptorArchiveFile final : public ArchiveFile {
 public:
  explicit DescriptorArchiveFile(int descriptor) : descriptor_(descriptor) {}
  ~DescriptorArchiveFile() override { ::close(descriptor_); }
  DescriptorArchiveFile(const DescriptorArchiveFile&) = delete;
  DescriptorArchiveFile& operator=(const DescriptorArchiveFile&) = delete;

  std::uint64_t seekToEnd() override {
    const off_t end = ::lseek(descriptor_, 0, SEEK_END);
    if (end < 0) throwSystemError("seek to end");
    return static_cast<std::uint64_t>(end);
  }

  void seek(std::uint64_t offset) override {
    if (offset > static_cast<std::uint64_t>(INT64_MAX)) {
      throw std::system_error(EINVAL, std::generic_category(), "seek");
    }
    if (::lseek(descriptor_, static_cast<off_t>(offset), SEEK_SET) < 0) throwSystemError("seek");
  }

  std::size_t read(std::span<std::uint8_t> into) override {
    std::size_t total = 0;
    while (total < into.size()) {
      const ssize_t count = ::read(descriptor_, into.data() + total, into.size() - total);
      if (count < 0) {
        if (errno == EINTR) continue;
        throwSystemError("read");
      }
      if (count == 0) break;
      total += static_cast<std::size_t>(count);
    }
    return total;
  }

 private:
  int descriptor_;
};

class FileSystemArchiveFileOpening final : public ArchiveFileOpening {
 public:
  std::unique_ptr<ArchiveFile> open(const std::filesystem::path& path) const override {
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) throwSystemError("open");
    return std::make_unique<DescriptorArchiveFile>(descriptor);
  }
};

}  // namespace

std::shared_ptr<const ArchiveFileOpening> ArchiveFileOpening::fileSystem() {
  static const auto shared = std::make_shared<const FileSystemArchiveFileOpening>();
  return shared;
}

std::uint64_t MemoryArchiveFile::seekToEnd() {
  position_ = bytes_.size();
  return position_;
}

void MemoryArchiveFile::seek(std::uint64_t offset) {
  position_ = offset;
}

std::size_t MemoryArchiveFile::read(std::span<std::uint8_t> into) {
  if (into.empty() || position_ >= bytes_.size()) return 0;
  const std::size_t count =
      std::min<std::uint64_t>(into.size(), bytes_.size() - static_cast<std::size_t>(position_));
  std::memcpy(into.data(), bytes_.data() + position_, count);
  position_ += count;
  return count;
}

}  // namespace tomekeeper
