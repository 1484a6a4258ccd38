#include "intake/EPUBArchiveExtractor.h"

#include <fcntl.h>
#include <zlib.h>

#include <cerrno>
#include <system_error>
#include <vector>

#include "async/OperationCancelled.h"
#include "async/Task.h"
#include "intake/FileOperations.h"
#include "intake/IntakeFailures.h"
#include "intake/ZipCRC32.h"
#include "model/Uuid.h"
#include "platform/FileDescriptor.h"
#include "platform/FileSystem.h"

namespace tomekeeper {
namespace {

namespace fs = std::filesystem;
using ExtractionFailure = EPUBArchiveExtractionFailure;

[[noreturn]] void fail(ExtractionFailure failure) {
  throw EPUBArchiveExtractionFailureError(failure);
}

// One output file, closed on destruction when the normal close did not happen.
class OutputFile {
 public:
  OutputFile(FileSystem& fileSystem, const fs::path& path)
      : fileSystem_(fileSystem),
        file_(fileSystem,
              fileSystem.open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0666)) {
    if (!file_.isOpen()) fail(ExtractionFailure::cannotCreateOutput);
  }

  void write(const std::uint8_t* bytes, std::size_t count) {
    while (count > 0) {
      const ssize_t written = fileSystem_.write(file_.get(), bytes, count);
      if (written < 0) {
        if (errno == EINTR) continue;
        fail(ExtractionFailure::cannotCreateOutput);
      }
      bytes += written;
      count -= static_cast<std::size_t>(written);
    }
  }

  // Flushes to stable storage when asked to, then closes.
  void close(EPUBArchiveExtractor::Durability durability) {
    const bool synchronized = durability != EPUBArchiveExtractor::Durability::synchronizeEachFile ||
                              fileSystem_.synchronize(file_.get()) == 0;
    try {
      file_.close();
    } catch (const std::system_error&) {
      fail(ExtractionFailure::cannotCreateOutput);
    }
    if (!synchronized) fail(ExtractionFailure::cannotCreateOutput);
  }

 private:
  FileSystem& fileSystem_;
  FileDescriptor file_;
};

// Size and CRC of the bytes produced for one entry, checked before each write
// so that a surplus byte never reaches the disk.
class Verification {
 public:
  explicit Verification(const EPUBArchiveEntry& entry)
      : expectedSize_(entry.uncompressedSize), expectedCRC_(entry.crc32) {}

  void accept(const std::uint8_t* bytes, std::size_t count, OutputFile& output) {
    const std::uint64_t written = bytesWritten_ + count;
    if (written < bytesWritten_ || written > expectedSize_) fail(ExtractionFailure::sizeMismatch);
    bytesWritten_ = written;
    crc_ = ZipCRC32::update(crc_, std::span(bytes, count));
    output.write(bytes, count);
  }

  void finish() const {
    if (bytesWritten_ != expectedSize_) fail(ExtractionFailure::sizeMismatch);
    if (ZipCRC32::finish(crc_) != expectedCRC_) fail(ExtractionFailure::checksumMismatch);
  }

 private:
  std::uint64_t expectedSize_;
  std::uint32_t expectedCRC_;
  std::uint64_t bytesWritten_ = 0;
  std::uint32_t crc_ = ZipCRC32::kInitialState;
};

// The fixed buffers of one extraction.
struct Buffers {
  std::vector<std::uint8_t> input;
  std::vector<std::uint8_t> output;
};

// Reads exactly `count` bytes; anything less, or a read error, is unreadableArchive.
void readBlock(ArchiveFile& archive, std::uint8_t* into, std::size_t count) {
  std::size_t read = 0;
  try {
    read = archive.read(std::span(into, count));
  } catch (const std::system_error&) {
    fail(ExtractionFailure::unreadableArchive);
  }
  if (read == 0 || read < count) fail(ExtractionFailure::unreadableArchive);
}

void copyStored(ArchiveFile& archive, const EPUBArchiveEntry& entry, Buffers& buffers,
                Verification& verification, OutputFile& output, const std::stop_token& stopToken) {
  std::uint64_t remaining = entry.compressedSize;
  while (remaining != 0) {
    async::throwIfCancelled(stopToken);
    const std::size_t count =
        static_cast<std::size_t>(std::min<std::uint64_t>(remaining, buffers.input.size()));
    readBlock(archive, buffers.input.data(), count);
    verification.accept(buffers.input.data(), count, output);
    remaining -= count;
  }
}

// Owns a raw-deflate decoder for one entry; destroyed on every path.
class Decoder {
 public:
  Decoder() {
    if (inflateInit2(&stream_, -15) != Z_OK) fail(ExtractionFailure::decompressionFailed);
  }
  ~Decoder() { inflateEnd(&stream_); }
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;
  z_stream& stream() { return stream_; }

 private:
  z_stream stream_{};
};

void inflateEntry(ArchiveFile& archive, const EPUBArchiveEntry& entry, Buffers& buffers,
                  Verification& verification, OutputFile& output,
                  const std::stop_token& stopToken) {
  Decoder decoder;
  z_stream& stream = decoder.stream();
  if (entry.compressedSize == 0) fail(ExtractionFailure::decompressionFailed);

  std::uint64_t remaining = entry.compressedSize;
  bool ended = false;
  while (remaining != 0 && !ended) {
    async::throwIfCancelled(stopToken);
    const std::size_t count =
        static_cast<std::size_t>(std::min<std::uint64_t>(remaining, buffers.input.size()));
    readBlock(archive, buffers.input.data(), count);
    remaining -= count;
    const bool lastBlock = remaining == 0;
    stream.next_in = buffers.input.data();
    stream.avail_in = static_cast<uInt>(count);

    while (true) {
      stream.next_out = buffers.output.data();
      stream.avail_out = static_cast<uInt>(buffers.output.size());
      const int status = inflate(&stream, Z_NO_FLUSH);
      const std::size_t produced = buffers.output.size() - stream.avail_out;
      if (produced > 0) verification.accept(buffers.output.data(), produced, output);
      if (status == Z_STREAM_END) {
        ended = true;
        break;
      }
      // Z_BUF_ERROR only says that no progress was possible: the stall test below decides.
      if (status != Z_OK && status != Z_BUF_ERROR) fail(ExtractionFailure::decompressionFailed);
      if (remaining == 0 && stream.avail_in == 0 && produced == 0) {
        fail(ExtractionFailure::decompressionFailed);
      }
      if (lastBlock) continue;
      if (stream.avail_in == 0) break;
    }
  }
  // Bytes left in the file or in the decoder behind the stream's end are
  // trailing data, and a stream that did not end ran short.
  if (!ended || remaining != 0 || stream.avail_in != 0)
    fail(ExtractionFailure::decompressionFailed);
}

void extractEntry(ArchiveFile& archive, const EPUBArchiveEntry& entry, const fs::path& staging,
                  const std::string& stagingPrefix, Buffers& buffers,
                  EPUBArchiveExtractor::Durability durability, const std::stop_token& stopToken) {
  async::throwIfCancelled(stopToken);
  // A second check, independent of the inspector's, on the real path.
  const fs::path outputPath = (staging / entry.path).lexically_normal();
  if (!outputPath.native().starts_with(stagingPrefix))
    fail(ExtractionFailure::invalidEntryMetadata);

  std::error_code error;
  if (entry.isDirectory) {
    fs::create_directories(outputPath, error);
    if (error) fail(ExtractionFailure::cannotCreateOutput);
    return;
  }
  fs::create_directories(outputPath.parent_path(), error);
  if (error) fail(ExtractionFailure::cannotCreateOutput);
  OutputFile output(FileSystem::current(), outputPath);

  archive.seek(entry.localDataOffset);
  Verification verification(entry);
  switch (entry.compressionMethod) {
    case 0:
      copyStored(archive, entry, buffers, verification, output, stopToken);
      break;
    case 8:
      inflateEntry(archive, entry, buffers, verification, output, stopToken);
      break;
    default:
      fail(ExtractionFailure::invalidEntryMetadata);
  }
  verification.finish();
  output.close(durability);
}

// Everything written under `staging` goes to stable storage.
void synchronizeFileSystemOf(const fs::path& staging) {
  FileSystem& fileSystem = FileSystem::current();
  FileDescriptor directory(fileSystem,
                           fileSystem.open(staging, O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0));
  if (!directory.isOpen() || fileSystem.synchronizeFileSystem(directory.get()) != 0) {
    fail(ExtractionFailure::cannotCreateOutput);
  }
}

}  // namespace

EPUBArchiveExtractor::EPUBArchiveExtractor(std::int64_t bufferSize,
                                           std::shared_ptr<const ArchiveFileOpening> files,
                                           Durability durability)
    : bufferSize_(bufferSize), files_(std::move(files)), durability_(durability) {}

ExtractedPublication EPUBArchiveExtractor::extract(const fs::path& archivePath,
                                                   const EPUBArchiveInspection& inspection,
                                                   const fs::path& destination,
                                                   const std::stop_token& stopToken) const {
  const fs::path target = standardised(destination);
  std::error_code error;
  if (fs::exists(fs::symlink_status(target, error))) fail(ExtractionFailure::destinationExists);

  const fs::path parent = target.parent_path();
  fs::create_directories(parent);

  const fs::path staging = parent / (".extract-" + Uuid::random().string() + ".partial");
  if (FileSystem::current().makeDirectory(staging, 0777) != 0) {
    fail(ExtractionFailure::cannotCreateOutput);
  }

  try {
    std::unique_ptr<ArchiveFile> archive;
    try {
      archive = files_->open(archivePath);
    } catch (const std::system_error&) {
      fail(ExtractionFailure::unreadableArchive);
    }

    const auto bufferLength = static_cast<std::size_t>(bufferSize_);
    Buffers buffers{std::vector<std::uint8_t>(bufferLength),
                    std::vector<std::uint8_t>(bufferLength)};
    const std::string stagingPrefix = staging.native() + "/";
    for (const EPUBArchiveEntry& entry : inspection.entries) {
      extractEntry(*archive, entry, staging, stagingPrefix, buffers, durability_, stopToken);
    }
    if (durability_ == Durability::synchronizeOnceBeforeCommit) synchronizeFileSystemOf(staging);

    async::throwIfCancelled(stopToken);
    moveWithoutReplacing(staging, target, error);
    if (error) fail(ExtractionFailure::commitFailed);
  } catch (...) {
    fs::remove_all(staging, error);
    throw;
  }
  fs::remove_all(staging, error);
  return ExtractedPublication{destination, static_cast<std::int64_t>(inspection.entries.size()),
                              inspection.totalUncompressedSize};
}

}  // namespace tomekeeper
