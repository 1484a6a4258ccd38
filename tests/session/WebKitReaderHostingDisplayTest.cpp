#include "session/WebKitReaderHosting.h"

#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <optional>
#include <vector>

namespace tomekeeper {
namespace {

const Uuid kAnnotationID = *Uuid::fromString("3B241101-E2BB-4255-8CAF-4136C566A962");

// The host hands the shell each highlight menu request; the shell draws it (views::HighlightMenu)
// and runs the functions of the item chosen.
class WebKitReaderHostingDisplayTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { gtk_init(); }

  void SetUp() override {
    host_ = makeWebKitReaderHosting();
    ASSERT_NE(host_->webView(), nullptr);
    host_->onRemoveAnnotation = [this](Uuid id) { removed_.push_back(id); };
    host_->onEditAnnotation = [this](ReaderAnnotationContextMenuRequest request) {
      edited_ = request;
    };
    host_->onAnnotationMenuRequest = [this](AnnotationMenuRequest request) {
      menus_.push_back(std::move(request));
    };
  }

  std::shared_ptr<WebKitReaderHosting> host_;
  std::vector<AnnotationMenuRequest> menus_;
  std::vector<Uuid> removed_;
  std::optional<ReaderAnnotationContextMenuRequest> edited_;
};

// One host, so one web view, for the whole menu: each request carries its point and note, each
// item reaches the session's callback for that request alone, and an item chosen once the host
// is gone does nothing.
TEST_F(WebKitReaderHostingDisplayTest, EachMenuItemReachesItsCallbackUntilTheHostGoes) {
  const ReaderAnnotationContextMenuRequest request{kAnnotationID, 12, 34};
  host_->presentAnnotationMenu(request, AnnotationNotePresence::withNote);
  ASSERT_EQ(menus_.size(), 1u);
  EXPECT_EQ(menus_[0].x, 12);
  EXPECT_EQ(menus_[0].y, 34);
  EXPECT_EQ(menus_[0].notePresence, AnnotationNotePresence::withNote);
  menus_[0].editNote();
  EXPECT_EQ(edited_, request);
  EXPECT_TRUE(removed_.empty());

  edited_.reset();
  host_->presentAnnotationMenu({kAnnotationID, 50, 40}, AnnotationNotePresence::withoutNote);
  ASSERT_EQ(menus_.size(), 2u);
  EXPECT_EQ(menus_[1].notePresence, AnnotationNotePresence::withoutNote);
  menus_[1].removeHighlight();
  EXPECT_EQ(removed_, std::vector<Uuid>{kAnnotationID});
  EXPECT_FALSE(edited_.has_value());

  removed_.clear();
  host_->presentAnnotationMenu({kAnnotationID, 50, 40}, AnnotationNotePresence::withoutNote);
  ASSERT_EQ(menus_.size(), 3u);
  host_.reset();
  menus_[2].removeHighlight();
  menus_[2].editNote();
  EXPECT_TRUE(removed_.empty());
  EXPECT_FALSE(edited_.has_value());
}

}  // namespace
}  // namespace tomekeeper
