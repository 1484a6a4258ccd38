#include "app/ReadingOptionsMenu.h"

#include <initializer_list>
#include <string>

#include "app/ReaderWindowActions.h"

namespace tomekeeper {

namespace {

// The reading options of the toolbar's menu: one section per choice, one radio item per value,
// each the target of a stateful window action of that name.
struct ReadingOptionItem {
  const char* label;
  const char* value;
};

void appendOptionSection(GMenu* menu, const char* title, const char* action,
                         std::initializer_list<ReadingOptionItem> items) {
  const auto section = GObjectHandle<GMenu>::adopt(g_menu_new());
  const std::string detailedPrefix = std::string("win.") + action;
  for (const ReadingOptionItem& item : items) {
    const auto menuItem = GObjectHandle<GMenuItem>::adopt(g_menu_item_new(item.label, nullptr));
    g_menu_item_set_action_and_target_value(menuItem.get(), detailedPrefix.c_str(),
                                            g_variant_new_string(item.value));
    g_menu_append_item(section.get(), menuItem.get());
  }
  g_menu_append_section(menu, title, G_MENU_MODEL(section.get()));
}

}  // namespace

GObjectHandle<GMenu> makeReadingOptionsMenu() {
  auto menu = GObjectHandle<GMenu>::adopt(g_menu_new());
  appendOptionSection(
      menu.get(), "Reading Theme", "reading-theme",
      {{"System", "system"}, {"White", "light"}, {"Warm", "warm"}, {"Dark", "dark"}});
  appendOptionSection(menu.get(), "Reading Mode", "reading-mode",
                      {{"Pages", "paginated"}, {"Scroll", "scrolled"}});
  appendOptionSection(
      menu.get(), "Page Layout", "page-layout",
      {{"Adaptive", "adaptive"}, {"Single Page", "singlePage"}, {"Double Page", "doublePage"}});
  appendOptionSection(menu.get(), "Scroll Width", "scroll-width",
                      {{"Narrow", "narrow"}, {"Comfortable", "comfortable"}, {"Wide", "wide"}});
  const auto viewSection = GObjectHandle<GMenu>::adopt(g_menu_new());
  g_menu_append(viewSection.get(), "Hide Reading Controls", "win.toggle-reading-controls");
  g_menu_append_section(menu.get(), nullptr, G_MENU_MODEL(viewSection.get()));
  const auto bookSection = GObjectHandle<GMenu>::adopt(g_menu_new());
  for (const ReaderWindowAction& action : readerWindowActions()) {
    if (action.menu != ReaderWindowMenu::book) continue;
    g_menu_append(bookSection.get(), action.title, (std::string("win.") + action.name).c_str());
  }
  g_menu_append_section(menu.get(), "Book Actions", G_MENU_MODEL(bookSection.get()));
  return menu;
}

}  // namespace tomekeeper
