#include "app/ReadingCommands.h"

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/ApplicationActions.h"
#include "app/ReaderWindowActions.h"
#include "app/ReadingOptionsMenu.h"
#include "platform/GObjectHandle.h"
#include "platform/GVariantHandle.h"

namespace tomekeeper {
namespace {

// Every shortcut of `widget`'s tree as "group title/shortcut title" to its accelerator text.
void collectShortcuts(GtkWidget* widget, const std::string& group,
                      std::map<std::string, std::string>& shortcuts) {
  std::string groupTitle = group;
  if (GTK_IS_SHORTCUTS_GROUP(widget)) {
    gchar* title = nullptr;
    g_object_get(widget, "title", &title, nullptr);
    groupTitle = title != nullptr ? title : "";
    g_free(title);
  }
  // Outside a group: the window's own copies for its search page.
  if (GTK_IS_SHORTCUTS_SHORTCUT(widget) && !groupTitle.empty()) {
    gchar* title = nullptr;
    gchar* accelerator = nullptr;
    g_object_get(widget, "title", &title, "accelerator", &accelerator, nullptr);
    shortcuts[groupTitle + "/" + (title != nullptr ? title : "")] =
        accelerator != nullptr ? accelerator : "";
    g_free(title);
    g_free(accelerator);
  }
  for (GtkWidget* child = gtk_widget_get_first_child(widget); child != nullptr;
       child = gtk_widget_get_next_sibling(child)) {
    collectShortcuts(child, groupTitle, shortcuts);
  }
}

class ReadingCommandsDisplayTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { gtk_init(); }
};

TEST_F(ReadingCommandsDisplayTest, TheShortcutsWindowListsEveryKeyOfTheApplicationInItsGroup) {
  GtkShortcutsWindow* window = makeShortcutsWindow();
  std::map<std::string, std::string> shortcuts;
  collectShortcuts(GTK_WIDGET(window), "", shortcuts);
  gtk_window_destroy(GTK_WINDOW(window));
  g_object_unref(window);

  // Every key of the three tables, under the title of its group, and nothing else.
  const std::map<ShortcutGroup, std::string> groupTitles = {
      {ShortcutGroup::general, "General"},
      {ShortcutGroup::navigation, "Navigation"},
      {ShortcutGroup::reading, "Reading"},
      {ShortcutGroup::panels, "Panels"}};
  std::map<std::string, std::string> expected;
  for (const auto& table : {applicationCommands(), readerWindowCommands(), readerWindowKeys()}) {
    for (const ReadingCommand& command : table) {
      if (command.keys.empty()) continue;
      std::string keys;
      for (const char* key : command.keys) keys += (keys.empty() ? "" : " ") + std::string(key);
      expected[groupTitles.at(command.group) + "/" + command.title] = keys;
    }
  }
  EXPECT_EQ(shortcuts, expected);
  // The keys that were missing from the window before: the general ones, and Escape.
  EXPECT_EQ(shortcuts["General/Keyboard Shortcuts"], "<Control>question");
  EXPECT_EQ(shortcuts["General/Open"], "<Control>o");
  EXPECT_EQ(shortcuts["Reading/Show Hidden Reading Controls"], "Escape");
  for (const auto& table : {applicationCommands(), readerWindowCommands(), readerWindowKeys()}) {
    for (const ReadingCommand& command : table) {
      // Each key is one GTK can parse, or the window would show nothing for it.
      for (const char* key : command.keys) {
        EXPECT_TRUE(gtk_accelerator_parse(key, nullptr, nullptr)) << key;
      }
    }
  }
}

// Records which command each action ran, under the action's own name, so that a test can tell
// an action wired to the wrong command.
class RecordingCommands final : public ReaderWindowCommands {
 public:
  std::vector<std::string> ran;

  void previousPage() override { ran.push_back("previous-page"); }
  void nextPage() override { ran.push_back("next-page"); }
  void goBack() override { ran.push_back("go-back"); }
  void goForward() override { ran.push_back("go-forward"); }
  void toggleSidebar() override { ran.push_back("toggle-sidebar"); }
  void showContents() override { ran.push_back("show-contents"); }
  void decreaseTextSize() override { ran.push_back("decrease-text-size"); }
  void increaseTextSize() override { ran.push_back("increase-text-size"); }
  void search() override { ran.push_back("search"); }
  void toggleFullScreen() override { ran.push_back("toggle-fullscreen"); }
  void toggleReadingControls() override { ran.push_back("toggle-reading-controls"); }
  void toggleFonts() override { ran.push_back("toggle-fonts"); }
  void toggleBookmark() override { ran.push_back("toggle-bookmark"); }
  void highlightSelection() override { ran.push_back("highlight-selection"); }
  void showBookSafety() override { ran.push_back("book-safety"); }
  void closeBook() override { ran.push_back("close-book"); }
  void exportHighlights() override { ran.push_back("export-highlights"); }
  void restoreReadingData() override { ran.push_back("restore-reading-data"); }
  void clearReadingData() override { ran.push_back("clear-reading-data"); }
  void showSidebarSection(std::string_view section) override {
    ran.push_back("show-sidebar-section " + std::string(section));
  }
  void editNote(std::string_view id) override { ran.push_back("edit-note " + std::string(id)); }
  void chooseReadingTheme(std::string_view value) override {
    ran.push_back("reading-theme " + std::string(value));
  }
  void chooseReadingMode(std::string_view value) override {
    ran.push_back("reading-mode " + std::string(value));
  }
  void choosePageLayout(std::string_view value) override {
    ran.push_back("page-layout " + std::string(value));
  }
  void chooseScrollWidth(std::string_view value) override {
    ran.push_back("scroll-width " + std::string(value));
  }
  std::string readingTheme() const override { return "system"; }
  std::string readingMode() const override { return "paginated"; }
  std::string pageLayout() const override { return "adaptive"; }
  std::string scrollWidth() const override { return "comfortable"; }
};

struct MenuItem {
  std::string scope;                  // "win" or "app"
  std::string action;                 // without its scope
  std::optional<std::string> target;  // a radio item's value
};

// Every action that `menu` names, with its target, through sections and submenus.
void collectMenuItems(GMenuModel* menu, std::vector<MenuItem>& items) {
  for (int index = 0; index < g_menu_model_get_n_items(menu); ++index) {
    gchar* action = nullptr;
    if (g_menu_model_get_item_attribute(menu, index, G_MENU_ATTRIBUTE_ACTION, "s", &action)) {
      const GVariantHandle target = GVariantHandle::adopt(
          g_menu_model_get_item_attribute_value(menu, index, G_MENU_ATTRIBUTE_TARGET, nullptr));
      const std::string name(action);
      const std::size_t dot = name.find('.');
      items.push_back({name.substr(0, dot), name.substr(dot + 1),
                       target
                           ? std::optional<std::string>(g_variant_get_string(target.get(), nullptr))
                           : std::nullopt});
      g_free(action);
    }
    for (const char* link : {G_MENU_LINK_SECTION, G_MENU_LINK_SUBMENU}) {
      const auto linked =
          GObjectHandle<GMenuModel>::adopt(g_menu_model_get_item_link(menu, index, link));
      if (linked) collectMenuItems(linked.get(), items);
    }
  }
}

TEST_F(ReadingCommandsDisplayTest, EveryActionAMenuNamesIsInstalledAndRunsItsOwnCommand) {
  const auto actions = GObjectHandle<GSimpleActionGroup>::adopt(g_simple_action_group_new());
  RecordingCommands commands;
  const auto installed = installReaderWindowActions(G_ACTION_MAP(actions.get()), commands);

  std::vector<MenuItem> items;
  const auto readingMenu = GObjectHandle<GMenu>::adopt(makeReadingMenu());
  collectMenuItems(G_MENU_MODEL(readingMenu.get()), items);
  const GObjectHandle<GMenu> optionsMenu = makeReadingOptionsMenu();
  collectMenuItems(G_MENU_MODEL(optionsMenu.get()), items);
  ASSERT_GT(items.size(), 20u);
  for (const MenuItem& item : items) {
    ASSERT_EQ(item.scope, "win");
    SCOPED_TRACE(item.action + (item.target ? " " + *item.target : std::string()));
    ASSERT_TRUE(g_action_group_has_action(G_ACTION_GROUP(actions.get()), item.action.c_str()));
    commands.ran.clear();
    if (item.target) {
      // A radio item changes the state; the command hears the value asked for.
      g_action_group_change_action_state(G_ACTION_GROUP(actions.get()), item.action.c_str(),
                                         g_variant_new_string(item.target->c_str()));
      EXPECT_EQ(commands.ran, std::vector<std::string>{item.action + " " + *item.target});
    } else {
      g_action_group_activate_action(G_ACTION_GROUP(actions.get()), item.action.c_str(), nullptr);
      EXPECT_EQ(commands.ran, std::vector<std::string>{item.action});
    }
  }
  // The commands that name what they act on take it as their parameter.
  commands.ran.clear();
  g_action_group_activate_action(G_ACTION_GROUP(actions.get()), "show-sidebar-section",
                                 g_variant_new_string("bookmarks"));
  EXPECT_EQ(commands.ran, std::vector<std::string>{"show-sidebar-section bookmarks"});
}

class RecordingApplicationCommands final : public ApplicationCommands {
 public:
  std::vector<std::string> ran;

  void open() override { ran.push_back("open"); }
  void openRecent(std::string_view path) override {
    ran.push_back("open-recent " + std::string(path));
  }
  void clearRecent() override { ran.push_back("clear-recent"); }
  void showSettings() override { ran.push_back("settings"); }
  void showAbout() override { ran.push_back("about"); }
  void quit() override { ran.push_back("quit"); }
};

TEST_F(ReadingCommandsDisplayTest, EveryActionTheMainMenuNamesIsInstalledAndRunsItsOwnCommand) {
  const auto applicationGroup =
      GObjectHandle<GSimpleActionGroup>::adopt(g_simple_action_group_new());
  RecordingApplicationCommands application;
  const auto applicationActions =
      installApplicationActions(G_ACTION_MAP(applicationGroup.get()), application);
  const auto windowGroup = GObjectHandle<GSimpleActionGroup>::adopt(g_simple_action_group_new());
  RecordingCommands window;
  const auto windowActions = installReaderWindowActions(G_ACTION_MAP(windowGroup.get()), window);

  const auto recent = GObjectHandle<GMenu>::adopt(g_menu_new());
  const GObjectHandle<GMenu> mainMenu = makeMainMenu(G_MENU_MODEL(recent.get()));
  std::vector<MenuItem> items;
  collectMenuItems(G_MENU_MODEL(mainMenu.get()), items);
  ASSERT_GT(items.size(), 10u);
  for (const MenuItem& item : items) {
    SCOPED_TRACE(item.scope + "." + item.action);
    if (item.scope == "app") {
      application.ran.clear();
      ASSERT_TRUE(
          g_action_group_has_action(G_ACTION_GROUP(applicationGroup.get()), item.action.c_str()));
      g_action_group_activate_action(G_ACTION_GROUP(applicationGroup.get()), item.action.c_str(),
                                     nullptr);
      EXPECT_EQ(application.ran, std::vector<std::string>{item.action});
    } else if (item.action != "show-help-overlay") {  // GTK's own, on every application window
      ASSERT_EQ(item.scope, "win");
      EXPECT_TRUE(
          g_action_group_has_action(G_ACTION_GROUP(windowGroup.get()), item.action.c_str()));
    }
  }
}

}  // namespace
}  // namespace tomekeeper
