#include "app/PaginationKeyFilter.h"

#include <gdk/gdkkeysyms.h>

namespace tomekeeper {

std::optional<PageKeyDirection> PaginationKeyFilter::classify(const KeyEventDescription& event) {
  if (event.hasModifiers) return std::nullopt;
  switch (event.keyValue) {
    case GDK_KEY_Page_Up:
    case GDK_KEY_KP_Page_Up:
      return PageKeyDirection::previous;
    case GDK_KEY_Page_Down:
    case GDK_KEY_KP_Page_Down:
      return PageKeyDirection::next;
    default:
      return std::nullopt;
  }
}

}  // namespace tomekeeper
