#include "views/ViewSupport.h"

#include <adwaita.h>

namespace tomekeeper::views {

SignalConnection::SignalConnection(gpointer instance, gulong handlerID) : handlerID_(handlerID) {
  instance_ = new GWeakRef;
  g_weak_ref_init(instance_, instance);
}

SignalConnection::SignalConnection(SignalConnection&& other) noexcept
    : instance_(std::exchange(other.instance_, nullptr)),
      handlerID_(std::exchange(other.handlerID_, 0)) {}

SignalConnection& SignalConnection::operator=(SignalConnection&& other) noexcept {
  if (this != &other) {
    disconnect();
    instance_ = std::exchange(other.instance_, nullptr);
    handlerID_ = std::exchange(other.handlerID_, 0);
  }
  return *this;
}

void SignalConnection::disconnect() {
  if (instance_ == nullptr) return;
  if (gpointer instance = g_weak_ref_get(instance_); instance != nullptr) {
    if (g_signal_handler_is_connected(instance, handlerID_)) {
      g_signal_handler_disconnect(instance, handlerID_);
    }
    g_object_unref(instance);
  }
  g_weak_ref_clear(instance_);
  delete std::exchange(instance_, nullptr);
  handlerID_ = 0;
}

SignalConnection connectSignal(gpointer instance, const char* signal, GCallback callback,
                               gpointer data) {
  return SignalConnection(instance, g_signal_connect(instance, signal, callback, data));
}

void ViewConnections::disconnectAll() {
  for (sigc::connection& connection : sessionSignals_) connection.disconnect();
  sessionSignals_.clear();
  signals_.clear();
}

GtkWidget* makeLabel(const std::string& text, std::initializer_list<const char*> cssClasses) {
  GtkWidget* label = gtk_label_new(text.c_str());
  gtk_label_set_xalign(GTK_LABEL(label), 0.0F);
  gtk_label_set_wrap(GTK_LABEL(label), TRUE);
  gtk_label_set_wrap_mode(GTK_LABEL(label), PANGO_WRAP_WORD_CHAR);
  for (const char* cssClass : cssClasses) gtk_widget_add_css_class(label, cssClass);
  return label;
}

GtkWidget* makeIconButton(const char* iconName, const std::string& accessibleLabel) {
  GtkWidget* button = gtk_button_new_from_icon_name(iconName);
  gtk_widget_set_tooltip_text(button, accessibleLabel.c_str());
  setAccessibleLabel(button, accessibleLabel);
  return button;
}

GtkWidget* makeTextButton(const std::string& label) {
  GtkWidget* button = gtk_button_new_with_label(label.c_str());
  setAccessibleLabel(button, label);
  return button;
}

GtkWidget* makeDeleteReadingDataDialog(GtkWindow* parent) {
  GtkWidget* dialog = adw_message_dialog_new(
      parent, "Delete Reading Progress and Annotations?",
      "This permanently deletes this book\u2019s reading position, bookmarks, highlights, and "
      "notes. The EPUB file and cached book files are not removed.");
  auto* messageDialog = ADW_MESSAGE_DIALOG(dialog);
  adw_message_dialog_add_responses(messageDialog, "cancel", "Cancel", kDeleteReadingDataResponse,
                                   "Delete Reading History", nullptr);
  adw_message_dialog_set_response_appearance(messageDialog, kDeleteReadingDataResponse,
                                             ADW_RESPONSE_DESTRUCTIVE);
  adw_message_dialog_set_default_response(messageDialog, "cancel");
  adw_message_dialog_set_close_response(messageDialog, "cancel");
  return dialog;
}

void setAccessibleLabel(GtkWidget* widget, const std::string& label) {
  gtk_accessible_update_property(GTK_ACCESSIBLE(widget), GTK_ACCESSIBLE_PROPERTY_LABEL,
                                 label.c_str(), -1);
}

void setLabelText(GtkWidget* label, const std::string& text) {
  gtk_label_set_text(GTK_LABEL(label), text.c_str());
}

void removeAllRows(GtkListBox* listBox) {
  while (GtkListBoxRow* row = gtk_list_box_get_row_at_index(listBox, 0)) {
    gtk_list_box_remove(listBox, GTK_WIDGET(row));
  }
}

}  // namespace tomekeeper::views
