#pragma once

#include <gio/gio.h>

#include "platform/GObjectHandle.h"

namespace tomekeeper {

// The reader window's "Reading Options" menu: one section per choice (theme, mode, page layout,
// scroll width), one radio item per value, each the target of the stateful window action of that
// name; then the controls toggle and the book's actions.
GObjectHandle<GMenu> makeReadingOptionsMenu();

}  // namespace tomekeeper
