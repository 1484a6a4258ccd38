#include "intake/ZipCRC32.h"

#include <libdeflate.h>

namespace tomekeeper {

std::uint32_t ZipCRC32::update(std::uint32_t state, std::span<const std::uint8_t> bytes) noexcept {
  // libdeflate folds the bytes with carry-less multiplication where the
  // processor has it, about four times the speed of zlib's tables on a book's
  // images. It takes and gives the finished value, so the running state is
  // inverted on the way in and out; it keeps no state of its own.
  return ~libdeflate_crc32(~state, bytes.data(), bytes.size());
}

}  // namespace tomekeeper
