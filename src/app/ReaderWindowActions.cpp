#include "app/ReaderWindowActions.h"

namespace tomekeeper {

std::span<const ReaderWindowAction> readerWindowActions() {
  using enum ShortcutGroup;
  using enum ActionKind;
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

std::vector<GObjectHandle<GSimpleAction>> installReaderWindowActions(
    GActionMap* map, ReaderWindowCommands& commands) {
  return installActionTable(map, readerWindowActions(), commands);
}

}  // namespace tomekeeper
