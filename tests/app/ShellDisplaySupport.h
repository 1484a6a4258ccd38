// What the in-process display tests of the shell share: the shown windows of a type and the
// widgets of a tree found by type and text.
#pragma once

#include <adwaita.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "app/ShellFakes.h"

namespace tomekeeper::testing {

// The shown toplevel windows of type `type`, most recent first.
inline std::vector<GtkWindow*> shownWindowsOfType(GType type) {
  std::vector<GtkWindow*> found;
  GListModel* toplevels = gtk_window_get_toplevels();
  for (guint index = 0; index < g_list_model_get_n_items(toplevels); ++index) {
    auto* window = static_cast<GtkWindow*>(g_list_model_get_item(toplevels, index));
    if (G_TYPE_CHECK_INSTANCE_TYPE(window, type) && gtk_widget_get_visible(GTK_WIDGET(window))) {
      found.push_back(window);
    }
    g_object_unref(window);
  }
  return found;
}

// Every label text at or below `widget` that is drawn (the widget and its ancestors visible).
inline void collectShownTexts(GtkWidget* widget, std::vector<std::string>& texts) {
  if (!gtk_widget_get_visible(widget) || !gtk_widget_get_child_visible(widget)) return;
  if (GTK_IS_LABEL(widget)) texts.emplace_back(gtk_label_get_text(GTK_LABEL(widget)));
  for (GtkWidget* child = gtk_widget_get_first_child(widget); child != nullptr;
       child = gtk_widget_get_next_sibling(child)) {
    collectShownTexts(child, texts);
  }
}

inline bool showsText(GtkWidget* widget, const std::string& text) {
  std::vector<std::string> texts;
  collectShownTexts(widget, texts);
  for (const std::string& shown : texts) {
    if (shown == text) return true;
  }
  return false;
}

// The first widget at or below `widget`, depth first, for which `predicate` holds.
inline GtkWidget* findWidget(GtkWidget* widget, const std::function<bool(GtkWidget*)>& predicate) {
  if (predicate(widget)) return widget;
  for (GtkWidget* child = gtk_widget_get_first_child(widget); child != nullptr;
       child = gtk_widget_get_next_sibling(child)) {
    if (GtkWidget* found = findWidget(child, predicate)) return found;
  }
  return nullptr;
}

// The button at or below `widget` whose label is `label`.
inline GtkWidget* findButton(GtkWidget* widget, const std::string& label) {
  return findWidget(widget, [&](GtkWidget* candidate) {
    const char* text = GTK_IS_BUTTON(candidate) ? gtk_button_get_label(GTK_BUTTON(candidate))
                                                : nullptr;
    return text != nullptr && label == text;
  });
}

}  // namespace tomekeeper::testing
