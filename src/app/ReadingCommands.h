#pragma once

#include <gtk/gtk.h>

#include <span>
#include <string>
#include <vector>

namespace tomekeeper {

// The groups of the shortcuts window, in the order it shows them.
enum class ShortcutGroup { general, navigation, reading, panels };

// One command with its keys, as menus and the shortcuts window show it: its title, its detailed
// action (application or window action; empty for a key the reader window handles itself) and
// the keys that trigger it (GTK accelerator syntax, the first one shown in menus).
struct ReadingCommand {
  const char* title;
  std::string action;
  std::vector<const char*> keys;
  ShortcutGroup group;
};

// The reader window's actions that have keys or a menu title (ReaderWindowActions.h), in menu
// order, as "win." actions.
std::span<const ReadingCommand> readerWindowCommands();

// The application's keys: its actions that have a title (ApplicationActions.h), and GTK's own
// window actions that the main menu and the keys reach.
std::span<const ReadingCommand> applicationCommands();

// Keys the reader window reads itself, without an action: the page keys and Escape.
std::span<const ReadingCommand> readerWindowKeys();

// A new Reading menu: the reader window's actions of that menu, in table order; the caller owns
// the reference.
GMenu* makeReadingMenu();

// A new shortcuts window listing every key of the three tables above in its group, for
// gtk_application_window_set_help_overlay (which adds its own reference); the caller owns one
// reference. The menus, the application's accelerators and this window are all made from the
// same tables, so they cannot disagree. Main thread, after gtk_init.
GtkShortcutsWindow* makeShortcutsWindow();

}  // namespace tomekeeper
