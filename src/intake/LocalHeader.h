#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace tomekeeper {

// What the central directory says about one entry's local header, which must
// agree with it: the inspector reads the header at once, the single pass when
// its stream reaches it.
struct LocalHeaderExpectation {
  std::uint64_t offset = 0;
  std::uint16_t flags = 0;
  std::uint16_t method = 0;
  std::uint64_t compressedSize = 0;
  // The name as stored, before any normalisation.
  std::string rawName;
};

// The fixed part of a local header, before its name and extra field.
inline constexpr std::uint64_t kLocalHeaderSize = 30;

// Checks the 30 fixed bytes of the local header at `expected.offset` and
// returns the length of the name and extra field behind them. Throws
// EPUBArchiveInspectionFailureError (malformedArchive) when the header does not
// match its central record or its data would reach into the central directory.
std::uint64_t checkLocalHeaderFixedPart(std::span<const std::uint8_t> fixedPart,
                                        const LocalHeaderExpectation& expected,
                                        std::uint64_t centralDirectoryOffset);

// Checks the name behind the fixed part: `localName` holds the bytes the fixed
// part declares (fewer where the file ended). Throws as above.
void checkLocalHeaderName(std::span<const std::uint8_t> localName,
                          const LocalHeaderExpectation& expected);

// The length of the name that the fixed part declares.
std::uint16_t localHeaderNameLength(std::span<const std::uint8_t> fixedPart);

}  // namespace tomekeeper
