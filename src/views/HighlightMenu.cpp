#include "views/HighlightMenu.h"

#include <string_view>

namespace tomekeeper::views {

HighlightMenu::HighlightMenu(GtkWidget* view) : view_(GObjectHandle<GtkWidget>::retain(view)) {}

HighlightMenu::~HighlightMenu() {
  if (popover_ == nullptr) return;
  // The view may outlive the menu in a window; its actions must not call into a dead menu.
  gtk_widget_insert_action_group(view_.get(), "highlight", nullptr);
  gtk_widget_unparent(GTK_WIDGET(popover_));
}

bool HighlightMenu::present(const AnnotationMenuRequest& request) {
  GtkWidget* view = view_.get();
  // GTK's coordinates grow downwards from the view's own origin, as the runtime's do.
  const double width = gtk_widget_get_width(view);
  const double height = gtk_widget_get_height(view);
  const double x = request.x;
  const double y = request.y;
  if (gtk_widget_get_root(view) == nullptr || !(x >= 0 && y >= 0 && x < width && y < height)) {
    return false;
  }
  if (popover_ == nullptr) {
    static const GActionEntry entries[] = {
        {"edit-note", activate, nullptr, nullptr, nullptr, {}},
        {"remove", activate, nullptr, nullptr, nullptr, {}},
    };
    const auto actions = GObjectHandle<GSimpleActionGroup>::adopt(g_simple_action_group_new());
    g_action_map_add_action_entries(G_ACTION_MAP(actions.get()), entries, G_N_ELEMENTS(entries),
                                    this);
    gtk_widget_insert_action_group(view, "highlight", G_ACTION_GROUP(actions.get()));
    popover_ = GTK_POPOVER_MENU(gtk_popover_menu_new_from_model(nullptr));
    gtk_widget_set_parent(GTK_WIDGET(popover_), view);
    gtk_popover_set_has_arrow(GTK_POPOVER(popover_), FALSE);
    gtk_widget_set_halign(GTK_WIDGET(popover_), GTK_ALIGN_START);
  }
  // Two sections draw the separator between the note item and the removal.
  const auto noteSection = GObjectHandle<GMenu>::adopt(g_menu_new());
  g_menu_append(
      noteSection.get(),
      request.notePresence == AnnotationNotePresence::withNote ? "Edit Note…" : "Add Note…",
      "highlight.edit-note");
  const auto removeSection = GObjectHandle<GMenu>::adopt(g_menu_new());
  g_menu_append(removeSection.get(), "Remove Highlight", "highlight.remove");
  const auto menu = GObjectHandle<GMenu>::adopt(g_menu_new());
  g_menu_append_section(menu.get(), nullptr, G_MENU_MODEL(noteSection.get()));
  g_menu_append_section(menu.get(), nullptr, G_MENU_MODEL(removeSection.get()));
  gtk_popover_menu_set_menu_model(popover_, G_MENU_MODEL(menu.get()));

  editNote_ = request.editNote;
  removeHighlight_ = request.removeHighlight;
  const GdkRectangle point{static_cast<int>(x), static_cast<int>(y), 1, 1};
  gtk_popover_set_pointing_to(GTK_POPOVER(popover_), &point);
  gtk_popover_popup(GTK_POPOVER(popover_));
  return true;
}

void HighlightMenu::activate(GSimpleAction* action, GVariant*, gpointer data) {
  auto* menu = static_cast<HighlightMenu*>(data);
  const std::string_view name = g_action_get_name(G_ACTION(action));
  // Copied first: the function may present another menu, which replaces the stored ones.
  const std::function<void()> chosen = name == "remove" ? menu->removeHighlight_ : menu->editNote_;
  if (chosen) chosen();
}

}  // namespace tomekeeper::views
