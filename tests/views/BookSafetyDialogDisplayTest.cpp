#include "views/BookSafetyDialog.h"

#include <gtest/gtest.h>

#include <string>

#include "ViewsDisplayTestSupport.h"
#include "session/BookSafetySummary.h"

namespace tomekeeper::testing {
namespace {

// The dialog over a window of its own: its body is the summary's lines, and the names the book
// gives are listed below it as plain, selectable text, or not at all when it gives none.
TEST(BookSafetyDialogDisplayTest, SaysWhatTheBookTriedAndListsTheNamesItGives) {
  adw_init();
  const struct {
    const char* name;
    PublicationSafetyReport report;
    const char* listedNames;  // the text under the body; null: no list
  } cases[] = {
      {"NothingTriedListsNothing", {}, nullptr},
      {"ScriptsAloneListNothing", PublicationSafetyReport{.scriptElements = 2}, nullptr},
      {"WebAddressesAndUnlistedFilesEachUnderTheirHeading",
       PublicationSafetyReport{
           .webReferences = 2,
           .webAddresses = {"https://b.example.invalid/", "http://a.example.invalid/x"},
           .unlistedReferences = 1,
           .unlistedPaths = {"OEBPS/hidden%20page.xhtml"}},
       "Web addresses this book names:\nhttp://a.example.invalid/x\nhttps://b.example.invalid/"
       "\n\nFiles this book names but does not list:\nOEBPS/hidden%20page.xhtml"},
      {"UnlistedFilesAlone", PublicationSafetyReport{.unlistedPaths = {"a.xhtml", "b.css"}},
       "Files this book names but does not list:\na.xhtml\nb.css"},
  };
  GtkWidget* parent = gtk_window_new();
  gtk_window_present(GTK_WINDOW(parent));
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    AdwMessageDialog* dialog = presentBookSafety(GTK_WINDOW(parent), testCase.report);
    ASSERT_NE(dialog, nullptr);
    EXPECT_STREQ(adw_message_dialog_get_heading(dialog), "Book Safety");
    std::string body;
    for (const std::string& line : bookSafetyLines(testCase.report)) {
      body += (body.empty() ? "" : "\n") + line;
    }
    EXPECT_FALSE(body.empty());
    EXPECT_EQ(adw_message_dialog_get_body(dialog), body);
    EXPECT_EQ(gtk_window_get_transient_for(GTK_WINDOW(dialog)), GTK_WINDOW(parent));
    EXPECT_STREQ(adw_message_dialog_get_response_label(dialog, "close"), "Close");
    EXPECT_STREQ(adw_message_dialog_get_default_response(dialog), "close");
    EXPECT_STREQ(adw_message_dialog_get_close_response(dialog), "close");
    GtkWidget* extra = adw_message_dialog_get_extra_child(dialog);
    if (testCase.listedNames == nullptr) {
      EXPECT_EQ(extra, nullptr);
    } else {
      GtkWidget* label = findWidget(extra, [](GtkWidget* widget) { return GTK_IS_LABEL(widget); });
      ASSERT_NE(label, nullptr);
      EXPECT_STREQ(gtk_label_get_text(GTK_LABEL(label)), testCase.listedNames);
      // Plain text: it can be copied, and no address in it is a link.
      EXPECT_TRUE(gtk_label_get_selectable(GTK_LABEL(label)));
      EXPECT_FALSE(gtk_label_get_use_markup(GTK_LABEL(label)));
    }
    // Its one response closes it.
    adw_message_dialog_response(dialog, "close");
  }
  gtk_window_destroy(GTK_WINDOW(parent));
}

}  // namespace
}  // namespace tomekeeper::testing
