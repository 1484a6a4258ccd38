#pragma once

#include <glib-object.h>

#include <utility>

namespace tomekeeper {

// Owns one strong reference to a GObject. adopt() takes a reference the caller already owns
// (a floating one is sunk); retain() adds one. Main executor, like the objects it holds.
template <typename Object>
class GObjectHandle {
 public:
  GObjectHandle() = default;
  static GObjectHandle adopt(Object* object) {
    GObjectHandle handle;
    if (object != nullptr && g_object_is_floating(object)) g_object_ref_sink(object);
    handle.object_ = object;
    return handle;
  }
  static GObjectHandle retain(Object* object) {
    GObjectHandle handle;
    handle.object_ = object == nullptr ? nullptr : static_cast<Object*>(g_object_ref_sink(object));
    return handle;
  }
  GObjectHandle(GObjectHandle&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  GObjectHandle& operator=(GObjectHandle&& other) noexcept {
    if (this != &other) {
      reset();
      object_ = std::exchange(other.object_, nullptr);
    }
    return *this;
  }
  GObjectHandle(const GObjectHandle&) = delete;
  GObjectHandle& operator=(const GObjectHandle&) = delete;
  ~GObjectHandle() { reset(); }

  void reset() {
    if (object_ != nullptr) g_object_unref(std::exchange(object_, nullptr));
  }
  Object* get() const noexcept { return object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }

 private:
  Object* object_ = nullptr;
};

// A weak reference to a GObject that reads as null once the object is finalized.
template <typename Object>
class GObjectWeakReference {
 public:
  explicit GObjectWeakReference(Object* object) { g_weak_ref_init(&reference_, object); }
  GObjectWeakReference(const GObjectWeakReference&) = delete;
  GObjectWeakReference& operator=(const GObjectWeakReference&) = delete;
  ~GObjectWeakReference() { g_weak_ref_clear(&reference_); }

  // A strong reference when the object is still alive, else an empty handle.
  GObjectHandle<Object> lock() const {
    return GObjectHandle<Object>::adopt(
        static_cast<Object*>(g_weak_ref_get(const_cast<GWeakRef*>(&reference_))));
  }

 private:
  GWeakRef reference_;
};

}  // namespace tomekeeper
