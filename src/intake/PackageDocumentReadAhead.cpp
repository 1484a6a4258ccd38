#include "intake/PackageDocumentReadAhead.h"

#include <glib.h>
#include <zlib.h>

#include <climits>
#include <memory>
#include <span>
#include <vector>

#include "intake/EPUBContainerValidator.h"
#include "intake/LocalHeader.h"
#include "intake/ZipCRC32.h"

namespace tomekeeper {
namespace {

using CentralDirectoryInspection = EPUBArchiveInspector::CentralDirectoryInspection;

constexpr const char* kContainerPath = "META-INF/container.xml";
constexpr std::uint16_t kStored = 0;
constexpr std::uint16_t kDeflated = 8;

// The entry named `path`: the exact name, or else the one name that differs only in ASCII
// letter case (as the validator finds them).
std::optional<std::size_t> findEntry(const CentralDirectoryInspection& central,
                                     const std::string& path) {
  std::optional<std::size_t> caseless;
  int caselessCount = 0;
  const auto& entries = central.inspection.entries;
  for (std::size_t index = 0; index < entries.size(); ++index) {
    if (entries[index].isDirectory) continue;
    if (entries[index].path == path) return index;
    if (g_ascii_strcasecmp(entries[index].path.c_str(), path.c_str()) == 0) {
      caseless = index;
      ++caselessCount;
    }
  }
  if (caselessCount == 1) return caseless;
  return std::nullopt;
}

bool readExactly(ArchiveFile& archive, std::uint64_t offset, std::span<std::uint8_t> into) {
  archive.seek(offset);
  std::size_t done = 0;
  while (done < into.size()) {
    const std::size_t count = archive.read(into.subspan(done));
    if (count == 0) return false;
    done += count;
  }
  return true;
}

// zlib's raw inflate of a whole entry into exactly `size` bytes.
std::optional<std::string> inflated(std::span<std::uint8_t> compressed, std::uint64_t size) {
  if (compressed.size() > UINT_MAX || size > UINT_MAX) return std::nullopt;
  std::string output(size, '\0');
  z_stream stream{};
  if (inflateInit2(&stream, -MAX_WBITS) != Z_OK) return std::nullopt;
  stream.next_in = compressed.data();
  stream.avail_in = static_cast<uInt>(compressed.size());
  stream.next_out = reinterpret_cast<Bytef*>(output.data());
  stream.avail_out = static_cast<uInt>(output.size());
  const int status = inflate(&stream, Z_FINISH);
  const bool complete = status == Z_STREAM_END && stream.total_out == size;
  inflateEnd(&stream);
  if (!complete) return std::nullopt;
  return output;
}

// The bytes of entry `index`, checked against its size and CRC-32.
std::optional<std::string> readEntry(ArchiveFile& archive,
                                     const CentralDirectoryInspection& central, std::size_t index,
                                     std::uint64_t maximumSize) {
  const EPUBArchiveEntry& entry = central.inspection.entries[index];
  const LocalHeaderExpectation& expected = central.localHeaders[index];
  if (entry.uncompressedSize > maximumSize || entry.compressedSize > maximumSize) {
    return std::nullopt;
  }
  std::vector<std::uint8_t> fixedPart(kLocalHeaderSize);
  if (!readExactly(archive, expected.offset, fixedPart)) return std::nullopt;
  const std::uint64_t variableLength =
      checkLocalHeaderFixedPart(fixedPart, expected, central.centralDirectoryOffset);
  std::vector<std::uint8_t> compressed(entry.compressedSize);
  if (!readExactly(archive, expected.offset + kLocalHeaderSize + variableLength, compressed)) {
    return std::nullopt;
  }
  std::optional<std::string> bytes;
  if (entry.compressionMethod == kStored && entry.compressedSize == entry.uncompressedSize) {
    bytes.emplace(compressed.begin(), compressed.end());
  } else if (entry.compressionMethod == kDeflated) {
    bytes = inflated(compressed, entry.uncompressedSize);
  }
  if (!bytes) return std::nullopt;
  const auto* data = reinterpret_cast<const std::uint8_t*>(bytes->data());
  if (ZipCRC32::of(std::span(data, bytes->size())) != entry.crc32) return std::nullopt;
  return bytes;
}

}  // namespace

std::optional<PackageDocumentInArchive> readPackageDocumentAhead(
    ArchiveFile& archive, const CentralDirectoryInspection& central) {
  if (central.localHeaders.size() != central.inspection.entries.size()) return std::nullopt;
  try {
    const std::optional<std::size_t> containerIndex = findEntry(central, kContainerPath);
    if (!containerIndex) return std::nullopt;
    const std::optional<std::string> container = readEntry(
        archive, central, *containerIndex, EPUBContainerValidator::kStandardMaximumMetadataSize);
    if (!container) return std::nullopt;
    const std::string rootfile = EPUBContainerValidator::chooseRootfilePath(*container);
    const std::optional<std::size_t> packageIndex = findEntry(central, rootfile);
    if (!packageIndex) return std::nullopt;
    std::optional<std::string> document =
        readEntry(archive, central, *packageIndex, kMaximumPackageDocumentReadAhead);
    if (!document) return std::nullopt;
    return PackageDocumentInArchive{central.inspection.entries[*packageIndex].path,
                                    std::move(*document)};
  } catch (const std::bad_alloc&) {
    throw;
  } catch (...) {
    // A damaged header or an unreadable file: the pass that follows reports it.
    return std::nullopt;
  }
}

SinglePassObserver observeSinglePass(PreparationObserver observer) {
  SinglePassObserver single;
  if (observer.packageDocumentRead) {
    single.centralDirectoryInspected = [told = observer.packageDocumentRead](
                                           ArchiveFile& archive,
                                           const CentralDirectoryInspection& central) {
      if (auto package = readPackageDocumentAhead(archive, central)) {
        told(package->path, package->document);
      }
    };
  }
  if (observer.progressed) {
    single.streamed = [told = observer.progressed, lastPercent = std::make_shared<int>(-1)](
                          std::uint64_t bytesRead, std::uint64_t fileSize) {
      if (fileSize == 0) return;
      const double fraction = static_cast<double>(bytesRead) / static_cast<double>(fileSize);
      const int percent = static_cast<int>(fraction * 100.0);
      if (percent == *lastPercent) return;
      *lastPercent = percent;
      told(fraction);
    };
  }
  return single;
}

}  // namespace tomekeeper
