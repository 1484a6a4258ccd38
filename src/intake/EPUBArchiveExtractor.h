#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <stop_token>

#include "intake/ArchiveFile.h"
#include "intake/EPUBArchiveInspection.h"

namespace tomekeeper {

// What an extraction produced.
struct ExtractedPublication {
  // The destination directory, as given.
  std::filesystem::path rootURL;
  // Entries extracted, directories included.
  std::int64_t entryCount = 0;
  // Copied from the inspection.
  std::uint64_t totalUncompressedSize = 0;

  bool operator==(const ExtractedPublication&) const = default;
};

// Unpacks the entries of an inspection into a directory of their own. It never
// parses ZIP headers: it trusts the inspection and seeks straight to each
// entry's data. Entries stream through a bounded set of buffers to worker
// threads, one per core, that inflate different entries at once and check each
// by size and CRC-32 as it is written, into a staging directory beside the
// destination that becomes the destination with one move; a half-done
// extraction never carries the destination's name. A value without state;
// calls for different destinations may run in parallel.
class EPUBArchiveExtractor {
 public:
  static constexpr std::int64_t kStandardBufferSize = 262144;

  // How the extracted files reach stable storage before the commit. Either
  // way nothing is committed before all of it is durable, so no final name
  // ever holds an incomplete file, even after a power loss.
  enum class Durability {
    // fsync of each file before the next entry starts.
    synchronizeEachFile,
    // One syncfs of the staging directory's file system just before the move:
    // the disk sees one flush instead of one per file.
    synchronizeOnceBeforeCommit,
  };

  explicit EPUBArchiveExtractor(
      std::int64_t bufferSize = kStandardBufferSize,
      std::shared_ptr<const ArchiveFileOpening> files = ArchiveFileOpening::fileSystem(),
      Durability durability = Durability::synchronizeOnceBeforeCommit);

  // Largest read from the archive, and the size of the output buffer of one
  // round of inflating.
  std::int64_t bufferSize() const { return bufferSize_; }
  Durability durability() const { return durability_; }
  const std::shared_ptr<const ArchiveFileOpening>& files() const { return files_; }

  // Buffers of bufferSize() read ahead of `workerCount` writers.
  static std::size_t blocksInFlight(std::size_t workerCount);

  // Blocking; run it off the main executor. Checks `stopToken` at the head of
  // each entry, before every block read, in the writers before every piece
  // they write, and once before the commit. Throws
  // EPUBArchiveExtractionFailureError, async::OperationCancelled, and, for a
  // failed seek in the archive or a failed creation of the destination's
  // parent, the platform's error (std::system_error or
  // std::filesystem::filesystem_error). On every failure after the staging
  // directory exists, it is removed before the failure is reported.
  ExtractedPublication extract(const std::filesystem::path& archive,
                               const EPUBArchiveInspection& inspection,
                               const std::filesystem::path& destination,
                               const std::stop_token& stopToken = {}) const;

 private:
  std::int64_t bufferSize_;
  std::shared_ptr<const ArchiveFileOpening> files_;
  Durability durability_;
};

}  // namespace tomekeeper
