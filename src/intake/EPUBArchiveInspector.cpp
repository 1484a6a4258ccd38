#include "intake/EPUBArchiveInspector.h"

#include <algorithm>
#include <span>
#include <string_view>
#include <system_error>
#include <unordered_set>
#include <vector>

#include "async/BackgroundPool.h"
#include "intake/ArchivePath.h"
#include "intake/IntakeFailures.h"
#include "intake/LocalHeader.h"

namespace tomekeeper {
namespace {

constexpr std::uint64_t kEndRecordSize = 22;
constexpr std::uint64_t kLargestTail = kEndRecordSize + 0xFFFF;
constexpr std::uint64_t kCentralRecordSize = 46;
constexpr std::uint32_t kEndRecordSignature = 0x06054b50;
constexpr std::uint32_t kCentralRecordSignature = 0x02014b50;
constexpr std::uint16_t kZIP64Count = 0xFFFF;
constexpr std::uint32_t kZIP64Value = 0xFFFFFFFF;

[[noreturn]] void fail(EPUBArchiveInspectionFailure failure) {
  throw EPUBArchiveInspectionFailureError(failure);
}

// Little-endian field reads that refuse to leave the bytes they were given.
class FieldReader {
 public:
  explicit FieldReader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  std::uint16_t read16(std::uint64_t offset) const {
    require(offset, 2);
    return static_cast<std::uint16_t>(bytes_[offset] | (bytes_[offset + 1] << 8));
  }
  std::uint32_t read32(std::uint64_t offset) const {
    require(offset, 4);
    return static_cast<std::uint32_t>(bytes_[offset]) |
           (static_cast<std::uint32_t>(bytes_[offset + 1]) << 8) |
           (static_cast<std::uint32_t>(bytes_[offset + 2]) << 16) |
           (static_cast<std::uint32_t>(bytes_[offset + 3]) << 24);
  }
  std::span<const std::uint8_t> slice(std::uint64_t offset, std::uint64_t length) const {
    require(offset, length);
    return bytes_.subspan(offset, length);
  }

 private:
  void require(std::uint64_t offset, std::uint64_t length) const {
    if (offset > bytes_.size() || length > bytes_.size() - offset) {
      fail(EPUBArchiveInspectionFailure::malformedArchive);
    }
  }
  std::span<const std::uint8_t> bytes_;
};

struct EndRecord {
  std::uint32_t totalEntries = 0;
  std::uint64_t centralDirectorySize = 0;
  std::uint64_t centralDirectoryOffset = 0;
  std::uint64_t fileSize = 0;
  // The last bytes of the file, from which the record was read.
  std::vector<std::uint8_t> tail;
};

std::vector<std::uint8_t> readExactly(ArchiveFile& file, std::uint64_t offset,
                                      std::uint64_t length) {
  file.seek(offset);
  std::vector<std::uint8_t> bytes(length);
  bytes.resize(file.read(bytes));
  return bytes;
}

EndRecord readEndRecord(ArchiveFile& file, const EPUBArchiveInspector& inspector) {
  const std::uint64_t fileSize = file.seekToEnd();
  if (fileSize < kEndRecordSize) fail(EPUBArchiveInspectionFailure::malformedArchive);

  const std::uint64_t tailLength = std::min(fileSize, kLargestTail);
  const std::vector<std::uint8_t> tail = readExactly(file, fileSize - tailLength, tailLength);
  if (tail.empty()) fail(EPUBArchiveInspectionFailure::malformedArchive);
  const FieldReader reader(tail);

  // The first record from the end whose comment reaches exactly to the end of
  // the file wins; a signature inside a comment does not.
  std::optional<std::uint64_t> found;
  for (std::uint64_t candidate = tailLength - kEndRecordSize + 1; candidate-- > 0;) {
    if (reader.read32(candidate) != kEndRecordSignature) continue;
    if (candidate + kEndRecordSize + reader.read16(candidate + 20) == tail.size()) {
      found = candidate;
      break;
    }
  }
  if (!found) fail(EPUBArchiveInspectionFailure::malformedArchive);
  const std::uint64_t record = *found;

  const std::uint16_t diskNumber = reader.read16(record + 4);
  const std::uint16_t centralDirectoryDisk = reader.read16(record + 6);
  const std::uint16_t entriesOnDisk = reader.read16(record + 8);
  const std::uint16_t totalEntries = reader.read16(record + 10);
  const std::uint32_t size = reader.read32(record + 12);
  const std::uint32_t offset = reader.read32(record + 16);
  const std::uint16_t commentLength = reader.read16(record + 20);

  if (diskNumber != 0 || centralDirectoryDisk != 0 || entriesOnDisk != totalEntries) {
    fail(EPUBArchiveInspectionFailure::malformedArchive);
  }
  if (record + kEndRecordSize + commentLength != tail.size()) {
    fail(EPUBArchiveInspectionFailure::malformedArchive);
  }
  if (entriesOnDisk == kZIP64Count || size == kZIP64Value || offset == kZIP64Value) {
    fail(EPUBArchiveInspectionFailure::unsupportedZIP64);
  }
  if (static_cast<std::int64_t>(totalEntries) > inspector.maximumEntryCount()) {
    fail(EPUBArchiveInspectionFailure::tooManyEntries);
  }
  if (size > inspector.maximumCentralDirectorySize()) {
    fail(EPUBArchiveInspectionFailure::centralDirectoryTooLarge);
  }
  if (std::uint64_t{offset} + size > fileSize) fail(EPUBArchiveInspectionFailure::malformedArchive);
  return EndRecord{totalEntries, size, offset, fileSize, tail};
}

// The three sets of folded paths of one walk.
struct SeenPaths {
  std::unordered_set<std::string> seenPaths;
  std::unordered_set<std::string> directoryPaths;
  std::unordered_set<std::string> filePaths;

  void insert(const std::string& folded, ArchiveEntryKind kind) {
    if (!seenPaths.insert(folded).second) fail(EPUBArchiveInspectionFailure::conflictingPath);
    // Every parent is a directory, so none of them may be a file.
    for (std::size_t slash = folded.find('/'); slash != std::string::npos;
         slash = folded.find('/', slash + 1)) {
      std::string parent = folded.substr(0, slash);
      if (filePaths.contains(parent)) fail(EPUBArchiveInspectionFailure::conflictingPath);
      directoryPaths.insert(std::move(parent));
    }
    if (kind == ArchiveEntryKind::directory) {
      if (filePaths.contains(folded)) fail(EPUBArchiveInspectionFailure::conflictingPath);
      directoryPaths.insert(folded);
    } else {
      if (directoryPaths.contains(folded)) fail(EPUBArchiveInspectionFailure::conflictingPath);
      filePaths.insert(folded);
    }
  }
};

// Checks the entry's local header against its central record and gives the
// offset of the entry's data.
std::uint64_t checkLocalHeader(ArchiveFile& file, const LocalHeaderExpectation& expected,
                               std::uint64_t centralDirectoryOffset) {
  if (expected.offset + kLocalHeaderSize > centralDirectoryOffset) {
    fail(EPUBArchiveInspectionFailure::malformedArchive);
  }
  const std::vector<std::uint8_t> header = readExactly(file, expected.offset, kLocalHeaderSize);
  const std::uint64_t variableLength =
      checkLocalHeaderFixedPart(header, expected, centralDirectoryOffset);
  // Still positioned straight after the 30 bytes.
  std::vector<std::uint8_t> localName(localHeaderNameLength(header));
  localName.resize(file.read(localName));
  checkLocalHeaderName(localName, expected);
  return expected.offset + kLocalHeaderSize + variableLength;
}

async::Task<EPUBArchiveInspection> inspectInBackground(EPUBArchiveInspector inspector,
                                                       std::filesystem::path archive) {
  // Named rather than a temporary of the co_await expression, which some
  // compilers have destroyed twice.
  auto inspection = async::runInBackground(
      [inspector = std::move(inspector), archive = std::move(archive)](std::stop_token stopToken) {
        return inspector.inspectBlocking(archive, stopToken);
      });
  co_return co_await inspection;
}

}  // namespace

EPUBArchiveInspector::EPUBArchiveInspector() : EPUBArchiveInspector(Limits{}) {}

EPUBArchiveInspector::EPUBArchiveInspector(Limits limits,
                                           std::shared_ptr<const ArchiveFileOpening> files)
    : limits_(limits), files_(std::move(files)) {}

async::Task<EPUBArchiveInspection> EPUBArchiveInspector::inspect(
    std::filesystem::path archive) const {
  // A copy, since the task starts later and may outlive this value.
  return inspectInBackground(*this, std::move(archive));
}

EPUBArchiveInspection EPUBArchiveInspector::inspectBlocking(
    const std::filesystem::path& archive, const std::stop_token& stopToken) const {
  std::unique_ptr<ArchiveFile> file;
  try {
    file = files_->open(archive);
  } catch (const std::system_error&) {
    fail(EPUBArchiveInspectionFailure::malformedArchive);
  }
  return inspectFile(*file, stopToken);
}

EPUBArchiveInspection EPUBArchiveInspector::inspectFile(ArchiveFile& file,
                                                        const std::stop_token& stopToken) const {
  return walk(file, stopToken, LocalHeaders::readNow).inspection;
}

EPUBArchiveInspector::CentralDirectoryInspection EPUBArchiveInspector::inspectCentralDirectory(
    ArchiveFile& file, const std::stop_token& stopToken) const {
  return walk(file, stopToken, LocalHeaders::deferred);
}

EPUBArchiveInspector::CentralDirectoryInspection EPUBArchiveInspector::walk(
    ArchiveFile& file, const std::stop_token& stopToken, LocalHeaders localHeaders) const {
  EndRecord end = readEndRecord(file, *this);

  std::vector<std::uint8_t> directory;
  if (end.centralDirectorySize > 0) {
    directory = readExactly(file, end.centralDirectoryOffset, end.centralDirectorySize);
    if (directory.size() != end.centralDirectorySize) {
      fail(EPUBArchiveInspectionFailure::malformedArchive);
    }
  }
  const FieldReader reader(directory);

  CentralDirectoryInspection result;
  EPUBArchiveInspection& inspection = result.inspection;
  inspection.entries.reserve(end.totalEntries);
  SeenPaths paths;
  std::uint64_t cursor = 0;
  for (std::uint32_t index = 0; index < end.totalEntries; ++index) {
    async::throwIfCancelled(stopToken);
    if (reader.read32(cursor) != kCentralRecordSignature) {
      fail(EPUBArchiveInspectionFailure::malformedArchive);
    }
    const std::uint16_t flags = reader.read16(cursor + 8);
    const std::uint16_t method = reader.read16(cursor + 10);
    const std::uint32_t crc = reader.read32(cursor + 16);
    const std::uint32_t compressedSize = reader.read32(cursor + 20);
    const std::uint32_t uncompressedSize = reader.read32(cursor + 24);
    const std::uint16_t nameLength = reader.read16(cursor + 28);
    const std::uint16_t extraLength = reader.read16(cursor + 30);
    const std::uint16_t commentLength = reader.read16(cursor + 32);
    const std::uint32_t externalAttributes = reader.read32(cursor + 38);
    const std::uint32_t localHeaderOffset = reader.read32(cursor + 42);

    if (compressedSize == kZIP64Value || uncompressedSize == kZIP64Value ||
        localHeaderOffset == kZIP64Value) {
      fail(EPUBArchiveInspectionFailure::unsupportedZIP64);
    }
    if (flags & 0x0001) fail(EPUBArchiveInspectionFailure::encryptedEntry);
    if (method != 0 && method != 8) fail(EPUBArchiveInspectionFailure::unsupportedCompression);
    if (method == 0 && compressedSize != uncompressedSize) {
      fail(EPUBArchiveInspectionFailure::malformedArchive);
    }

    const std::uint64_t nameOffset = cursor + kCentralRecordSize;
    cursor = nameOffset + nameLength + extraLength + commentLength;
    if (nameLength == 0 || cursor > directory.size())
      fail(EPUBArchiveInspectionFailure::invalidPath);

    const std::span<const std::uint8_t> rawName = reader.slice(nameOffset, nameLength);
    const std::string_view name(reinterpret_cast<const char*>(rawName.data()), rawName.size());
    if (!isWellFormedUTF8(name)) fail(EPUBArchiveInspectionFailure::invalidPath);
    const ArchiveEntryKind kind =
        name.ends_with('/') ? ArchiveEntryKind::directory : ArchiveEntryKind::file;
    std::optional<std::string> path = validateArchiveEntryPath(name, kind);
    if (!path) fail(EPUBArchiveInspectionFailure::invalidPath);

    LocalHeaderExpectation expected{localHeaderOffset, flags, method, compressedSize,
                                    std::string(name)};
    std::uint64_t dataOffset = 0;
    if (localHeaders == LocalHeaders::readNow) {
      dataOffset = checkLocalHeader(file, expected, end.centralDirectoryOffset);
    } else {
      // Checked as it is met, where no data offset can yet be wrong.
      if (localHeaderOffset + kLocalHeaderSize > end.centralDirectoryOffset) {
        fail(EPUBArchiveInspectionFailure::malformedArchive);
      }
      result.localHeaders.push_back(std::move(expected));
    }

    if ((externalAttributes >> 28) == 0xA) fail(EPUBArchiveInspectionFailure::symbolicLink);

    paths.insert(foldArchivePath(*path), kind);

    if (uncompressedSize != 0 && (compressedSize == 0 || limits_.maximumExpansionRatio <
                                                             uncompressedSize / compressedSize)) {
      fail(EPUBArchiveInspectionFailure::suspiciousExpansion);
    }
    const std::uint64_t total = inspection.totalUncompressedSize + uncompressedSize;
    if (total < inspection.totalUncompressedSize || total > limits_.maximumTotalUncompressedSize) {
      fail(EPUBArchiveInspectionFailure::suspiciousExpansion);
    }
    inspection.totalUncompressedSize = total;

    inspection.entries.push_back(EPUBArchiveEntry{
        .path = std::move(*path),
        .compressedSize = compressedSize,
        .uncompressedSize = uncompressedSize,
        .compressionMethod = method,
        .isDirectory = kind == ArchiveEntryKind::directory,
        .localDataOffset = dataOffset,
        .crc32 = crc,
    });
  }

  if (cursor != directory.size()) fail(EPUBArchiveInspectionFailure::malformedArchive);
  if (!paths.filePaths.contains("mimetype")) fail(EPUBArchiveInspectionFailure::missingMimetype);
  if (!paths.filePaths.contains("meta-inf/container.xml")) {
    fail(EPUBArchiveInspectionFailure::missingContainer);
  }
  result.fileSize = end.fileSize;
  result.centralDirectoryOffset = end.centralDirectoryOffset;
  result.readRanges.push_back({end.fileSize - end.tail.size(), std::move(end.tail)});
  result.readRanges.push_back({end.centralDirectoryOffset, std::move(directory)});
  return result;
}

}  // namespace tomekeeper
