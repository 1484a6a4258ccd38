#include "app/ApplicationActions.h"

#include "app/ReadingCommands.h"

namespace tomekeeper {

std::span<const ApplicationAction> applicationActions() {
  using enum ShortcutGroup;
  using enum ActionKind;
  using Commands = ApplicationCommands;
  constexpr ApplicationMenu main = ApplicationMenu::main;
  // One action a line or two.
  // clang-format off
  static const std::vector<ApplicationAction> actions = {
      {"open", "Open", {"<Control>o"}, general, main, plain, &Commands::open},
      {"open-recent", nullptr, {}, general, main, withText, nullptr, &Commands::openRecent},
      {"clear-recent", nullptr, {}, general, main, plain, &Commands::clearRecent},
      {"settings", "Settings", {"<Control>comma"}, general, main, plain, &Commands::showSettings},
      {"about", nullptr, {}, general, main, plain, &Commands::showAbout},
      {"quit", "Quit", {"<Control>q"}, general, main, plain, &Commands::quit},
  };
  // clang-format on
  return actions;
}

std::vector<GObjectHandle<GSimpleAction>> installApplicationActions(GActionMap* map,
                                                                    ApplicationCommands& commands) {
  return installActionTable(map, applicationActions(), commands);
}

GObjectHandle<GMenu> makeMainMenu(GMenuModel* recentMenu) {
  auto menu = GObjectHandle<GMenu>::adopt(g_menu_new());
  const auto fileSection = GObjectHandle<GMenu>::adopt(g_menu_new());
  g_menu_append(fileSection.get(), "Open\u2026", "app.open");
  g_menu_append_submenu(fileSection.get(), "Open Recent", recentMenu);
  g_menu_append_section(menu.get(), nullptr, G_MENU_MODEL(fileSection.get()));
  const auto readingSection = GObjectHandle<GMenu>::adopt(g_menu_new());
  const auto readingMenu = GObjectHandle<GMenu>::adopt(makeReadingMenu());
  g_menu_append_submenu(readingSection.get(), "Reading", G_MENU_MODEL(readingMenu.get()));
  g_menu_append_section(menu.get(), nullptr, G_MENU_MODEL(readingSection.get()));
  const auto applicationSection = GObjectHandle<GMenu>::adopt(g_menu_new());
  g_menu_append(applicationSection.get(), "Settings", "app.settings");
  g_menu_append(applicationSection.get(), "Keyboard Shortcuts", "win.show-help-overlay");
  g_menu_append(applicationSection.get(), "About Tomekeeper", "app.about");
  g_menu_append(applicationSection.get(), "Quit", "app.quit");
  g_menu_append_section(menu.get(), nullptr, G_MENU_MODEL(applicationSection.get()));
  return menu;
}

}  // namespace tomekeeper
