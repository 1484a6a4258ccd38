#include "app/ReadingCommands.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace tomekeeper {
namespace {

// Every shortcut of `widget`'s tree: title to accelerator text.
void collectShortcuts(GtkWidget* widget, std::map<std::string, std::string>& shortcuts) {
  if (GTK_IS_SHORTCUTS_SHORTCUT(widget)) {
    gchar* title = nullptr;
    gchar* accelerator = nullptr;
    g_object_get(widget, "title", &title, "accelerator", &accelerator, nullptr);
    shortcuts[title != nullptr ? title : ""] = accelerator != nullptr ? accelerator : "";
    g_free(title);
    g_free(accelerator);
  }
  for (GtkWidget* child = gtk_widget_get_first_child(widget); child != nullptr;
       child = gtk_widget_get_next_sibling(child)) {
    collectShortcuts(child, shortcuts);
  }
}

class ReadingCommandsDisplayTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { gtk_init(); }
};

TEST_F(ReadingCommandsDisplayTest, TheShortcutsWindowListsEveryReadingCommandWithItsKeys) {
  GtkShortcutsWindow* window = makeReadingShortcutsWindow();
  std::map<std::string, std::string> shortcuts;
  collectShortcuts(GTK_WIDGET(window), shortcuts);
  gtk_window_destroy(GTK_WINDOW(window));
  g_object_unref(window);

  ASSERT_EQ(shortcuts.size(), readingCommands().size());
  EXPECT_EQ(shortcuts.at("Toggle Sidebar"), "<Control><Alt>s F9");
  EXPECT_EQ(shortcuts.at("Next Page"), "<Control>bracketright");
  for (const ReadingCommand& command : readingCommands()) {
    EXPECT_TRUE(shortcuts.contains(command.title)) << command.title;
    // Each key is one GTK can parse, or the window would show nothing for it.
    for (const char* key : command.keys) {
      EXPECT_TRUE(gtk_accelerator_parse(key, nullptr, nullptr)) << key;
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
