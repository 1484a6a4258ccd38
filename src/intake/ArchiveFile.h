#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>

namespace tomekeeper {

// A read-only archive file as the inspector and the extractor see it: the seam
// through which tests hand in a truncated file or a read that fails half way.
// One instance is used by one thread at a time; it closes itself when
// destroyed, ignoring any error of the close.
class ArchiveFile {
 public:
  virtual ~ArchiveFile() = default;

  // Moves to the end and returns the position there, the file's size.
  // Throws std::system_error.
  virtual std::uint64_t seekToEnd() = 0;
  // Throws std::system_error.
  virtual void seek(std::uint64_t offset) = 0;
  // Reads up to `into.size()` bytes from the current position and returns how
  // many it read; fewer only at the end of the file, 0 there. Throws
  // std::system_error when the system reports a read error.
  virtual std::size_t read(std::span<std::uint8_t> into) = 0;
};

// Opens archive files. Shared by value-type readers; implementations must be
// safe to call from several threads at once.
class ArchiveFileOpening {
 public:
  virtual ~ArchiveFileOpening() = default;
  // Throws std::system_error when the file cannot be opened for reading.
  virtual std::unique_ptr<ArchiveFile> open(const std::filesystem::path& path) const = 0;

  // The real file system: POSIX descriptors opened with O_CLOEXEC.
  static std::shared_ptr<const ArchiveFileOpening> fileSystem();
};

// An archive held in memory, for fuzzing and for tests that need no file.
class MemoryArchiveFile final : public ArchiveFile {
 public:
  explicit MemoryArchiveFile(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}
  std::uint64_t seekToEnd() override;
  void seek(std::uint64_t offset) override;
  std::size_t read(std::span<std::uint8_t> into) override;

 private:
  std::span<const std::uint8_t> bytes_;
  std::uint64_t position_ = 0;
};

}  // namespace tomekeeper
