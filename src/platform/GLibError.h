#pragma once

#include <glib.h>

#include <utility>

namespace tomekeeper {

// Owns the GError that a GLib call reports through its last argument: pass out() to the call,
// read it afterwards, and it is freed with the holder. Any thread, like the error.
class GLibError {
 public:
  GLibError() = default;
  GLibError(const GLibError&) = delete;
  GLibError& operator=(const GLibError&) = delete;
  ~GLibError() {
    if (error_ != nullptr) g_error_free(error_);
  }

  // For the call's GError** argument; an error already held is freed first.
  GError** out() noexcept {
    if (error_ != nullptr) g_error_free(std::exchange(error_, nullptr));
    return &error_;
  }
  explicit operator bool() const noexcept { return error_ != nullptr; }
  // The error's text; empty when there is no error.
  const char* message() const noexcept { return error_ != nullptr ? error_->message : ""; }

 private:
  GError* error_ = nullptr;
};

}  // namespace tomekeeper
