#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tomekeeper {

// One central directory record that passed every check of the inspector. The
// extractor trusts these fields and never parses the archive again.
struct EPUBArchiveEntry {
  // Normalised relative path in the archive's own letter case and
  // composition, "/" separated, without a trailing "/" even for a directory.
  std::string path;
  std::uint64_t compressedSize = 0;
  std::uint64_t uncompressedSize = 0;
  // 0 (stored) or 8 (deflated).
  std::uint16_t compressionMethod = 0;
  bool isDirectory = false;
  // Absolute file offset of the entry's data, behind its local header.
  std::uint64_t localDataOffset = 0;
  std::uint32_t crc32 = 0;

  bool operator==(const EPUBArchiveEntry&) const = default;
};

// The inspector's answer: every entry in central directory order, directories
// included, and the sum of their uncompressed sizes.
struct EPUBArchiveInspection {
  std::vector<EPUBArchiveEntry> entries;
  std::uint64_t totalUncompressedSize = 0;

  bool operator==(const EPUBArchiveInspection&) const = default;
};

}  // namespace tomekeeper
