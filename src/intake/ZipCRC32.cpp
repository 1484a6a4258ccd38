#include "intake/ZipCRC32.h"

#include <zlib.h>

namespace tomekeeper {

std::uint32_t ZipCRC32::update(std::uint32_t state, std::span<const std::uint8_t> bytes) noexcept {
  // zlib computes the same checksum (the reflected polynomial 0xEDB88320, a
  // state that starts at all ones and ends inverted) several bytes at a time;
  // it takes and gives the finished value, so the running state is inverted on
  // the way in and out. Its tables are static, with no first-use race.
  return ~static_cast<std::uint32_t>(crc32_z(~state & 0xFFFFFFFFu, bytes.data(), bytes.size()));
}

}  // namespace tomekeeper
