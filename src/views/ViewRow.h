#pragma once

#include <glib-object.h>

#include <any>
#include <utility>

#include "platform/GObjectHandle.h"

G_BEGIN_DECLS
// An item of a list model that carries one C++ value for a list view row.
G_DECLARE_FINAL_TYPE(TomekeeperViewRow, tomekeeper_view_row, TOMEKEEPER, VIEW_ROW, GObject)
G_END_DECLS

namespace tomekeeper::views {

// A new row item holding `value`; the caller owns the returned reference.
GObjectHandle<TomekeeperViewRow> makeViewRow(std::any value);

// The value a row item holds. Throws std::bad_any_cast for a value of another type.
const std::any& viewRowValue(gpointer item);

template <typename T>
const T& viewRowValueAs(gpointer item) {
  return std::any_cast<const T&>(viewRowValue(item));
}

}  // namespace tomekeeper::views
