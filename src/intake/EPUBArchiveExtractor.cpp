#include "intake/EPUBArchiveExtractor.h"

#include <system_error>

#include "async/OperationCancelled.h"
#include "async/Task.h"
#include "intake/EntryWriterPool.h"
#include "intake/ExtractionStaging.h"
#include "intake/IntakeFailures.h"

namespace tomekeeper {
namespace {

namespace fs = std::filesystem;
using ExtractionFailure = EPUBArchiveExtractionFailure;

[[noreturn]] void fail(ExtractionFailure failure) {
  throw EPUBArchiveExtractionFailureError(failure);
}

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

std::size_t fileCount(const EPUBArchiveInspection& inspection) {
  std::size_t count = 0;
  for (const EPUBArchiveEntry& entry : inspection.entries) count += entry.isDirectory ? 0 : 1;
  return count;
}

}  // namespace

EPUBArchiveExtractor::EPUBArchiveExtractor(std::int64_t bufferSize,
                                           std::shared_ptr<const ArchiveFileOpening> files,
                                           Durability durability)
    : bufferSize_(bufferSize), files_(std::move(files)), durability_(durability) {}

std::size_t EPUBArchiveExtractor::blocksInFlight(std::size_t workerCount) {
  return 4 * workerCount + 2;
}

ExtractedPublication EPUBArchiveExtractor::extract(const fs::path& archivePath,
                                                   const EPUBArchiveInspection& inspection,
                                                   const fs::path& destination,
                                                   const std::stop_token& stopToken) const {
  ExtractionStaging staging(destination);
  std::unique_ptr<ArchiveFile> archive;
  try {
    archive = files_->open(archivePath);
  } catch (const std::system_error&) {
    fail(ExtractionFailure::unreadableArchive);
  }
  const std::vector<fs::path> outputs = staging.prepareEntries(inspection);

  const auto blockSize = static_cast<std::size_t>(bufferSize_);
  const std::size_t workerCount = EntryWriterPool::standardWorkerCount(fileCount(inspection));
  ArchiveBlockPool blocks(blockSize, blocksInFlight(workerCount));
  EntryWriterPool writers(workerCount, blockSize, durability_, stopToken);
  for (std::size_t index = 0; index < inspection.entries.size() && !writers.failed(); ++index) {
    const EPUBArchiveEntry& entry = inspection.entries[index];
    async::throwIfCancelled(stopToken);
    if (entry.isDirectory) continue;
    const auto written = writers.begin(entry, outputs[index]);
    archive->seek(entry.localDataOffset);
    std::uint64_t remaining = entry.compressedSize;
    if (remaining == 0) writers.feed(written, ArchiveSlice{}, true);
    while (remaining != 0 && !writers.failed()) {
      async::throwIfCancelled(stopToken);
      const std::size_t count =
          static_cast<std::size_t>(std::min<std::uint64_t>(remaining, blockSize));
      std::shared_ptr<ArchiveBlockPool::Block> block = blocks.acquire();
      readBlock(*archive, block->data(), count);
      remaining -= count;
      writers.feed(written, ArchiveSlice{std::move(block), 0, count}, remaining == 0);
    }
  }
  writers.finish();
  staging.commit(durability_, stopToken);
  return ExtractedPublication{destination, static_cast<std::int64_t>(inspection.entries.size()),
                              inspection.totalUncompressedSize};
}

}  // namespace tomekeeper
