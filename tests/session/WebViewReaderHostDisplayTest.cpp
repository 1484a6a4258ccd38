#include "session/WebViewReaderHost.h"

#include <glib.h>
#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <chrono>
#include <optional>
#include <vector>

namespace tomekeeper {
namespace {

using namespace std::chrono_literals;

// Iterates the main context until `condition` holds or `limit` passes.
bool iterateUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    g_main_context_iteration(nullptr, FALSE);
  }
  return true;
}

const Uuid kAnnotationID = *Uuid::fromString("3B241101-E2BB-4255-8CAF-4136C566A962");

class WebViewReaderHostDisplayTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { gtk_init(); }

  void SetUp() override {
    host_ = makeWebViewReaderHost();
    host_->onRemoveAnnotation = [this](Uuid id) { removed_.push_back(id); };
    host_->onEditAnnotation = [this](ReaderAnnotationContextMenuRequest request) {
      edited_ = request;
    };
    window_ = gtk_window_new();
    gtk_window_set_default_size(GTK_WINDOW(window_), 640, 480);
    gtk_window_set_child(GTK_WINDOW(window_), host_->webView());
    gtk_window_present(GTK_WINDOW(window_));
    ASSERT_TRUE(iterateUntil([this] { return gtk_widget_get_width(host_->webView()) > 0; }, 10s));
  }

  void TearDown() override {
    host_.reset();
    gtk_window_destroy(GTK_WINDOW(window_));
  }

  std::shared_ptr<WebViewReaderHost> host_;
  GtkWidget* window_ = nullptr;
  std::vector<Uuid> removed_;
  std::optional<ReaderAnnotationContextMenuRequest> edited_;
};

TEST_F(WebViewReaderHostDisplayTest, TheHighlightMenuRemovesTheRequestedHighlight) {
  host_->presentAnnotationMenu({kAnnotationID, 50, 40}, AnnotationNotePresence::withoutNote);
  gtk_widget_activate_action(host_->webView(), "highlight.remove", nullptr);
  EXPECT_EQ(removed_, std::vector<Uuid>{kAnnotationID});
  EXPECT_FALSE(edited_.has_value());
}

TEST_F(WebViewReaderHostDisplayTest, TheHighlightMenuHandsTheWholeRequestToTheNoteEditor) {
  const ReaderAnnotationContextMenuRequest request{kAnnotationID, 12, 34};
  host_->presentAnnotationMenu(request, AnnotationNotePresence::withNote);
  gtk_widget_activate_action(host_->webView(), "highlight.edit-note", nullptr);
  EXPECT_EQ(edited_, request);
  EXPECT_TRUE(removed_.empty());
}

TEST_F(WebViewReaderHostDisplayTest, AMenuItemChosenAfterTheHostWentDoesNothing) {
  host_->presentAnnotationMenu({kAnnotationID, 50, 40}, AnnotationNotePresence::withoutNote);
  GtkWidget* webView = host_->webView();
  g_object_ref(webView);
  host_.reset();
  // The view outlives the host while the window holds it; its actions went with the host's menu
  // or find no adapter: either way nothing is removed.
  gtk_widget_activate_action(webView, "highlight.remove", nullptr);
  g_object_unref(webView);
  EXPECT_TRUE(removed_.empty());
}

}  // namespace
}  // namespace tomekeeper
