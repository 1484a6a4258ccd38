#include "app/ReadingCommands.h"

#include <string>

#include "app/ApplicationActions.h"
#include "app/ReaderWindowActions.h"
#include "platform/GLibString.h"
#include "platform/GObjectHandle.h"

namespace tomekeeper {

std::span<const ReadingCommand> readerWindowCommands() {
  static const std::vector<ReadingCommand> commands =
      describeActionTable(readerWindowActions(), "win");
  return commands;
}

std::span<const ReadingCommand> applicationCommands() {
  static const std::vector<ReadingCommand> commands = [] {
    std::vector<ReadingCommand> described = describeActionTable(applicationActions(), "app");
    // GTK's own window actions.
    described.push_back({"Keyboard Shortcuts",
                         "win.show-help-overlay",
                         {"<Control>question"},
                         ShortcutGroup::general});
    described.push_back({"Close Window", "window.close", {"<Control>w"}, ShortcutGroup::general});
    return described;
  }();
  return commands;
}

std::span<const ReadingCommand> readerWindowKeys() {
  using enum ShortcutGroup;
  static const std::vector<ReadingCommand> keys = {
      {"Turn Page Back", "", {"Page_Up"}, navigation},
      {"Turn Page Forward", "", {"Page_Down"}, navigation},
      {"Show Hidden Reading Controls", "", {"Escape"}, reading},
  };
  return keys;
}

GMenu* makeReadingMenu() {
  GMenu* menu = g_menu_new();
  for (const ReaderWindowAction& action : readerWindowActions()) {
    if (action.menu != ReaderWindowMenu::reading) continue;
    g_menu_append(menu, action.title, (std::string("win.") + action.name).c_str());
  }
  return menu;
}

namespace {

struct GroupTitle {
  ShortcutGroup group;
  const char* title;
};
constexpr GroupTitle kGroupTitles[] = {
    {ShortcutGroup::general, "General"},
    {ShortcutGroup::navigation, "Navigation"},
    {ShortcutGroup::reading, "Reading"},
    {ShortcutGroup::panels, "Panels"},
};

}  // namespace

GtkShortcutsWindow* makeShortcutsWindow() {
  // GTK 4.8 fills a shortcuts window only through GtkBuilder; the definition is made from the
  // tables, every text escaped by GLib.
  std::string definition =
      "<interface><object class=\"GtkShortcutsWindow\" id=\"window\"><property name=\"modal\">"
      "1</property><child><object class=\"GtkShortcutsSection\"><property name=\"section-name\">"
      "shortcuts</property>";
  const std::span<const ReadingCommand> tables[] = {applicationCommands(), readerWindowCommands(),
                                                    readerWindowKeys()};
  for (const GroupTitle& group : kGroupTitles) {
    definition +=
        GLibString(g_markup_printf_escaped(
                       "<child><object class=\"GtkShortcutsGroup\"><property name=\"title\">%s"
                       "</property>",
                       group.title))
            .string();
    for (const std::span<const ReadingCommand>& table : tables) {
      for (const ReadingCommand& command : table) {
        if (command.group != group.group || command.keys.empty()) continue;
        std::string keys;
        for (const char* key : command.keys) keys += (keys.empty() ? "" : " ") + std::string(key);
        definition += GLibString(g_markup_printf_escaped(
                                     "<child><object class=\"GtkShortcutsShortcut\"><property "
                                     "name=\"title\">%s</property><property name=\"accelerator\">%s"
                                     "</property></object></child>",
                                     command.title, keys.c_str()))
                          .string();
      }
    }
    definition += "</object></child>";
  }
  definition += "</object></child></object></interface>";
  const auto builder =
      GObjectHandle<GtkBuilder>::adopt(gtk_builder_new_from_string(definition.c_str(), -1));
  return GTK_SHORTCUTS_WINDOW(g_object_ref(gtk_builder_get_object(builder.get(), "window")));
}

}  // namespace tomekeeper
