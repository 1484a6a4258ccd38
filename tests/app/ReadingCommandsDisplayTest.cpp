#include "app/ReadingCommands.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

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
  for (const auto& table : {applicationCommands(), readingCommands(), readerWindowKeys()}) {
    for (const ReadingCommand& command : table) {
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
  for (const auto& table : {applicationCommands(), readingCommands(), readerWindowKeys()}) {
    for (const ReadingCommand& command : table) {
      // Each key is one GTK can parse, or the window would show nothing for it.
      for (const char* key : command.keys) {
        EXPECT_TRUE(gtk_accelerator_parse(key, nullptr, nullptr)) << key;
      }
    }
  }
}

TEST_F(ReadingCommandsDisplayTest, TheReadingMenuFollowsTheTableInOrder) {
  GMenu* menu = makeReadingMenu();
  ASSERT_EQ(g_menu_model_get_n_items(G_MENU_MODEL(menu)),
            static_cast<int>(readingCommands().size()));
  int index = 0;
  for (const ReadingCommand& command : readingCommands()) {
    gchar* label = nullptr;
    gchar* action = nullptr;
    g_menu_model_get_item_attribute(G_MENU_MODEL(menu), index, G_MENU_ATTRIBUTE_LABEL, "s", &label);
    g_menu_model_get_item_attribute(G_MENU_MODEL(menu), index, G_MENU_ATTRIBUTE_ACTION, "s",
                                    &action);
    EXPECT_STREQ(label, command.title);
    EXPECT_STREQ(action, command.action);
    g_free(label);
    g_free(action);
    ++index;
  }
  g_object_unref(menu);
}

}  // namespace
}  // namespace tomekeeper
