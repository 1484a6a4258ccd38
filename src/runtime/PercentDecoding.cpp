#include "runtime/PercentDecoding.h"

#include <glib.h>

namespace tomekeeper {

std::optional<std::string> percentDecoded(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t position = 0; position < text.size(); ++position) {
    const char character = text[position];
    if (character == '\0') return std::nullopt;
    if (character != '%') {
      decoded += character;
      continue;
    }
    if (text.size() - position < 3) return std::nullopt;
    const int high = g_ascii_xdigit_value(text[position + 1]);
    const int low = g_ascii_xdigit_value(text[position + 2]);
    if (high < 0 || low < 0) return std::nullopt;
    const char byte = static_cast<char>(high * 16 + low);
    if (byte == '\0') return std::nullopt;
    decoded += byte;
    position += 2;
  }
  if (!g_utf8_validate(decoded.data(), static_cast<gssize>(decoded.size()), nullptr)) {
    return std::nullopt;
  }
  return decoded;
}

}  // namespace tomekeeper
