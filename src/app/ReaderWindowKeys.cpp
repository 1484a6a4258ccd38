#include "app/ReaderWindowKeys.h"

#include <utility>

namespace tomekeeper {

namespace {

KeyEventDescription describe(KeyTransition transition, guint keyValue, guint keyCode,
                             GdkModifierType state) {
  const auto command = static_cast<GdkModifierType>(GDK_CONTROL_MASK | GDK_ALT_MASK |
                                                    GDK_SUPER_MASK | GDK_META_MASK);
  const KeyModifiers modifiers = (state & command) != 0          ? KeyModifiers::command
                                 : (state & GDK_SHIFT_MASK) != 0 ? KeyModifiers::shift
                                                                 : KeyModifiers::none;
  return KeyEventDescription{transition, keyValue, keyCode, modifiers};
}

bool isBareEscape(guint keyValue, GdkModifierType state) {
  return keyValue == GDK_KEY_Escape && (state & gtk_accelerator_get_default_mod_mask()) == 0;
}

GObjectHandle<GtkEventController> addKeyController(GtkWidget* widget, GtkPropagationPhase phase,
                                                   GCallback pressed, GCallback released,
                                                   gpointer data) {
  auto controller = GObjectHandle<GtkEventController>::adopt(gtk_event_controller_key_new());
  gtk_event_controller_set_propagation_phase(controller.get(), phase);
  g_signal_connect(controller.get(), "key-pressed", pressed, data);
  g_signal_connect(controller.get(), "key-released", released, data);
  // The widget takes its own reference; the handle's keeps the controller for the disconnect.
  gtk_widget_add_controller(widget, GTK_EVENT_CONTROLLER(g_object_ref(controller.get())));
  return controller;
}

}  // namespace

ReaderWindowKeys::ReaderWindowKeys(GtkWindow* window, GtkWidget* webView, Handlers handlers)
    : handlers_(std::move(handlers)) {
  windowController_ =
      addKeyController(GTK_WIDGET(window), GTK_PHASE_CAPTURE, G_CALLBACK(handleWindowKeyPressed),
                       G_CALLBACK(handleWindowKeyReleased), this);
  if (webView == nullptr) return;
  webView_ = GObjectHandle<GtkWidget>::retain(webView);
  viewController_ = addKeyController(webView, GTK_PHASE_BUBBLE, G_CALLBACK(handleViewKeyPressed),
                                     G_CALLBACK(handleViewKeyReleased), this);
}

ReaderWindowKeys::~ReaderWindowKeys() {
  if (windowController_) g_signal_handlers_disconnect_by_data(windowController_.get(), this);
  if (viewController_) g_signal_handlers_disconnect_by_data(viewController_.get(), this);
}

KeyDisposition ReaderWindowKeys::filterPageKey(const KeyEventDescription& event) {
  return pageKeys_.filter(event, [this](ReaderNavigationDirection direction) {
    return handlers_.pageKey && handlers_.pageKey(direction);
  });
}

KeyDisposition ReaderWindowKeys::filterViewKey(const KeyEventDescription& event) {
  return viewKeys_.filter(event, [this](ReaderNavigationDirection direction) {
    if (!handlers_.navigationKey) return false;
    handlers_.navigationKey(direction);
    return true;
  });
}

gboolean ReaderWindowKeys::handleWindowKeyPressed(GtkEventControllerKey*, guint keyValue,
                                                  guint keyCode, GdkModifierType state,
                                                  gpointer data) {
  auto* self = static_cast<ReaderWindowKeys*>(data);
  if (isBareEscape(keyValue, state) && self->handlers_.showHiddenControls &&
      self->handlers_.showHiddenControls()) {
    return TRUE;
  }
  return self->filterPageKey(describe(KeyTransition::down, keyValue, keyCode, state)) ==
         KeyDisposition::taken;
}

void ReaderWindowKeys::handleWindowKeyReleased(GtkEventControllerKey*, guint keyValue,
                                               guint keyCode, GdkModifierType state,
                                               gpointer data) {
  static_cast<ReaderWindowKeys*>(data)->filterPageKey(
      describe(KeyTransition::up, keyValue, keyCode, state));
}

gboolean ReaderWindowKeys::handleViewKeyPressed(GtkEventControllerKey*, guint keyValue,
                                                guint keyCode, GdkModifierType state,
                                                gpointer data) {
  auto* self = static_cast<ReaderWindowKeys*>(data);
  if (isBareEscape(keyValue, state)) {
    if (GtkRoot* root = gtk_widget_get_root(self->webView_.get())) {
      gtk_root_set_focus(root, nullptr);
    }
    return TRUE;
  }
  return self->filterViewKey(describe(KeyTransition::down, keyValue, keyCode, state)) ==
         KeyDisposition::taken;
}

void ReaderWindowKeys::handleViewKeyReleased(GtkEventControllerKey*, guint keyValue, guint keyCode,
                                             GdkModifierType state, gpointer data) {
  static_cast<ReaderWindowKeys*>(data)->filterViewKey(
      describe(KeyTransition::up, keyValue, keyCode, state));
}

}  // namespace tomekeeper
