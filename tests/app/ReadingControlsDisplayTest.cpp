#include "app/ReadingControls.h"

#include <gtest/gtest.h>

#include <memory>

#include "ShellDisplaySupport.h"

namespace tomekeeper::testing {
namespace {

// A header bar with one panel button over an empty page, in a window of its own.
class ReadingControlsDisplayTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { adw_init(); }

  void SetUp() override {
    GtkWidget* header = adw_header_bar_new();
    panelButton = gtk_menu_button_new();
    gtk_menu_button_set_popover(GTK_MENU_BUTTON(panelButton), gtk_popover_new());
    adw_header_bar_pack_end(ADW_HEADER_BAR(header), panelButton);
    controls = std::make_unique<ReadingControls>(header, gtk_box_new(GTK_ORIENTATION_VERTICAL, 0));
    window = GTK_WINDOW(gtk_window_new());
    gtk_window_set_default_size(window, 800, 600);
    gtk_window_set_child(window, controls->root());
    gtk_window_present(window);
    ASSERT_TRUE(iterateUntil([&] { return gtk_widget_get_mapped(controls->root()); }));
  }

  void TearDown() override {
    gtk_window_destroy(window);
    controls.reset();
  }

  GtkWidget* panelButton = nullptr;
  std::unique_ptr<ReadingControls> controls;
  GtkWindow* window = nullptr;
};

TEST_F(ReadingControlsDisplayTest, HidingSaysHowToGetTheControlsBack) {
  EXPECT_TRUE(controls->headerIsOnScreen());
  controls->setVisibility(ReadingControlsVisibility::hidden);
  EXPECT_FALSE(controls->headerIsOnScreen());
  EXPECT_TRUE(iterateUntil([&] {
    return showsText(controls->root(),
                     "Reading controls hidden: press Esc or move the pointer to the top to show "
                     "them");
  }));
  controls->setVisibility(ReadingControlsVisibility::shown);
  EXPECT_TRUE(controls->headerIsOnScreen());
  EXPECT_TRUE(gtk_widget_get_mapped(panelButton));
}

TEST_F(ReadingControlsDisplayTest, ThePointerAtTheTopEdgeRevealsTheHeaderUntilItLeaves) {
  controls->setVisibility(ReadingControlsVisibility::hidden);
  struct Move {
    const char* name;
    double y;  // negative: the pointer left the window
    bool headerIsOnScreen;
  };
  const Move moves[] = {
      {"in the page", 300, false},
      {"at the top edge", 1, true},
      {"on the header bar", 20, true},
      {"back in the page", 300, false},
      {"at the top edge again", 0, true},
      {"out of the window", -1, false},
  };
  int changes = 0;
  sigc::connection counting = controls->changed().connect([&] { ++changes; });
  for (const Move& move : moves) {
    SCOPED_TRACE(move.name);
    if (move.y < 0) {
      controls->pointerLeft();
    } else {
      controls->pointerMoved(move.y);
    }
    EXPECT_EQ(controls->headerIsOnScreen(), move.headerIsOnScreen);
  }
  EXPECT_EQ(changes, 4);
  counting.disconnect();
}

TEST_F(ReadingControlsDisplayTest, APanelKeepsTheRevealedHeaderUntilItCloses) {
  controls->setVisibility(ReadingControlsVisibility::hidden);
  controls->revealHeader();
  ASSERT_TRUE(iterateUntil([&] { return gtk_widget_get_mapped(panelButton); }));
  gtk_menu_button_popup(GTK_MENU_BUTTON(panelButton));
  GtkPopover* panel = gtk_menu_button_get_popover(GTK_MENU_BUTTON(panelButton));
  ASSERT_TRUE(iterateUntil([&] { return gtk_widget_get_visible(GTK_WIDGET(panel)); }));

  controls->pointerMoved(400);
  EXPECT_TRUE(controls->headerIsOnScreen());
  gtk_menu_button_popdown(GTK_MENU_BUTTON(panelButton));
  EXPECT_TRUE(iterateUntil([&] { return !controls->headerIsOnScreen(); }));
}

}  // namespace
}  // namespace tomekeeper::testing
