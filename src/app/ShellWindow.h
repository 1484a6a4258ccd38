#pragma once

#include <string>

namespace tomekeeper {

// The size a window takes on the screen. The desktop gives no window position (Wayland), so a
// window's frame is its size and whether it is maximized.
struct WindowFrame {
  int width = 0;
  int height = 0;
  bool isMaximized = false;
  bool operator==(const WindowFrame&) const = default;
};

class ShellWindow;

// What a window tells the coordinator that made it. Main executor only.
class ShellWindowDelegate {
 public:
  virtual ~ShellWindowDelegate() = default;
  // The window is closing, for whatever reason (the user, close(), application quit). Called
  // once per window.
  virtual void windowWillClose(ShellWindow& window) = 0;
  // The window's size or maximized state changed.
  virtual void windowDidResize(ShellWindow& window) = 0;
};

// A top-level window made by the coordinator: a reader window (its identifier is the book's
// fingerprint) or the empty open window (its identifier is empty). The platform object behind it
// is owned by the window system; this handle stays valid after the window has closed, and then
// does nothing. Main executor only.
class ShellWindow {
 public:
  virtual ~ShellWindow() = default;
  virtual const std::string& identifier() const = 0;
  virtual void setTitle(const std::string& title) = 0;
  // Shows the window, makes it the key window and brings it, and the application, to the front.
  virtual void present() = 0;
  // Closes the window; its delegate hears windowWillClose before this returns.
  virtual void close() = 0;
  virtual WindowFrame frame() const = 0;
  virtual bool isVisible() const = 0;
  // The share of its book prepared so far, from 0 to 1: a window made while its book is being
  // prepared shows it; other windows ignore it.
  virtual void showOpenProgress(double /*fraction*/) {}
};

}  // namespace tomekeeper
