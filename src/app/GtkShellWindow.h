#pragma once

#include <gtk/gtk.h>

#include <memory>
#include <stop_token>
#include <string>

#include "app/ShellWindow.h"
#include "platform/GObjectHandle.h"

namespace tomekeeper {

// A top-level window of the coordinator. It holds its GtkWindow for as long as the coordinator
// holds it, and tells the delegate once that it closes, whichever way it closes. It is the one
// cancellation owner of the window: every task the window starts takes lifetime(), which is
// stopped when the window closes (or goes without closing). Main thread only.
class GtkShellWindow : public ShellWindow, public std::enable_shared_from_this<GtkShellWindow> {
 public:
  // Takes its own reference to `window`.
  GtkShellWindow(ShellWindowDelegate& delegate, std::string identifier, GtkWindow* window);
  ~GtkShellWindow() override;
  GtkShellWindow(const GtkShellWindow&) = delete;
  GtkShellWindow& operator=(const GtkShellWindow&) = delete;

  const std::string& identifier() const override { return identifier_; }
  void setTitle(const std::string& title) override;
  void present() override;
  void close() override;
  WindowFrame frame() const override;
  bool isVisible() const override;

  GtkWindow* window() const { return window_.get(); }

  // Gives the GtkWindow to a window that takes this one's place on the screen (the reader
  // window of the book this window was made for while it was prepared): its tasks stop, its
  // views let go, its delegate hears nothing, and this handle does nothing from then on. Empty
  // when the window has closed.
  GObjectHandle<GtkWindow> handOver();

 protected:
  // The window is going: views let go of what they observe. Its tasks are stopped already.
  virtual void windowClosing() {}
  std::stop_token lifetime() const { return lifetime_.get_token(); }

 private:
  void announceClose();
  static gboolean handleCloseRequest(GtkWindow*, gpointer data);
  static void handleResize(GtkWindow*, GParamSpec*, gpointer data);

  ShellWindowDelegate& delegate_;
  std::string identifier_;
  GObjectHandle<GtkWindow> window_;
  std::stop_source lifetime_;
  bool closed_ = false;
};

// The main menu's button of a header bar, showing `menu`.
GtkWidget* makeMainMenuButton(GMenuModel* menu);

// Gives `window` the shortcuts window of the whole application, shown by Ctrl+? and the main
// menu's "Keyboard Shortcuts" (win.show-help-overlay).
void installShortcutsWindow(GtkWindow* window);

}  // namespace tomekeeper
