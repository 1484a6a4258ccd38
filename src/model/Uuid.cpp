#include "model/Uuid.h"

#include <glib.h>

#include <string_view>

#include "model/JSONCoding.h"

namespace tomekeeper {

namespace {

// Positions of the hyphens in the 36-character text.
constexpr std::array<std::size_t, 4> kHyphenPositions{8, 13, 18, 23};
constexpr std::size_t kTextLength = 36;

}  // namespace

Uuid Uuid::random() {
  gchar* text = g_uuid_string_random();
  const std::optional<Uuid> uuid = fromString(text);
  g_free(text);
  return *uuid;  // GLib always writes the canonical form
}

std::optional<Uuid> Uuid::fromString(std::string_view text) noexcept {
  if (text.size() != kTextLength) return std::nullopt;
  Bytes bytes{};
  std::size_t byteIndex = 0;
  std::size_t hyphenIndex = 0;
  for (std::size_t position = 0; position < kTextLength;) {
    if (hyphenIndex < kHyphenPositions.size() && position == kHyphenPositions[hyphenIndex]) {
      if (text[position] != '-') return std::nullopt;
      ++hyphenIndex;
      ++position;
      continue;
    }
    const int high = g_ascii_xdigit_value(text[position]);
    const int low = g_ascii_xdigit_value(text[position + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes[byteIndex++] = static_cast<std::uint8_t>(high * 16 + low);
    position += 2;
  }
  return Uuid(bytes);
}

std::string Uuid::string() const {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(kTextLength);
  for (std::size_t index = 0; index < bytes_.size(); ++index) {
    if (index == 4 || index == 6 || index == 8 || index == 10) text += '-';
    text += kDigits[bytes_[index] >> 4];
    text += kDigits[bytes_[index] & 0x0F];
  }
  return text;
}

void to_json(nlohmann::json& json, const Uuid& uuid) {
  json = uuid.string();
}

void from_json(const nlohmann::json& json, Uuid& uuid) {
  const std::string text = decodeJSON<std::string>(json);
  const std::optional<Uuid> parsed = Uuid::fromString(text);
  if (!parsed) throw JSONDecodingError("Attempted to decode UUID from invalid UUID string.");
  uuid = *parsed;
}

}  // namespace tomekeeper

std::size_t std::hash<tomekeeper::Uuid>::operator()(const tomekeeper::Uuid& uuid) const noexcept {
  const auto& bytes = uuid.bytes();
  return std::hash<std::string_view>{}(
      std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}
