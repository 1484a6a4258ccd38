#pragma once

#include <gtk/gtk.h>

#include <string>

#include "platform/GObjectHandle.h"
#include "views/ViewSupport.h"

namespace tomekeeper::views {

// Registers the views' compiled resources (their .ui files) with GIO. The first call does it,
// later calls return at once; any thread may call it. ViewBuilder calls it itself.
void registerViewResources();

// The objects of one view's .ui file under /org/tomekeeper/Tomekeeper/views/, built at once.
// The builder keeps the file's top-level objects alive only while it lives: a view takes a
// reference of its own to its root with root(), and the root keeps its children. A file that
// does not parse ends the process (GtkBuilder's own rule for resources); a missing object or
// one of another type is a defect of the .ui file and throws std::logic_error. Main executor
// only.
class ViewBuilder {
 public:
  // `fileName` is the .ui file's name, e.g. "PublicationSearchView.ui".
  explicit ViewBuilder(const std::string& fileName);

  GObject* object(const char* id) const;
  GtkWidget* widget(const char* id) const;
  // A new reference to the widget `id`, which outlives the builder.
  WidgetHandle root(const char* id) const;

 private:
  std::string fileName_;
  GObjectHandle<GtkBuilder> builder_;
};

}  // namespace tomekeeper::views
