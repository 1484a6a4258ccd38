#include "views/HighlightMenu.h"

#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <memory>
#include <string>

#include "ViewsDisplayTestSupport.h"

namespace tomekeeper::views {
namespace {

// The label of the first item of section `section` of the highlight menu.
std::string itemLabel(GtkPopoverMenu* menu, int section) {
  GMenuModel* model = gtk_popover_menu_get_menu_model(menu);
  const auto items = GObjectHandle<GMenuModel>::adopt(
      g_menu_model_get_item_link(model, section, G_MENU_LINK_SECTION));
  gchar* label = nullptr;
  g_menu_model_get_item_attribute(items.get(), 0, G_MENU_ATTRIBUTE_LABEL, "s", &label);
  std::string text = label != nullptr ? label : "";
  g_free(label);
  return text;
}

// The menu over a plain widget standing in for the web view, in a window of its own.
class HighlightMenuDisplayTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { gtk_init(); }

  void SetUp() override {
    window_ = gtk_window_new();
    gtk_window_set_default_size(GTK_WINDOW(window_), 400, 300);
    view_ = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    gtk_window_set_child(GTK_WINDOW(window_), view_);
    gtk_window_present(GTK_WINDOW(window_));
    ASSERT_TRUE(testing::waitUntil([this] { return gtk_widget_get_width(view_) > 0; }));
    menu_ = std::make_unique<HighlightMenu>(view_);
  }

  void TearDown() override {
    menu_.reset();
    gtk_window_destroy(GTK_WINDOW(window_));
  }

  bool present(double x, double y, AnnotationNotePresence notePresence) {
    return menu_->present(
        {x, y, notePresence, [this] { ++editNoteCount_; }, [this] { ++removeCount_; }});
  }

  GtkWidget* window_ = nullptr;
  GtkWidget* view_ = nullptr;
  std::unique_ptr<HighlightMenu> menu_;
  int editNoteCount_ = 0;
  int removeCount_ = 0;
};

TEST_F(HighlightMenuDisplayTest, OffersToAddANoteAndRemovesTheHighlight) {
  ASSERT_TRUE(present(40, 30, AnnotationNotePresence::withoutNote));
  GtkPopoverMenu* menu = menu_->popover();
  ASSERT_NE(menu, nullptr);
  EXPECT_TRUE(gtk_widget_get_visible(GTK_WIDGET(menu)));
  EXPECT_EQ(itemLabel(menu, 0), "Add Note…");
  EXPECT_EQ(itemLabel(menu, 1), "Remove Highlight");
  GdkRectangle point{};
  ASSERT_TRUE(gtk_popover_get_pointing_to(GTK_POPOVER(menu), &point));
  EXPECT_EQ(point.x, 40);
  EXPECT_EQ(point.y, 30);

  gtk_widget_activate_action(view_, "highlight.remove", nullptr);
  EXPECT_EQ(removeCount_, 1);
  EXPECT_EQ(editNoteCount_, 0);
}

TEST_F(HighlightMenuDisplayTest, AHighlightWithANoteOffersToEditIt) {
  ASSERT_TRUE(present(10, 10, AnnotationNotePresence::withNote));
  EXPECT_EQ(itemLabel(menu_->popover(), 0), "Edit Note…");
  gtk_widget_activate_action(view_, "highlight.edit-note", nullptr);
  EXPECT_EQ(editNoteCount_, 1);
  EXPECT_EQ(removeCount_, 0);
}

TEST_F(HighlightMenuDisplayTest, AMenuRequestOutsideTheBoundsShowsNothing) {
  const double width = gtk_widget_get_width(view_);
  const double height = gtk_widget_get_height(view_);
  EXPECT_FALSE(present(-1, 10, AnnotationNotePresence::withoutNote));
  EXPECT_FALSE(present(10, height, AnnotationNotePresence::withoutNote));
  EXPECT_FALSE(present(width + 5, 10, AnnotationNotePresence::withoutNote));
  EXPECT_EQ(menu_->popover(), nullptr);
}

TEST_F(HighlightMenuDisplayTest, AViewInNoWindowShowsNoMenu) {
  const auto detachedView =
      GObjectHandle<GtkWidget>::adopt(gtk_box_new(GTK_ORIENTATION_VERTICAL, 0));
  HighlightMenu detached(detachedView.get());
  EXPECT_FALSE(detached.present({1, 1, AnnotationNotePresence::withoutNote, [] {}, [] {}}));
  EXPECT_EQ(detached.popover(), nullptr);
}

TEST_F(HighlightMenuDisplayTest, AnItemChosenAfterTheMenuWentDoesNothing) {
  ASSERT_TRUE(present(40, 30, AnnotationNotePresence::withoutNote));
  menu_.reset();
  // The view outlives the menu in its window; its actions went with the menu.
  EXPECT_FALSE(gtk_widget_activate_action(view_, "highlight.remove", nullptr));
  EXPECT_EQ(removeCount_, 0);
}

}  // namespace
}  // namespace tomekeeper::views
