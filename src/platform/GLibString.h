#pragma once

#include <glib.h>

#include <string>
#include <utility>

namespace tomekeeper {

// Owns a string that GLib allocated and g_free releases (g_file_get_path, g_settings_get_string,
// g_strdup_printf and the like). Holds null when the call gave none. Any thread, like the string.
class GLibString {
 public:
  GLibString() = default;
  // Takes the caller's string, which may be null.
  explicit GLibString(char* text) noexcept : text_(text) {}
  GLibString(GLibString&& other) noexcept : text_(std::exchange(other.text_, nullptr)) {}
  GLibString& operator=(GLibString&& other) noexcept {
    if (this != &other) {
      g_free(text_);
      text_ = std::exchange(other.text_, nullptr);
    }
    return *this;
  }
  GLibString(const GLibString&) = delete;
  GLibString& operator=(const GLibString&) = delete;
  ~GLibString() { g_free(text_); }

  const char* get() const noexcept { return text_; }
  // For GLib calls that change the string in place (g_strstrip).
  char* data() noexcept { return text_; }
  explicit operator bool() const noexcept { return text_ != nullptr; }
  // A copy of the text; empty when null.
  std::string string() const { return text_ != nullptr ? std::string(text_) : std::string(); }

 private:
  char* text_ = nullptr;
};

}  // namespace tomekeeper
