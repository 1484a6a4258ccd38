#pragma once

#include <cstddef>
#include <deque>
#include <optional>

#include "model/Locator.h"

namespace tomekeeper {

// Where the reader was before each jump (a link, a contents entry, a search result, a bookmark, a
// highlight), for Back and Forward. It belongs to one window's session and is never saved. Holds
// at most kMaximumEntries places each way; the oldest go first. A value; main executor only.
class NavigationHistory {
 public:
  static constexpr std::size_t kMaximumEntries = 100;

  // A jump from `origin`: Back returns there, and what Forward held is dropped.
  void recordJump(Locator origin);
  // The place Back goes to from `current`, which Forward then returns to; none when there is
  // nowhere to go back to.
  std::optional<Locator> back(Locator current);
  // The place Forward goes to from `current`, which Back then returns to.
  std::optional<Locator> forward(Locator current);

  bool canGoBack() const noexcept { return !backward_.empty(); }
  bool canGoForward() const noexcept { return !onward_.empty(); }

 private:
  std::deque<Locator> backward_;
  std::deque<Locator> onward_;
};

// What the window's Back and Forward may do now.
struct NavigationAvailability {
  bool canGoBack = false;
  bool canGoForward = false;

  bool operator==(const NavigationAvailability&) const = default;
};

}  // namespace tomekeeper
