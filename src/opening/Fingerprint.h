#pragma once

#include <span>
#include <string>
#include <string_view>

namespace tomekeeper {

// A fingerprint is the SHA-256 of a book's file as 64 lower-case hexadecimal
// characters. Only that exact form is valid; the test is what makes a
// fingerprint safe to use as a directory name.
constexpr bool isValidFingerprint(std::string_view text) noexcept {
  if (text.size() != 64) return false;
  for (char character : text) {
    const bool digit = character >= '0' && character <= '9';
    const bool letter = character >= 'a' && character <= 'f';
    if (!digit && !letter) return false;
  }
  return true;
}

// The fingerprint of a SHA-256 digest.
inline std::string fingerprintText(std::span<const unsigned char> digest) {
  static constexpr char kHex[] = "0123456789abcdef";
  std::string text;
  text.reserve(digest.size() * 2);
  for (const unsigned char byte : digest) {
    text += kHex[byte >> 4];
    text += kHex[byte & 0x0f];
  }
  return text;
}

}  // namespace tomekeeper
