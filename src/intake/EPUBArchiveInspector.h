#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <stop_token>
#include <vector>

#include "async/Task.h"
#include "intake/ArchiveFile.h"
#include "intake/EPUBArchiveInspection.h"
#include "intake/LocalHeader.h"

namespace tomekeeper {

// Reads the ZIP structure of an EPUB from its end, without touching any
// entry's data, and either refuses it or returns the checked list of its
// entries. It defends against archive bombs, path traversal, symbolic links,
// paths that collide after NFC and lower-casing, encryption and ZIP64. A value
// with no state between calls; any number of inspections may run at once.
class EPUBArchiveInspector {
 public:
  struct Limits {
    // Largest entry count the end record may declare.
    std::int64_t maximumEntryCount = 10000;
    // Largest central directory, in bytes.
    std::uint64_t maximumCentralDirectorySize = 64ull * 1024 * 1024;
    // Largest sum of the entries' uncompressed sizes.
    std::uint64_t maximumTotalUncompressedSize = 1024ull * 1024 * 1024;
    // Largest uncompressed size / compressed size of one entry, in integer division.
    std::uint64_t maximumExpansionRatio = 200;
  };

  // With the default limits, the values the extraction cache uses.
  EPUBArchiveInspector();
  explicit EPUBArchiveInspector(Limits limits, std::shared_ptr<const ArchiveFileOpening> files =
                                                   ArchiveFileOpening::fileSystem());

  std::int64_t maximumEntryCount() const { return limits_.maximumEntryCount; }
  std::uint64_t maximumCentralDirectorySize() const { return limits_.maximumCentralDirectorySize; }
  std::uint64_t maximumTotalUncompressedSize() const {
    return limits_.maximumTotalUncompressedSize;
  }
  std::uint64_t maximumExpansionRatio() const { return limits_.maximumExpansionRatio; }

  // Inspects the archive at `archive` on the background pool; the awaiting
  // task's cancellation reaches the check at the head of each entry. Throws
  // EPUBArchiveInspectionFailureError, async::OperationCancelled, or the
  // std::system_error of a seek or read that failed on the open file.
  async::Task<EPUBArchiveInspection> inspect(std::filesystem::path archive) const;

  // The same inspection, blocking the calling thread.
  EPUBArchiveInspection inspectBlocking(const std::filesystem::path& archive,
                                        const std::stop_token& stopToken = {}) const;

  // Inspects an archive that is already open; for fuzzing and in-memory use.
  EPUBArchiveInspection inspectFile(ArchiveFile& file, const std::stop_token& stopToken = {}) const;

  // An inspection that leaves the local headers to the single pass, which
  // checks each as its stream reaches it: every entry's localDataOffset is 0.
  struct CentralDirectoryInspection {
    EPUBArchiveInspection inspection;
    // What each entry's local header must say, in the order of the entries.
    std::vector<LocalHeaderExpectation> localHeaders;
    std::uint64_t fileSize = 0;
    std::uint64_t centralDirectoryOffset = 0;
    // The bytes this inspection read and trusted (the end of the file, the
    // central directory): a pass over the file must meet them unchanged.
    struct ReadRange {
      std::uint64_t offset = 0;
      std::vector<std::uint8_t> bytes;
    };
    std::vector<ReadRange> readRanges;
  };
  // Every check of inspectFile except those of the local headers. Throws as
  // inspectFile does.
  CentralDirectoryInspection inspectCentralDirectory(ArchiveFile& file,
                                                     const std::stop_token& stopToken = {}) const;

  const std::shared_ptr<const ArchiveFileOpening>& files() const { return files_; }

 private:
  enum class LocalHeaders { readNow, deferred };
  CentralDirectoryInspection walk(ArchiveFile& file, const std::stop_token& stopToken,
                                  LocalHeaders localHeaders) const;

  Limits limits_;
  std::shared_ptr<const ArchiveFileOpening> files_;
};

}  // namespace tomekeeper
