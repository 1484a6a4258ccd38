#pragma once

#include <utility>

#include <sigc++/signal.h>

namespace tomekeeper {

class ReaderSession;

// One observable property of a reading session. Views read `value()` and connect to
// `changed()`; the signal fires on the main executor right after each store, so a handler that
// reads the property sees the new value. Every store announces itself, even one of an equal
// value. Only the session writes.
template <typename T>
class ObservableProperty {
 public:
  explicit ObservableProperty(T initial = T{}) : value_(std::move(initial)) {}
  ObservableProperty(const ObservableProperty&) = delete;
  ObservableProperty& operator=(const ObservableProperty&) = delete;

  const T& value() const noexcept { return value_; }
  const T& operator*() const noexcept { return value_; }
  const T* operator->() const noexcept { return &value_; }

  // Connect here to redraw. The connection outlives nothing: disconnect it before the view
  // goes, or hold it in a sigc::scoped_connection-like owner.
  sigc::signal<void()>& changed() const noexcept { return changed_; }

 private:
  friend class ReaderSession;

  void set(T value) {
    value_ = std::move(value);
    changed_.emit();
  }

  T value_;
  mutable sigc::signal<void()> changed_;
};

}  // namespace tomekeeper
