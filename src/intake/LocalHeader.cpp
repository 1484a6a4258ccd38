#include "intake/LocalHeader.h"

#include <algorithm>

#include "intake/IntakeFailures.h"

namespace tomekeeper {
namespace {

constexpr std::uint32_t kLocalHeaderSignature = 0x04034b50;

[[noreturn]] void failMalformed() {
  throw EPUBArchiveInspectionFailureError(EPUBArchiveInspectionFailure::malformedArchive);
}

std::uint16_t read16(std::span<const std::uint8_t> bytes, std::size_t offset) {
  return static_cast<std::uint16_t>(bytes[offset] | (bytes[offset + 1] << 8));
}

}  // namespace

std::uint16_t localHeaderNameLength(std::span<const std::uint8_t> fixedPart) {
  if (fixedPart.size() < kLocalHeaderSize) failMalformed();
  return read16(fixedPart, 26);
}

std::uint64_t checkLocalHeaderFixedPart(std::span<const std::uint8_t> fixedPart,
                                        const LocalHeaderExpectation& expected,
                                        std::uint64_t centralDirectoryOffset) {
  if (expected.offset + kLocalHeaderSize > centralDirectoryOffset) failMalformed();
  if (fixedPart.size() < kLocalHeaderSize) failMalformed();
  const std::uint32_t signature = static_cast<std::uint32_t>(read16(fixedPart, 0)) |
                                  (static_cast<std::uint32_t>(read16(fixedPart, 2)) << 16);
  if (signature != kLocalHeaderSignature) failMalformed();
  if (read16(fixedPart, 6) != expected.flags || read16(fixedPart, 8) != expected.method) {
    failMalformed();
  }
  const std::uint64_t variableLength =
      std::uint64_t{read16(fixedPart, 26)} + std::uint64_t{read16(fixedPart, 28)};
  const std::uint64_t dataOffset = expected.offset + kLocalHeaderSize + variableLength;
  if (dataOffset > centralDirectoryOffset ||
      expected.compressedSize > centralDirectoryOffset - dataOffset) {
    failMalformed();
  }
  return variableLength;
}

void checkLocalHeaderName(std::span<const std::uint8_t> localName,
                          const LocalHeaderExpectation& expected) {
  if (localName.empty() || localName.size() != expected.rawName.size() ||
      !std::equal(localName.begin(), localName.end(),
                  reinterpret_cast<const std::uint8_t*>(expected.rawName.data()))) {
    failMalformed();
  }
}

}  // namespace tomekeeper
