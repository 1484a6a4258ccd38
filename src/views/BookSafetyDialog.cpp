#include "views/BookSafetyDialog.h"

#include <set>
#include <string>

#include "session/BookSafetySummary.h"

namespace tomekeeper {

namespace {

// `heading` and then each of `names` on a line of its own; nothing when there are no names.
void appendNames(std::string& text, const char* heading, const std::set<std::string>& names) {
  if (names.empty()) return;
  if (!text.empty()) text += "\n\n";
  text += heading;
  for (const std::string& name : names) text += "\n" + name;
}

}  // namespace

AdwMessageDialog* presentBookSafety(GtkWindow* parent, const PublicationSafetyReport& report) {
  std::string body;
  for (const std::string& line : bookSafetyLines(report)) {
    if (!body.empty()) body += "\n";
    body += line;
  }
  GtkWidget* dialog = adw_message_dialog_new(parent, "Book Safety", body.c_str());
  auto* messageDialog = ADW_MESSAGE_DIALOG(dialog);
  adw_message_dialog_add_response(messageDialog, "close", "Close");
  adw_message_dialog_set_default_response(messageDialog, "close");
  adw_message_dialog_set_close_response(messageDialog, "close");
  std::string names;
  appendNames(names, "Web addresses this book names:", report.webAddresses);
  appendNames(names, "Files this book names but does not list:", report.unlistedPaths);
  if (!names.empty()) {
    // The names as plain, selectable text: nothing here opens them.
    GtkWidget* label = gtk_label_new(names.c_str());
    gtk_label_set_selectable(GTK_LABEL(label), TRUE);
    gtk_label_set_xalign(GTK_LABEL(label), 0);
    gtk_label_set_wrap(GTK_LABEL(label), TRUE);
    gtk_label_set_wrap_mode(GTK_LABEL(label), PANGO_WRAP_WORD_CHAR);
    GtkWidget* scrolled = gtk_scrolled_window_new();
    gtk_scrolled_window_set_policy(GTK_SCROLLED_WINDOW(scrolled), GTK_POLICY_NEVER,
                                   GTK_POLICY_AUTOMATIC);
    gtk_scrolled_window_set_max_content_height(GTK_SCROLLED_WINDOW(scrolled), 200);
    gtk_scrolled_window_set_propagate_natural_height(GTK_SCROLLED_WINDOW(scrolled), TRUE);
    gtk_scrolled_window_set_child(GTK_SCROLLED_WINDOW(scrolled), label);
    adw_message_dialog_set_extra_child(messageDialog, scrolled);
  }
  gtk_window_present(GTK_WINDOW(dialog));
  return messageDialog;
}

}  // namespace tomekeeper
