#include "app/GtkShellWindow.h"

#include <utility>

#include "app/ReadingCommands.h"
#include "views/ViewSupport.h"

namespace tomekeeper {

GtkShellWindow::GtkShellWindow(ShellWindowDelegate& delegate, std::string identifier,
                               GtkWindow* window)
    : delegate_(delegate),
      identifier_(std::move(identifier)),
      window_(GObjectHandle<GtkWindow>::retain(window)) {
  g_signal_connect(window_.get(), "close-request", G_CALLBACK(handleCloseRequest), this);
  g_signal_connect(window_.get(), "notify::default-width", G_CALLBACK(handleResize), this);
  g_signal_connect(window_.get(), "notify::default-height", G_CALLBACK(handleResize), this);
  g_signal_connect(window_.get(), "notify::maximized", G_CALLBACK(handleResize), this);
}

GtkShellWindow::~GtkShellWindow() {
  lifetime_.request_stop();
  g_signal_handlers_disconnect_by_data(window_.get(), this);
  if (!closed_) gtk_window_destroy(window_.get());
}

void GtkShellWindow::setTitle(const std::string& title) {
  gtk_window_set_title(window_.get(), title.c_str());
}

void GtkShellWindow::present() {
  if (!closed_) gtk_window_present(window_.get());
}

void GtkShellWindow::close() {
  if (closed_) return;
  const auto keepAlive = shared_from_this();
  announceClose();
  gtk_window_destroy(window_.get());
}

GObjectHandle<GtkWindow> GtkShellWindow::handOver() {
  if (closed_) return {};
  closed_ = true;
  lifetime_.request_stop();
  windowClosing();
  g_signal_handlers_disconnect_by_data(window_.get(), this);
  return GObjectHandle<GtkWindow>::retain(window_.get());
}

WindowFrame GtkShellWindow::frame() const {
  int width = 0;
  int height = 0;
  gtk_window_get_default_size(window_.get(), &width, &height);
  return WindowFrame{width, height, gtk_window_is_maximized(window_.get()) != FALSE};
}

bool GtkShellWindow::isVisible() const {
  return !closed_ && gtk_widget_get_visible(GTK_WIDGET(window_.get()));
}

void GtkShellWindow::announceClose() {
  closed_ = true;
  lifetime_.request_stop();
  windowClosing();
  delegate_.windowWillClose(*this);
}

gboolean GtkShellWindow::handleCloseRequest(GtkWindow*, gpointer data) {
  auto* self = static_cast<GtkShellWindow*>(data);
  if (self->closed_) return FALSE;
  // The delegate may drop the last reference to this window.
  const auto keepAlive = self->shared_from_this();
  self->announceClose();
  return FALSE;
}

void GtkShellWindow::handleResize(GtkWindow*, GParamSpec*, gpointer data) {
  auto* self = static_cast<GtkShellWindow*>(data);
  if (!self->closed_) self->delegate_.windowDidResize(*self);
}

GtkWidget* makeMainMenuButton(GMenuModel* menu) {
  GtkWidget* button = gtk_menu_button_new();
  gtk_menu_button_set_icon_name(GTK_MENU_BUTTON(button), "open-menu-symbolic");
  gtk_menu_button_set_menu_model(GTK_MENU_BUTTON(button), menu);
  gtk_widget_set_tooltip_text(button, "Main Menu");
  views::setAccessibleLabel(button, "Main Menu");
  return button;
}

void installShortcutsWindow(GtkWindow* window) {
  const auto shortcuts = GObjectHandle<GtkShortcutsWindow>::adopt(makeShortcutsWindow());
  gtk_application_window_set_help_overlay(GTK_APPLICATION_WINDOW(window), shortcuts.get());
}

}  // namespace tomekeeper
