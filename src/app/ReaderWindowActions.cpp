#include "app/ReaderWindowActions.h"

namespace tomekeeper {

std::span<const ReaderWindowAction> readerWindowActions() {
  using enum ShortcutGroup;
  using enum ReaderWindowActionKind;
  using Menu = ReaderWindowMenu;
  using Commands = ReaderWindowCommands;
  // One action a line or two, in the order of their menus.
  // clang-format off
  static const std::vector<ReaderWindowAction> actions = {
      {"previous-page", "Previous Page", {"<Control>bracketleft"}, navigation, Menu::reading,
       plain, &Commands::previousPage},
      {"next-page", "Next Page", {"<Control>bracketright"}, navigation, Menu::reading, plain,
       &Commands::nextPage},
      {"go-back", "Back", {"<Alt>Left"}, navigation, Menu::reading, plain, &Commands::goBack},
      {"go-forward", "Forward", {"<Alt>Right"}, navigation, Menu::reading, plain,
       &Commands::goForward},
      {"toggle-sidebar", "Toggle Sidebar", {"<Control><Alt>s", "F9"}, panels, Menu::reading, plain,
       &Commands::toggleSidebar},
      {"show-contents", "Show Contents", {"<Control>1"}, panels, Menu::reading, plain,
       &Commands::showContents},
      {"decrease-text-size", "Decrease Text Size", {"<Control>minus"}, reading, Menu::reading,
       plain, &Commands::decreaseTextSize},
      {"increase-text-size", "Increase Text Size", {"<Control>plus", "<Control>equal"}, reading,
       Menu::reading, plain, &Commands::increaseTextSize},
      {"search", "Search Book", {"<Control>f"}, panels, Menu::reading, plain, &Commands::search},
      {"toggle-fullscreen", "Toggle Full Screen", {"F11"}, reading, Menu::reading, plain,
       &Commands::toggleFullScreen},
      {"toggle-reading-controls", "Toggle Reading Controls", {"<Control><Shift>f"}, reading,
       Menu::reading, toggle, &Commands::toggleReadingControls},
      {"toggle-fonts", nullptr, {}, reading, Menu::none, plain, &Commands::toggleFonts},
      {"toggle-bookmark", nullptr, {}, reading, Menu::none, plain, &Commands::toggleBookmark},
      {"highlight-selection", nullptr, {}, reading, Menu::none, plain,
       &Commands::highlightSelection},
      {"book-safety", "Book Safety", {}, reading, Menu::book, plain, &Commands::showBookSafety},
      {"close-book", "Close Book", {}, reading, Menu::book, plain, &Commands::closeBook},
      {"export-highlights", "Export Highlights\u2026", {}, reading, Menu::book, plain,
       &Commands::exportHighlights},
      {"restore-reading-data", "Restore Reading Data\u2026", {}, reading, Menu::book, plain,
       &Commands::restoreReadingData},
      {"clear-reading-data", "Delete This Book\u2019s Reading History\u2026", {}, reading,
       Menu::book, plain, &Commands::clearReadingData},
      {"show-sidebar-section", nullptr, {}, panels, Menu::none, withText, nullptr,
       &Commands::showSidebarSection},
      {"edit-note", nullptr, {}, reading, Menu::none, withText, nullptr, &Commands::editNote},
      {"reading-theme", nullptr, {}, reading, Menu::none, choice, nullptr,
       &Commands::chooseReadingTheme, &Commands::readingTheme},
      {"reading-mode", nullptr, {}, reading, Menu::none, choice, nullptr,
       &Commands::chooseReadingMode, &Commands::readingMode},
      {"page-layout", nullptr, {}, reading, Menu::none, choice, nullptr,
       &Commands::choosePageLayout, &Commands::pageLayout},
      {"scroll-width", nullptr, {}, reading, Menu::none, choice, nullptr,
       &Commands::chooseScrollWidth, &Commands::scrollWidth},
  };
  // clang-format on
  return actions;
}

namespace {

// What each action's signal handler needs; freed with the action's closure.
struct Binding {
  ReaderWindowCommands* commands;
  const ReaderWindowAction* action;
};

void activateAction(GSimpleAction*, GVariant* parameter, gpointer data) {
  const auto* binding = static_cast<Binding*>(data);
  const ReaderWindowAction& action = *binding->action;
  if (action.activate != nullptr) {
    (binding->commands->*action.activate)();
  } else if (parameter != nullptr) {
    (binding->commands->*action.activateWithText)(g_variant_get_string(parameter, nullptr));
  }
}

void freeBinding(gpointer data, GClosure*) {
  delete static_cast<Binding*>(data);
}

}  // namespace

std::vector<GObjectHandle<GSimpleAction>> installReaderWindowActions(
    GActionMap* map, ReaderWindowCommands& commands) {
  std::vector<GObjectHandle<GSimpleAction>> installed;
  for (const ReaderWindowAction& action : readerWindowActions()) {
    GSimpleAction* made = nullptr;
    switch (action.kind) {
      case ReaderWindowActionKind::plain:
        made = g_simple_action_new(action.name, nullptr);
        break;
      case ReaderWindowActionKind::toggle:
        made = g_simple_action_new_stateful(action.name, nullptr, g_variant_new_boolean(FALSE));
        break;
      case ReaderWindowActionKind::withText:
        made = g_simple_action_new(action.name, G_VARIANT_TYPE_STRING);
        break;
      case ReaderWindowActionKind::choice:
        // Asking for a value goes to the session; the state follows the session's answer, so
        // a refused choice leaves the old value checked.
        made = g_simple_action_new_stateful(
            action.name, G_VARIANT_TYPE_STRING,
            g_variant_new_string((commands.*action.currentChoice)().c_str()));
        break;
    }
    const char* signal =
        action.kind == ReaderWindowActionKind::choice ? "change-state" : "activate";
    g_signal_connect_data(made, signal, G_CALLBACK(activateAction), new Binding{&commands, &action},
                          freeBinding, static_cast<GConnectFlags>(0));
    g_action_map_add_action(map, G_ACTION(made));
    installed.push_back(GObjectHandle<GSimpleAction>::adopt(made));
  }
  return installed;
}

}  // namespace tomekeeper
