#include "views/ViewResources.h"

#include <mutex>
#include <stdexcept>

extern "C" {
#include "tomekeeper-views-resources.h"
}

namespace tomekeeper::views {

namespace {

constexpr const char* kResourcePrefix = "/org/tomekeeper/Tomekeeper/views/";

}  // namespace

void registerViewResources() {
  // Registered by hand: the generated constructor would sit in an object file of a static
  // library that nothing references, and the linker would drop it.
  static std::once_flag registered;
  std::call_once(registered, [] { tomekeeper_views_register_resource(); });
}

ViewBuilder::ViewBuilder(const std::string& fileName) : fileName_(fileName) {
  registerViewResources();
  builder_ = GObjectHandle<GtkBuilder>::adopt(
      gtk_builder_new_from_resource((kResourcePrefix + fileName).c_str()));
}

GObject* ViewBuilder::object(const char* id) const {
  GObject* object = gtk_builder_get_object(builder_.get(), id);
  if (object == nullptr) {
    throw std::logic_error(fileName_ + " has no object \"" + id + "\"");
  }
  return object;
}

GtkWidget* ViewBuilder::widget(const char* id) const {
  GObject* found = object(id);
  if (!GTK_IS_WIDGET(found)) {
    throw std::logic_error(fileName_ + ": \"" + id + "\" is not a widget");
  }
  return GTK_WIDGET(found);
}

WidgetHandle ViewBuilder::root(const char* id) const {
  return WidgetHandle::retain(widget(id));
}

}  // namespace tomekeeper::views
