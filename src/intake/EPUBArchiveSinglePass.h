#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <stop_token>
#include <string>

#include "intake/EPUBArchiveExtractor.h"
#include "intake/EPUBArchiveInspector.h"

namespace tomekeeper {

// What one pass over an archive produced.
struct SinglePassExtraction {
  // The SHA-256 of every byte of the file, as a fingerprint.
  std::string fingerprint;
  // As the inspector would have returned it, data offsets included.
  EPUBArchiveInspection inspection;
  ExtractedPublication extracted;
};

// Told on the thread of the pass how far it has come; each member may be empty.
// Neither may throw.
struct SinglePassObserver {
  // Once, when the central directory has been inspected and before the stream
  // starts: `archive` may be read from any position, the pass seeks after.
  std::function<void(ArchiveFile& archive,
                     const EPUBArchiveInspector::CentralDirectoryInspection& central)>
      centralDirectoryInspected;
  // After each block of the stream: bytes read so far of the file's size.
  std::function<void(std::uint64_t bytesRead, std::uint64_t fileSize)> streamed;
};

// Takes in a book by reading its file once. The central directory is read from
// the end and inspected with every limit of the inspector; then the file is
// read from its first byte to its last, each block going through SHA-256 and
// the local headers being checked as the stream meets them, while the
// entries' bytes go on to the extractor's writers, which inflate, check and
// write different entries on different cores. The bytes the inspection read
// must come round again unchanged, so the fingerprint is the fingerprint of
// what was extracted. The staging, the durability and the one move of the
// extractor hold as they are. A value without state.
class EPUBArchiveSinglePass {
 public:
  // With the standard inspector and extractor.
  EPUBArchiveSinglePass();
  EPUBArchiveSinglePass(EPUBArchiveInspector inspector, EPUBArchiveExtractor extractor);

  // Blocking; run it off the main executor. Throws what the inspector and the
  // extractor throw. Two cases are particular to the single pass: entries
  // whose bytes overlap or run backwards cannot be streamed and are refused
  // as malformedArchive (the inspector with the extractor may still take them),
  // and a file that changes while it is read fails with unreadableArchive.
  SinglePassExtraction extract(const std::filesystem::path& archive,
                               const std::filesystem::path& destination,
                               const std::stop_token& stopToken = {},
                               const SinglePassObserver& observer = {}) const;

 private:
  EPUBArchiveInspector inspector_;
  EPUBArchiveExtractor extractor_;
};

}  // namespace tomekeeper
