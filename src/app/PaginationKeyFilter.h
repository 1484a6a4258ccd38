#pragma once

#include <cstdint>
#include <optional>
#include <set>

#include "app/ReaderSessionHandle.h"

namespace tomekeeper {

enum class KeyTransition { down, up };

// A key event as the reader window sees it: its key value, hardware key code and modifiers.
struct KeyEventDescription {
  KeyTransition transition = KeyTransition::down;
  std::uint32_t keyValue = 0;
  std::uint32_t keyCode = 0;
  // True when Shift, Control, Alt, Super or Meta is held.
  bool hasModifiers = false;
};

enum class KeyDisposition { passOn, taken };

// Page Up and Page Down of a reader window. A held key turns one page: its repeats (key-downs
// without a key-up between them) go on to the view. A key-up whose key-down this window never
// saw (it went to another window) counts as one press. A page key with a modifier is not a page
// key. Main executor only; one per window.
class PaginationKeyFilter {
 public:
  // `handle` answers whether the page key was taken.
  template <typename Handler>
  KeyDisposition filter(const KeyEventDescription& event, Handler&& handle) {
    const std::optional<PageKeyDirection> direction = classify(event);
    if (!direction) return KeyDisposition::passOn;
    if (event.transition == KeyTransition::up) {
      // Its key-down has acted already.
      if (paginationKeysSeenDown_.erase(event.keyCode) > 0) return KeyDisposition::taken;
    } else if (!paginationKeysSeenDown_.insert(event.keyCode).second) {
      return KeyDisposition::passOn;  // A repeat.
    }
    return handle(*direction) ? KeyDisposition::taken : KeyDisposition::passOn;
  }

  // The direction of a page key without modifiers.
  static std::optional<PageKeyDirection> classify(const KeyEventDescription& event);

  const std::set<std::uint32_t>& paginationKeysSeenDown() const { return paginationKeysSeenDown_; }

 private:
  std::set<std::uint32_t> paginationKeysSeenDown_;
};

}  // namespace tomekeeper
