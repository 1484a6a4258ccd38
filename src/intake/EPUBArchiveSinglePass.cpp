#include "intake/EPUBArchiveSinglePass.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <system_error>

#include "async/OperationCancelled.h"
#include "async/Task.h"
#include "intake/EntryWriterPool.h"
#include "intake/ExtractionStaging.h"
#include "intake/IntakeFailures.h"
#include "intake/LocalHeader.h"
#include "opening/Fingerprint.h"

namespace tomekeeper {
namespace {

namespace fs = std::filesystem;
using CentralDirectoryInspection = EPUBArchiveInspector::CentralDirectoryInspection;

[[noreturn]] void fail(EPUBArchiveExtractionFailure failure) {
  throw EPUBArchiveExtractionFailureError(failure);
}

[[noreturn]] void failMalformed() {
  throw EPUBArchiveInspectionFailureError(EPUBArchiveInspectionFailure::malformedArchive);
}

struct DigestContextDeleter {
  void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

class SHA256 {
 public:
  SHA256() : context_(EVP_MD_CTX_new()) {
    if (!context_ || EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) != 1) {
      throw std::runtime_error("SHA-256 is unavailable");
    }
  }
  void update(std::span<const std::uint8_t> bytes) {
    EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size());
  }
  std::string fingerprint() {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_DigestFinal_ex(context_.get(), digest, &length);
    return fingerprintText(std::span(digest, length));
  }

 private:
  std::unique_ptr<EVP_MD_CTX, DigestContextDeleter> context_;
};

// Follows the stream from the first byte of the file: the gap before each local
// header, its fixed part, its name and extra field, then the entry's data,
// which goes on to the writers. Entries are met in the order of their offsets.
class EntryStreamWalker {
 public:
  EntryStreamWalker(CentralDirectoryInspection& central, const std::vector<fs::path>& outputs,
                    EntryWriterPool& writers)
      : central_(central),
        outputs_(outputs),
        writers_(writers),
        order_(central.localHeaders.size()) {
    std::iota(order_.begin(), order_.end(), std::size_t{0});
    std::stable_sort(order_.begin(), order_.end(), [&central](std::size_t left, std::size_t right) {
      return central.localHeaders[left].offset < central.localHeaders[right].offset;
    });
  }

  // Takes the `count` bytes of `block` that start at `blockStart` in the file.
  void consume(const std::shared_ptr<const ArchiveBlockPool::Block>& block, std::size_t count,
               std::uint64_t blockStart) {
    std::size_t position = 0;
    while (next_ < order_.size()) {
      const std::size_t available = count - position;
      const std::size_t index = order_[next_];
      const LocalHeaderExpectation& expected = central_.localHeaders[index];
      switch (phase_) {
        case Phase::gap: {
          const std::uint64_t at = blockStart + position;
          // An entry that starts inside the one before it cannot be streamed.
          if (expected.offset < at) failMalformed();
          position +=
              static_cast<std::size_t>(std::min<std::uint64_t>(expected.offset - at, available));
          if (blockStart + position < expected.offset) return;
          phase_ = Phase::fixedPart;
          break;
        }
        case Phase::fixedPart: {
          const std::size_t taken = std::min(kLocalHeaderSize - header_.size(), available);
          header_.insert(header_.end(), block->begin() + position,
                         block->begin() + position + taken);
          position += taken;
          if (header_.size() < kLocalHeaderSize) return;
          variableLength_ =
              checkLocalHeaderFixedPart(header_, expected, central_.centralDirectoryOffset);
          nameLength_ = localHeaderNameLength(header_);
          header_.clear();
          variableSeen_ = 0;
          phase_ = Phase::nameAndExtra;
          break;
        }
        case Phase::nameAndExtra: {
          const auto taken = static_cast<std::size_t>(
              std::min<std::uint64_t>(variableLength_ - variableSeen_, available));
          // Only the name is kept; the extra field is passed over.
          if (variableSeen_ < nameLength_) {
            const std::size_t nameBytes =
                std::min<std::size_t>(taken, nameLength_ - static_cast<std::size_t>(variableSeen_));
            header_.insert(header_.end(), block->begin() + position,
                           block->begin() + position + nameBytes);
          }
          position += taken;
          variableSeen_ += taken;
          if (variableSeen_ < variableLength_) return;
          checkLocalHeaderName(header_, expected);
          header_.clear();
          startEntry(index, blockStart + position);
          break;
        }
        case Phase::data: {
          const auto taken =
              static_cast<std::size_t>(std::min<std::uint64_t>(remaining_, available));
          if (taken > 0 && written_) {
            writers_.feed(written_, ArchiveSlice{block, position, taken}, taken == remaining_);
          }
          position += taken;
          remaining_ -= taken;
          if (remaining_ > 0) return;
          written_.reset();
          ++next_;
          phase_ = Phase::gap;
          break;
        }
      }
    }
  }

  bool metEveryEntry() const { return next_ == order_.size(); }

 private:
  enum class Phase { gap, fixedPart, nameAndExtra, data };

  void startEntry(std::size_t index, std::uint64_t dataOffset) {
    EPUBArchiveEntry& entry = central_.inspection.entries[index];
    entry.localDataOffset = dataOffset;
    remaining_ = entry.compressedSize;
    phase_ = Phase::data;
    if (entry.isDirectory) return;
    written_ = writers_.begin(entry, outputs_[index]);
    if (remaining_ == 0) writers_.feed(written_, ArchiveSlice{}, true);
  }

  CentralDirectoryInspection& central_;
  const std::vector<fs::path>& outputs_;
  EntryWriterPool& writers_;
  std::vector<std::size_t> order_;
  std::size_t next_ = 0;
  Phase phase_ = Phase::gap;
  std::vector<std::uint8_t> header_;
  std::uint64_t variableLength_ = 0;
  std::uint64_t variableSeen_ = 0;
  std::uint16_t nameLength_ = 0;
  std::uint64_t remaining_ = 0;
  std::shared_ptr<EntryWriterPool::Entry> written_;
};

// The bytes the inspection trusted must be those the stream meets.
void checkUnchanged(const CentralDirectoryInspection& central, std::span<const std::uint8_t> bytes,
                    std::uint64_t blockStart) {
  const std::uint64_t blockEnd = blockStart + bytes.size();
  for (const auto& range : central.readRanges) {
    const std::uint64_t start = std::max(blockStart, range.offset);
    const std::uint64_t end = std::min(blockEnd, range.offset + range.bytes.size());
    if (start >= end) continue;
    if (std::memcmp(bytes.data() + (start - blockStart),
                    range.bytes.data() + (start - range.offset), end - start) != 0) {
      fail(EPUBArchiveExtractionFailure::unreadableArchive);
    }
  }
}

std::size_t readFully(ArchiveFile& archive, std::uint8_t* into, std::size_t count) {
  try {
    return archive.read(std::span(into, count));
  } catch (const std::system_error&) {
    fail(EPUBArchiveExtractionFailure::unreadableArchive);
  }
}

}  // namespace

EPUBArchiveSinglePass::EPUBArchiveSinglePass()
    : EPUBArchiveSinglePass(EPUBArchiveInspector(), EPUBArchiveExtractor()) {}

EPUBArchiveSinglePass::EPUBArchiveSinglePass(EPUBArchiveInspector inspector,
                                             EPUBArchiveExtractor extractor)
    : inspector_(std::move(inspector)), extractor_(std::move(extractor)) {}

SinglePassExtraction EPUBArchiveSinglePass::extract(const fs::path& archivePath,
                                                    const fs::path& destination,
                                                    const std::stop_token& stopToken,
                                                    const SinglePassObserver& observer) const {
  std::unique_ptr<ArchiveFile> archive;
  try {
    archive = inspector_.files()->open(archivePath);
  } catch (const std::system_error&) {
    failMalformed();
  }
  CentralDirectoryInspection central = inspector_.inspectCentralDirectory(*archive, stopToken);
  if (observer.centralDirectoryInspected) observer.centralDirectoryInspected(*archive, central);

  ExtractionStaging staging(destination);
  const std::vector<fs::path> outputs = staging.prepareEntries(central.inspection);
  std::size_t fileCount = 0;
  for (const auto& entry : central.inspection.entries) fileCount += entry.isDirectory ? 0 : 1;

  const auto blockSize = static_cast<std::size_t>(extractor_.bufferSize());
  const std::size_t workerCount = EntryWriterPool::standardWorkerCount(fileCount);
  ArchiveBlockPool blocks(blockSize, EPUBArchiveExtractor::blocksInFlight(workerCount));
  EntryWriterPool writers(workerCount, blockSize, extractor_.durability(), stopToken);
  EntryStreamWalker walker(central, outputs, writers);
  SHA256 hash;

  archive->seek(0);
  std::uint64_t position = 0;
  while (position < central.fileSize && !writers.failed()) {
    async::throwIfCancelled(stopToken);
    std::shared_ptr<ArchiveBlockPool::Block> block = blocks.acquire();
    const auto wanted =
        static_cast<std::size_t>(std::min<std::uint64_t>(blockSize, central.fileSize - position));
    if (readFully(*archive, block->data(), wanted) != wanted) {
      fail(EPUBArchiveExtractionFailure::unreadableArchive);
    }
    const std::span<const std::uint8_t> bytes(block->data(), wanted);
    checkUnchanged(central, bytes, position);
    // The writers have the block before it is hashed, so they work while this thread hashes.
    walker.consume(block, wanted, position);
    hash.update(bytes);
    position += wanted;
    if (observer.streamed) observer.streamed(position, central.fileSize);
  }
  if (!writers.failed()) {
    if (!walker.metEveryEntry()) failMalformed();
    // A file that grew while it was read is not the file that was inspected.
    std::uint8_t probe = 0;
    if (readFully(*archive, &probe, 1) != 0) fail(EPUBArchiveExtractionFailure::unreadableArchive);
  }
  writers.finish();
  staging.commit(extractor_.durability(), stopToken);

  const auto entryCount = static_cast<std::int64_t>(central.inspection.entries.size());
  const std::uint64_t totalSize = central.inspection.totalUncompressedSize;
  return SinglePassExtraction{hash.fingerprint(), std::move(central.inspection),
                              ExtractedPublication{destination, entryCount, totalSize}};
}

}  // namespace tomekeeper
