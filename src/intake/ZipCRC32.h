#pragma once

#include <cstdint>
#include <span>

namespace tomekeeper {

// The CRC-32 of ZIP: the reflected polynomial 0xEDB88320, with a running
// state that starts at 0xFFFFFFFF and is inverted at the end. Computed by
// libdeflate. Safe from any thread.
class ZipCRC32 {
 public:
  static constexpr std::uint32_t kInitialState = 0xFFFFFFFF;

  // Feeds `bytes` into a running state that started at kInitialState.
  static std::uint32_t update(std::uint32_t state, std::span<const std::uint8_t> bytes) noexcept;
  // The checksum of a finished state: the state inverted.
  static constexpr std::uint32_t finish(std::uint32_t state) noexcept { return ~state; }
  // The checksum of `bytes` in one go.
  static std::uint32_t of(std::span<const std::uint8_t> bytes) noexcept {
    return finish(update(kInitialState, bytes));
  }
};

}  // namespace tomekeeper
