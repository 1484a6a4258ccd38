#include "views/ReaderScreen.h"

#include "ViewsDisplayTestSupport.h"
#include "async/RunUntilDone.h"

namespace tomekeeper::testing {
namespace {

class ReaderScreenDisplayTest : public ViewsDisplayTest {
 protected:
  // A stand-in for the host's web view: the screen only shows the widget it is given.
  void makeScreen(SidebarVisibility visibility = SidebarVisibility::visible) {
    page = gtk_drawing_area_new();
    screen = std::make_unique<ReaderScreen>(session, page, visibility);
    showInWindow(screen->widget());
  }

  void TearDown() override {
    screen.reset();
    ViewsDisplayTest::TearDown();
  }

  GtkWidget* page = nullptr;
  std::unique_ptr<ReaderScreen> screen;
};

TEST_F(ReaderScreenDisplayTest, HoldsThePageTheSidebarThePageLabelAndTheErrorBanner) {
  openSession();
  makeScreen();
  EXPECT_EQ(gtk_widget_get_root(page), GTK_ROOT(window));
  EXPECT_TRUE(screen->sidebarIsVisible());
  EXPECT_EQ(screen->sidebar().section(), SidebarSection::contents);
  ASSERT_TRUE(isShown(screen->pageLabelPill()));
  EXPECT_EQ(std::string(gtk_label_get_text(GTK_LABEL(screen->pageLabel()))),
            session->pageLabel().value());
  EXPECT_FALSE(isShown(screen->errorBanner()));
  EXPECT_FALSE(isShown(screen->selectionCallout()));

  const std::string before = gtk_label_get_text(GTK_LABEL(screen->pageLabel()));
  async::runUntilDone(session->nextPage(), std::chrono::seconds(30));
  EXPECT_NE(std::string(gtk_label_get_text(GTK_LABEL(screen->pageLabel()))), before);
  EXPECT_EQ(std::string(gtk_label_get_text(GTK_LABEL(screen->pageLabel()))),
            session->pageLabel().value());

  int changes = 0;
  sigc::connection counting = screen->sidebarVisibilityChanged().connect([&] { ++changes; });
  screen->toggleSidebar();
  EXPECT_FALSE(screen->sidebarIsVisible());
  EXPECT_EQ(changes, 1);
  counting.disconnect();

  // The session's error comes up in the banner.
  session->handleAnnotationResolutionChanged({}, {Uuid::random()});
  ASSERT_TRUE(isShown(screen->errorBanner()));
  EXPECT_EQ(std::string(gtk_label_get_text(GTK_LABEL(screen->errorLabel()))),
            "A saved highlight could not be shown at its original text.");
}

TEST_F(ReaderScreenDisplayTest, TheSidebarTakesAtMostAThirdAndNeverMoreThan360Pixels) {
  // Titles long enough to make the sidebar as wide as it is allowed.
  host->runtime.handlers["tableOfContents"] = [](const json&) {
    const std::string title(200, 'W');
    return RuntimeAnswer::result(
        {{"items", json::array({json{
                       {"title", title}, {"href", "c1.xhtml"}, {"children", json::array()}}})}});
  };
  openSession();
  makeScreen();
  struct Size {
    int windowWidth;
    int widest;
  };
  // Within a 1280-pixel screen, which a window may not outgrow.
  for (const Size size : {Size{920, 306}, Size{1200, 360}, Size{1000, 333}}) {
    SCOPED_TRACE(size.windowWidth);
    gtk_window_set_default_size(window, size.windowWidth, 760);
    ASSERT_TRUE(waitUntil([&] {
      return gtk_widget_get_width(screen->widget()) == size.windowWidth &&
             screen->sidebarMaximumWidth() == size.widest;
    })) << gtk_widget_get_width(screen->widget())
        << " " << screen->sidebarMaximumWidth();
    // What the sidebar takes from the screen: all but the page and the separator.
    GtkWidget* content = gtk_widget_get_parent(gtk_widget_get_parent(page));
    const auto taken = [&] {
      return gtk_widget_get_width(screen->widget()) - gtk_widget_get_width(content) - 1;
    };
    EXPECT_TRUE(waitUntil([&] { return taken() > 0 && taken() <= size.widest; })) << taken();
  }
}

TEST_F(ReaderScreenDisplayTest, ShowsBookmarkFeedbackThatGoesByItself) {
  openSession();
  makeScreen();
  screen->toggleBookmark();
  ASSERT_TRUE(waitUntil([&] { return screen->bookmarkFeedback().has_value(); }));
  EXPECT_EQ(screen->bookmarkFeedback(), BookmarkFeedback::added);
  EXPECT_EQ(std::string(gtk_label_get_text(GTK_LABEL(screen->bookmarkFeedbackLabel()))),
            "Bookmark added");
  EXPECT_TRUE(gtk_revealer_get_reveal_child(GTK_REVEALER(screen->bookmarkFeedbackRevealer())));
  EXPECT_EQ(bookmarks->stored.size(), 1U);
  ASSERT_TRUE(
      waitUntil([&] { return !screen->bookmarkFeedback().has_value(); }, std::chrono::seconds(30)));
  EXPECT_FALSE(gtk_revealer_get_reveal_child(GTK_REVEALER(screen->bookmarkFeedbackRevealer())));

  screen->toggleBookmark();
  ASSERT_TRUE(waitUntil([&] { return screen->bookmarkFeedback().has_value(); }));
  EXPECT_EQ(std::string(gtk_label_get_text(GTK_LABEL(screen->bookmarkFeedbackLabel()))),
            "Bookmark removed");
  EXPECT_TRUE(bookmarks->stored.empty());

  bookmarks->writeFailure = BookmarkPersistenceFailure::cannotWrite;
  screen->toggleBookmark();
  ASSERT_TRUE(waitUntil([&] { return screen->bookmarkFeedback() == BookmarkFeedback::failed; }));
  EXPECT_EQ(std::string(gtk_label_get_text(GTK_LABEL(screen->bookmarkFeedbackLabel()))),
            "Couldn\u2019t update bookmark");
}

TEST_F(ReaderScreenDisplayTest, PlacesTheHighlightCalloutAtTheSelectionAndHighlights) {
  openSession();
  host->runtime.handlers["currentSelection"] = [](const json&) {
    return RuntimeAnswer::result({{"selection",
                                   {{"locator", locatorJSON(locatorAt(0, "/6/2!/4/2,/1:0,/1:4"))},
                                    {"selectedText", "Call"}}}});
  };
  // The book says the sidebar starts hidden.
  makeScreen(SidebarVisibility::hidden);
  EXPECT_FALSE(screen->sidebarIsVisible());
  session->handleSelectionAvailabilityChanged(true, ReaderSelectionRect{300, 200, 80, 20});
  ASSERT_TRUE(waitUntil([&] { return isShown(screen->selectionCallout()); }));
  ASSERT_TRUE(waitUntil([&] { return gtk_widget_get_mapped(screen->highlightButton()); }));
  EXPECT_TRUE(showsText(screen->highlightButton(), "Highlight"));
  graphene_rect_t bounds;
  ASSERT_TRUE(waitUntil([&] {
    return gtk_widget_compute_bounds(screen->selectionCallout(), page, &bounds) &&
           bounds.size.width > 0;
  }));
  // Centred on the selection, just above it.
  EXPECT_NEAR(bounds.origin.x + bounds.size.width / 2, 340.0, 1.0);
  EXPECT_LE(bounds.origin.y + bounds.size.height, 200.0);

  g_signal_emit_by_name(screen->highlightButton(), "clicked");
  ASSERT_TRUE(waitUntil([&] { return session->annotations()->size() == 1; }));
  EXPECT_EQ(session->annotations()->front().selectedText, "Call");
  ASSERT_TRUE(waitUntil([&] { return !isShown(screen->selectionCallout()); }));
}

TEST_F(ReaderScreenDisplayTest, OpensTheInlineNoteEditorAndKeepsItsDraft) {
  const Annotation annotation = storedAnnotation("Call me Ishmael.");
  openSession();
  makeScreen();
  session->handleEditAnnotation({annotation.id, 120, 140});
  ASSERT_NE(screen->inlineNoteEditor(), nullptr);
  ASSERT_TRUE(
      waitUntil([&] { return gtk_widget_get_mapped(screen->inlineNoteEditor()->textView()); }));
  gtk_text_buffer_set_text(
      gtk_text_view_get_buffer(GTK_TEXT_VIEW(screen->inlineNoteEditor()->textView())),
      "Half-written", -1);
  screen->inlineNoteEditor()->cancel();
  ASSERT_TRUE(waitUntil([&] { return screen->inlineNoteEditor() == nullptr; }));
  EXPECT_FALSE(session->noteEditingRequest()->has_value());
  EXPECT_EQ(screen->noteDrafts().at(annotation.id), "Half-written");

  session->handleEditAnnotation({annotation.id, 120, 140});
  ASSERT_NE(screen->inlineNoteEditor(), nullptr);
  EXPECT_EQ(screen->inlineNoteEditor()->draft(), "Half-written");
  screen->inlineNoteEditor()->submit();
  ASSERT_TRUE(waitUntil([&] { return screen->inlineNoteEditor() == nullptr; }));
  EXPECT_EQ(session->annotations()->front().note, "Half-written");
  EXPECT_FALSE(screen->noteDrafts().contains(annotation.id));
}

TEST_F(ReaderScreenDisplayTest, ConfirmsTheRemovalOfAHighlightWithANote) {
  const Annotation annotation = storedAnnotation("Call me Ishmael.", "A note");
  openSession();
  makeScreen();
  session->requestAnnotationRemoval(annotation.id);
  ASSERT_NE(screen->removalConfirmation(), nullptr);
  AdwMessageDialog* dialog = ADW_MESSAGE_DIALOG(screen->removalConfirmation());
  EXPECT_STREQ(adw_message_dialog_get_heading(dialog), "Remove Highlight and Note?");
  EXPECT_STREQ(adw_message_dialog_get_body(dialog),
               "This also deletes the note attached to this highlight.");
  EXPECT_STREQ(adw_message_dialog_get_response_label(dialog, "cancel"), "Cancel");
  EXPECT_STREQ(adw_message_dialog_get_response_label(dialog, "remove"), "Remove");
  adw_message_dialog_response(dialog, "remove");
  ASSERT_TRUE(waitUntil([&] { return session->annotations()->empty(); }));
  EXPECT_EQ(screen->removalConfirmation(), nullptr);
  EXPECT_FALSE(session->annotationPendingRemoval()->has_value());
}

TEST_F(ReaderScreenDisplayTest, DeletesTheReadingHistoryOnlyAfterConfirmation) {
  storedBookmark("Call me Ishmael");
  openSession();
  makeScreen();
  screen->presentClearReadingDataConfirmation();
  ASSERT_NE(screen->clearReadingDataConfirmation(), nullptr);
  AdwMessageDialog* dialog = ADW_MESSAGE_DIALOG(screen->clearReadingDataConfirmation());
  EXPECT_STREQ(adw_message_dialog_get_heading(dialog), "Delete Reading Progress and Annotations?");
  EXPECT_STREQ(adw_message_dialog_get_body(dialog),
               "This permanently deletes this book\u2019s reading position, bookmarks, highlights, "
               "and notes. The EPUB file and cached book files are not removed.");
  EXPECT_STREQ(adw_message_dialog_get_response_label(dialog, "delete"), "Delete Reading History");
  EXPECT_EQ(adw_message_dialog_get_response_appearance(dialog, "delete"), ADW_RESPONSE_DESTRUCTIVE);

  adw_message_dialog_response(dialog, "cancel");
  waitUntil([] { return !g_main_context_pending(nullptr); });
  EXPECT_EQ(bookmarks->stored.size(), 1U);

  screen->presentClearReadingDataConfirmation();
  adw_message_dialog_response(ADW_MESSAGE_DIALOG(screen->clearReadingDataConfirmation()), "delete");
  ASSERT_TRUE(waitUntil([&] { return bookmarks->stored.empty(); }));
  EXPECT_EQ(positions->deleteCount, 1);
  EXPECT_TRUE(waitUntil([&] { return session->bookmarks()->empty(); }));
}

}  // namespace
}  // namespace tomekeeper::testing
