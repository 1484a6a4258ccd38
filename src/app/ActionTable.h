#pragma once

#include <gio/gio.h>

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "app/ReadingCommands.h"
#include "platform/GObjectHandle.h"

namespace tomekeeper {

// How an action is invoked: a plain command; a command whose boolean state the widget keeps (a
// check item); a command that takes a string naming what it acts on; or a choice whose string
// state is the current value (radio items), changed by asking for another.
enum class ActionKind { plain, toggle, withText, choice };

// One action of a widget's table, "<scope>.<name>": its title in menus and the shortcuts window
// (null when neither shows it), its keys (GTK accelerator syntax, the first one shown in menus)
// and their group, the menu that shows it (the widget's own enum), and its handler, a member of
// the widget's `Commands`: `activate` for plain and toggle actions, `activateWithText` for the
// others, and `currentChoice` for the state of a choice.
template <typename Commands, typename Menu>
struct WidgetAction {
  const char* name;
  const char* title;
  std::vector<const char*> accelerators;
  ShortcutGroup group;
  Menu menu;
  ActionKind kind;
  void (Commands::*activate)() = nullptr;
  void (Commands::*activateWithText)(std::string_view) = nullptr;
  std::string (Commands::*currentChoice)() const = nullptr;
};

// Installs every action of `table` on `map`, each calling `commands`, which must outlive the
// actions' use; the caller keeps the returned actions. Main thread only.
template <typename Commands, typename Menu>
std::vector<GObjectHandle<GSimpleAction>> installActionTable(
    GActionMap* map, std::span<const WidgetAction<Commands, Menu>> table, Commands& commands) {
  using Action = WidgetAction<Commands, Menu>;
  // What each action's signal handler needs; freed with the action's closure.
  struct Binding {
    Commands* commands;
    const Action* action;
  };
  const auto run = +[](GSimpleAction*, GVariant* parameter, gpointer data) {
    const auto* binding = static_cast<Binding*>(data);
    const Action& action = *binding->action;
    if (action.activate != nullptr) {
      (binding->commands->*action.activate)();
    } else if (parameter != nullptr) {
      (binding->commands->*action.activateWithText)(g_variant_get_string(parameter, nullptr));
    }
  };
  const auto release = +[](gpointer data, GClosure*) { delete static_cast<Binding*>(data); };
  std::vector<GObjectHandle<GSimpleAction>> installed;
  for (const Action& action : table) {
    GSimpleAction* made = nullptr;
    switch (action.kind) {
      case ActionKind::plain:
        made = g_simple_action_new(action.name, nullptr);
        break;
      case ActionKind::toggle:
        made = g_simple_action_new_stateful(action.name, nullptr, g_variant_new_boolean(FALSE));
        break;
      case ActionKind::withText:
        made = g_simple_action_new(action.name, G_VARIANT_TYPE_STRING);
        break;
      case ActionKind::choice:
        // Asking for a value goes to the commands; the widget sets the state when the value
        // really changes, so a refused choice leaves the old value checked.
        made = g_simple_action_new_stateful(
            action.name, G_VARIANT_TYPE_STRING,
            g_variant_new_string((commands.*action.currentChoice)().c_str()));
        break;
    }
    const char* signal = action.kind == ActionKind::choice ? "change-state" : "activate";
    g_signal_connect_data(made, signal, G_CALLBACK(run), new Binding{&commands, &action}, release,
                          static_cast<GConnectFlags>(0));
    g_action_map_add_action(map, G_ACTION(made));
    installed.push_back(GObjectHandle<GSimpleAction>::adopt(made));
  }
  return installed;
}

// The actions of `table` that have a title, as menus and the shortcuts window describe them,
// under `scope` ("win", "app").
template <typename Commands, typename Menu>
std::vector<ReadingCommand> describeActionTable(std::span<const WidgetAction<Commands, Menu>> table,
                                                std::string_view scope) {
  std::vector<ReadingCommand> described;
  for (const auto& action : table) {
    if (action.title == nullptr) continue;
    described.push_back(
        {action.title, std::string(scope) + "." + action.name, action.accelerators, action.group});
  }
  return described;
}

}  // namespace tomekeeper
