#pragma once

#include <cstdint>
#include <optional>
#include <set>

#include "session/ReaderNavigationDirection.h"

namespace tomekeeper {

enum class KeyTransition { down, up };

// Which modifiers a key event carries: Shift alone, or a command modifier (Control, Alt, Super or
// Meta, with or without Shift).
enum class KeyModifiers { none, shift, command };

// A key event as the reader window sees it: its key value, hardware key code and modifiers.
struct KeyEventDescription {
  KeyTransition transition = KeyTransition::down;
  std::uint32_t keyValue = 0;
  std::uint32_t keyCode = 0;
  KeyModifiers modifiers = KeyModifiers::none;
};

enum class KeyDisposition { passOn, taken };

// The keys a filter reads. The page keys (Page Up, Page Down, without modifiers) are read
// window-wide before any widget sees them; the view's keys (Space forward, Shift+Space back,
// Left and Right toward their side, none with a command modifier) only when the web view has the
// focus, after the page.
enum class PaginationKeys { pageKeys, viewKeys };

// The one rule for a held key: only its first key-down acts, and its repeats (key-downs without a
// key-up between them) go on to the view, so a held key turns one page. The page keys also count
// a key-up whose key-down this window never saw (it went to another window) as one press. Main
// executor only; one per window and key set.
class PaginationKeyFilter {
 public:
  explicit PaginationKeyFilter(PaginationKeys keys) : keys_(keys) {}

  // `handle` answers whether the key was taken.
  template <typename Handler>
  KeyDisposition filter(const KeyEventDescription& event, Handler&& handle) {
    const std::optional<ReaderNavigationDirection> direction = classify(keys_, event);
    if (!direction) return KeyDisposition::passOn;
    if (event.transition == KeyTransition::up) {
      // Its key-down has acted already.
      if (keysSeenDown_.erase(event.keyCode) > 0) return KeyDisposition::taken;
      if (keys_ == PaginationKeys::viewKeys) return KeyDisposition::passOn;
    } else if (!keysSeenDown_.insert(event.keyCode).second) {
      return KeyDisposition::passOn;  // A repeat.
    }
    return handle(*direction) ? KeyDisposition::taken : KeyDisposition::passOn;
  }

  // The direction of a key of `keys`; none for any other key.
  static std::optional<ReaderNavigationDirection> classify(PaginationKeys keys,
                                                           const KeyEventDescription& event);

  const std::set<std::uint32_t>& keysSeenDown() const { return keysSeenDown_; }

 private:
  PaginationKeys keys_;
  std::set<std::uint32_t> keysSeenDown_;
};

}  // namespace tomekeeper
