#pragma once

#include <gtk/gtk.h>

#include <span>
#include <vector>

namespace tomekeeper {

// One item of the Reading menu: its title, its window action and the keys that trigger it
// (GTK accelerator syntax, the first one shown in menus).
struct ReadingCommand {
  const char* title;
  const char* action;
  std::vector<const char*> keys;
};

// The Reading menu's items in menu order. The menu, the application's accelerators and the
// shortcuts window are all made from this one table, so they cannot disagree.
std::span<const ReadingCommand> readingCommands();

// A new Reading menu; the caller owns the reference.
GMenu* makeReadingMenu();

// A new shortcuts window listing the Reading menu's commands with their keys, for
// gtk_application_window_set_help_overlay (which adds its own reference); the caller owns one
// reference. Main thread, after gtk_init.
GtkShortcutsWindow* makeReadingShortcutsWindow();

}  // namespace tomekeeper
