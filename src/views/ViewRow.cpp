#include "views/ViewRow.h"

struct _TomekeeperViewRow {
  GObject parentInstance;
  std::any* value;
};

G_DEFINE_FINAL_TYPE(TomekeeperViewRow, tomekeeper_view_row, G_TYPE_OBJECT)

namespace {

void finalizeViewRow(GObject* object) {
  delete TOMEKEEPER_VIEW_ROW(object)->value;
  G_OBJECT_CLASS(tomekeeper_view_row_parent_class)->finalize(object);
}

}  // namespace

static void tomekeeper_view_row_class_init(TomekeeperViewRowClass* rowClass) {
  G_OBJECT_CLASS(rowClass)->finalize = finalizeViewRow;
}

static void tomekeeper_view_row_init(TomekeeperViewRow* row) {
  row->value = new std::any;
}

namespace tomekeeper::views {

GObjectHandle<TomekeeperViewRow> makeViewRow(std::any value) {
  auto row = GObjectHandle<TomekeeperViewRow>::adopt(
      TOMEKEEPER_VIEW_ROW(g_object_new(tomekeeper_view_row_get_type(), nullptr)));
  *row.get()->value = std::move(value);
  return row;
}

const std::any& viewRowValue(gpointer item) {
  return *TOMEKEEPER_VIEW_ROW(item)->value;
}

}  // namespace tomekeeper::views
