#pragma once

#include <glib.h>

#include <utility>

namespace tomekeeper {

// Owns one strong reference to a GVariant. adopt() takes a reference the caller already owns (a
// floating one, as g_variant_new_* returns, is sunk); retain() adds one. A GVariant is immutable,
// so the holder may move between threads.
class GVariantHandle {
 public:
  GVariantHandle() = default;
  static GVariantHandle adopt(GVariant* variant) {
    GVariantHandle handle;
    handle.variant_ = variant != nullptr ? g_variant_take_ref(variant) : nullptr;
    return handle;
  }
  static GVariantHandle retain(GVariant* variant) {
    GVariantHandle handle;
    handle.variant_ = variant != nullptr ? g_variant_ref_sink(variant) : nullptr;
    return handle;
  }
  GVariantHandle(GVariantHandle&& other) noexcept
      : variant_(std::exchange(other.variant_, nullptr)) {}
  GVariantHandle& operator=(GVariantHandle&& other) noexcept {
    if (this != &other) {
      reset();
      variant_ = std::exchange(other.variant_, nullptr);
    }
    return *this;
  }
  GVariantHandle(const GVariantHandle&) = delete;
  GVariantHandle& operator=(const GVariantHandle&) = delete;
  ~GVariantHandle() { reset(); }

  void reset() {
    if (variant_ != nullptr) g_variant_unref(std::exchange(variant_, nullptr));
  }
  GVariant* get() const noexcept { return variant_; }
  explicit operator bool() const noexcept { return variant_ != nullptr; }

 private:
  GVariant* variant_ = nullptr;
};

}  // namespace tomekeeper
