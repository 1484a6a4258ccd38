#include "app/ReadingCommands.h"

#include <string>

namespace tomekeeper {

std::span<const ReadingCommand> readingCommands() {
  static const std::vector<ReadingCommand> commands = {
      {"Previous Page", "win.previous-page", {"<Control>bracketleft"}},
      {"Next Page", "win.next-page", {"<Control>bracketright"}},
      {"Toggle Sidebar", "win.toggle-sidebar", {"<Control><Alt>s", "F9"}},
      {"Show Contents", "win.show-contents", {"<Control>1"}},
      {"Decrease Text Size", "win.decrease-text-size", {"<Control>minus"}},
      {"Increase Text Size", "win.increase-text-size", {"<Control>plus", "<Control>equal"}},
      {"Search Book", "win.search", {"<Control>f"}},
      {"Toggle Full Screen", "win.toggle-fullscreen", {"F11"}},
      {"Toggle Reading Controls", "win.toggle-reading-controls", {"<Control><Shift>f"}},
  };
  return commands;
}

GMenu* makeReadingMenu() {
  GMenu* menu = g_menu_new();
  for (const ReadingCommand& command : readingCommands()) {
    g_menu_append(menu, command.title, command.action);
  }
  return menu;
}

GtkShortcutsWindow* makeReadingShortcutsWindow() {
  // GTK 4.8 fills a shortcuts window only through GtkBuilder; the definition is made from the
  // table, every text escaped by GLib.
  std::string definition =
      "<interface><object class=\"GtkShortcutsWindow\" id=\"window\"><property name=\"modal\">"
      "1</property><child><object class=\"GtkShortcutsSection\"><property name=\"section-name\">"
      "reading</property><child><object class=\"GtkShortcutsGroup\"><property name=\"title\">"
      "Reading</property>";
  for (const ReadingCommand& command : readingCommands()) {
    std::string keys;
    for (const char* key : command.keys) keys += (keys.empty() ? "" : " ") + std::string(key);
    gchar* shortcut = g_markup_printf_escaped(
        "<child><object class=\"GtkShortcutsShortcut\"><property name=\"title\">%s</property>"
        "<property name=\"accelerator\">%s</property></object></child>",
        command.title, keys.c_str());
    definition += shortcut;
    g_free(shortcut);
  }
  definition += "</object></child></object></child></object></interface>";
  GtkBuilder* builder = gtk_builder_new_from_string(definition.c_str(), -1);
  auto* window = GTK_SHORTCUTS_WINDOW(g_object_ref(gtk_builder_get_object(builder, "window")));
  g_object_unref(builder);
  return window;
}

}  // namespace tomekeeper
