#include "session/NavigationHistory.h"

#include <utility>

namespace tomekeeper {

namespace {

void pushBounded(std::deque<Locator>& places, Locator place) {
  places.push_back(std::move(place));
  if (places.size() > NavigationHistory::kMaximumEntries) places.pop_front();
}

}  // namespace

void NavigationHistory::recordJump(Locator origin) {
  pushBounded(backward_, std::move(origin));
  onward_.clear();
}

std::optional<Locator> NavigationHistory::back(Locator current) {
  if (backward_.empty()) return std::nullopt;
  Locator target = std::move(backward_.back());
  backward_.pop_back();
  pushBounded(onward_, std::move(current));
  return target;
}

std::optional<Locator> NavigationHistory::forward(Locator current) {
  if (onward_.empty()) return std::nullopt;
  Locator target = std::move(onward_.back());
  onward_.pop_back();
  pushBounded(backward_, std::move(current));
  return target;
}

}  // namespace tomekeeper
