#include "app/PaginationKeyFilter.h"

#include <gdk/gdkkeysyms.h>

namespace tomekeeper {

namespace {

std::optional<ReaderNavigationDirection> classifyPageKey(const KeyEventDescription& event) {
  if (event.modifiers != KeyModifiers::none) return std::nullopt;
  switch (event.keyValue) {
    case GDK_KEY_Page_Up:
    case GDK_KEY_KP_Page_Up:
      return ReaderNavigationDirection::previous;
    case GDK_KEY_Page_Down:
    case GDK_KEY_KP_Page_Down:
      return ReaderNavigationDirection::next;
    default:
      return std::nullopt;
  }
}

std::optional<ReaderNavigationDirection> classifyViewKey(const KeyEventDescription& event) {
  if (event.modifiers == KeyModifiers::command) return std::nullopt;
  const bool shift = event.modifiers == KeyModifiers::shift;
  switch (event.keyValue) {
    case GDK_KEY_space:
      return shift ? ReaderNavigationDirection::previous : ReaderNavigationDirection::next;
    case GDK_KEY_Left:
      if (!shift) return ReaderNavigationDirection::towardLeft;
      return std::nullopt;
    case GDK_KEY_Right:
      if (!shift) return ReaderNavigationDirection::towardRight;
      return std::nullopt;
    default:
      return std::nullopt;
  }
}

}  // namespace

std::optional<ReaderNavigationDirection> PaginationKeyFilter::classify(
    PaginationKeys keys, const KeyEventDescription& event) {
  return keys == PaginationKeys::pageKeys ? classifyPageKey(event) : classifyViewKey(event);
}

}  // namespace tomekeeper
