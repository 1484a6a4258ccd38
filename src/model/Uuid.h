#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace tomekeeper {

// A 128-bit identifier. Its text is 36 characters of upper-case hexadecimal with hyphens
// ("E621E1F8-C36C-495A-93FC-0C247A3E6E5F"); reading accepts any letter case. In JSON it is
// that string. The default value is the nil identifier of zeros.
class Uuid {
 public:
  using Bytes = std::array<std::uint8_t, 16>;

  constexpr Uuid() noexcept = default;
  explicit constexpr Uuid(const Bytes& bytes) noexcept : bytes_(bytes) {}

  // A new random (version 4) identifier, from GLib's random source. Any thread.
  static Uuid random();

  // The identifier written in `text` in the 8-4-4-4-12 form, in any letter case; absent for
  // any other text (braces, missing hyphens, surrounding blanks).
  static std::optional<Uuid> fromString(std::string_view text) noexcept;

  // The canonical text: upper case, with hyphens.
  std::string string() const;

  const Bytes& bytes() const noexcept { return bytes_; }

  auto operator<=>(const Uuid&) const = default;

 private:
  Bytes bytes_{};
};

void to_json(nlohmann::json& json, const Uuid& uuid);
// Throws JSONDecodingError for a value that is not a string or not a UUID.
void from_json(const nlohmann::json& json, Uuid& uuid);

}  // namespace tomekeeper

template <>
struct std::hash<tomekeeper::Uuid> {
  std::size_t operator()(const tomekeeper::Uuid& uuid) const noexcept;
};
