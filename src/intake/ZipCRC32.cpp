#include "intake/ZipCRC32.h"

#include <array>

namespace tomekeeper {
namespace {

std::array<std::uint32_t, 256> makeTable() {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t index = 0; index < 256; ++index) {
    std::uint32_t value = index;
    for (int bit = 0; bit < 8; ++bit) value = (value & 1) ? (value >> 1) ^ 0xEDB88320u : value >> 1;
    table[index] = value;
  }
  return table;
}

}  // namespace

std::uint32_t ZipCRC32::update(std::uint32_t state, std::span<const std::uint8_t> bytes) noexcept {
  // A function-local static is initialised exactly once even under concurrent first calls.
  static const std::array<std::uint32_t, 256> table = makeTable();
  for (const std::uint8_t byte : bytes) state = table[(state ^ byte) & 0xFF] ^ (state >> 8);
  return state;
}

}  // namespace tomekeeper
