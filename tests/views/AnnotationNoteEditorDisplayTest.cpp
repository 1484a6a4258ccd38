#include "views/AnnotationNoteEditor.h"

#include "ViewsDisplayTestSupport.h"
#include "persistence/PersistenceFailures.h"

namespace tomekeeper::testing {
namespace {

async::Task<void> saveThroughSession(std::shared_ptr<ReaderSession> session, Annotation annotation,
                                     std::string draft) {
  co_await session->saveNote(std::move(annotation), std::move(draft));
}

class AnnotationNoteEditorDisplayTest : public ViewsDisplayTest {
 protected:
  void SetUp() override {
    ViewsDisplayTest::SetUp();
    annotation = storedAnnotation("Call me Ishmael.");
    openSession();
  }

  // An editor over the session's save, shown in a popover over a window's content.
  void openEditor(const std::string& draft) {
    AnnotationNoteEditor::Callbacks callbacks;
    callbacks.save = [this](std::string text) {
      ++saveCalls;
      return saveThroughSession(session, annotation, std::move(text));
    };
    callbacks.finished = [this](AnnotationNoteEditor::Ending ending) { endings.push_back(ending); };
    editor = AnnotationNoteEditor::create(annotation.selectedText, draft, std::move(callbacks));
    anchor = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    showInWindow(anchor);
    editor->presentInPopover(anchor, GdkRectangle{20, 20, 1, 1});
    ASSERT_TRUE(waitUntil([&] { return gtk_widget_get_mapped(editor->textView()); }));
  }

  GtkEventController* captureKeyController() const {
    const auto controllers =
        GObjectHandle<GListModel>::adopt(gtk_widget_observe_controllers(editor->textView()));
    for (guint index = 0; index < g_list_model_get_n_items(controllers.get()); ++index) {
      const auto controller = GObjectHandle<GtkEventController>::adopt(
          static_cast<GtkEventController*>(g_list_model_get_item(controllers.get(), index)));
      if (GTK_IS_EVENT_CONTROLLER_KEY(controller.get()) &&
          gtk_event_controller_get_propagation_phase(controller.get()) == GTK_PHASE_CAPTURE) {
        // The text view keeps its own reference.
        return controller.get();
      }
    }
    return nullptr;
  }

  // Delivers a key press to the text view's key handling as GTK does, and answers whether it
  // was taken before the text view's own handling.
  bool pressKey(guint keyval, GdkModifierType modifiers = GdkModifierType(0)) {
    GtkEventController* controller = captureKeyController();
    EXPECT_NE(controller, nullptr);
    gboolean handled = FALSE;
    g_signal_emit_by_name(controller, "key-pressed", keyval, 36U, modifiers, &handled);
    return handled != FALSE;
  }

  std::string countText() const { return gtk_label_get_text(GTK_LABEL(editor->countLabel())); }

  Annotation annotation;
  std::shared_ptr<AnnotationNoteEditor> editor;
  GtkWidget* anchor = nullptr;
  int saveCalls = 0;
  std::vector<AnnotationNoteEditor::Ending> endings;
};

std::string repeated(const std::string& piece, std::size_t times) {
  std::string text;
  for (std::size_t index = 0; index < times; ++index) text += piece;
  return text;
}

TEST_F(AnnotationNoteEditorDisplayTest, ShowsItsTextsAndCountsGraphemeClusters) {
  openEditor("Whaling");
  GtkWidget* panel = editor->widget();
  EXPECT_TRUE(showsText(panel, "Note"));
  EXPECT_TRUE(showsText(panel, "Call me Ishmael."));
  EXPECT_TRUE(
      showsText(panel, "Enter to save \u00B7 Shift-Enter for a new line \u00B7 Esc to cancel"));
  EXPECT_TRUE(showsText(panel, "Cancel"));
  EXPECT_TRUE(showsText(panel, "Done"));
  EXPECT_FALSE(
      showsText(panel, "Couldn\u2019t save the note. Your draft is still here. Please try again."));
  EXPECT_EQ(countText(), "7 / 4000");
  EXPECT_TRUE(gtk_widget_get_sensitive(editor->doneButton()));
  EXPECT_TRUE(gtk_widget_has_focus(editor->textView()));

  // The count follows the text, an emoji of several code points one character.
  gtk_text_buffer_set_text(gtk_text_view_get_buffer(GTK_TEXT_VIEW(editor->textView())),
                           "\U0001F469\u200D\U0001F469\u200D\U0001F467 ok", -1);
  EXPECT_EQ(countText(), "4 / 4000");
}

TEST_F(AnnotationNoteEditorDisplayTest, RefusesANoteOfFourThousandAndOneCharactersByEitherRoute) {
  openEditor(repeated("a", 4001));
  EXPECT_EQ(countText(), "4001 / 4000");
  EXPECT_TRUE(gtk_widget_has_css_class(editor->countLabel(), "error"));
  EXPECT_FALSE(gtk_widget_get_sensitive(editor->doneButton()));

  EXPECT_TRUE(pressKey(GDK_KEY_Return));
  editor->submit();
  waitUntil([] { return !g_main_context_pending(nullptr); });
  EXPECT_EQ(saveCalls, 0);
  EXPECT_FALSE(editor->isSaving());
  EXPECT_EQ(editor->draft().size(), 4001U);
  EXPECT_TRUE(endings.empty());
}

TEST_F(AnnotationNoteEditorDisplayTest, SavesANoteOfExactlyFourThousandCharactersWithEnter) {
  openEditor(repeated("\u00E9", 4000));
  EXPECT_EQ(countText(), "4000 / 4000");
  EXPECT_FALSE(gtk_widget_has_css_class(editor->countLabel(), "error"));
  EXPECT_TRUE(gtk_widget_get_sensitive(editor->doneButton()));

  EXPECT_TRUE(pressKey(GDK_KEY_Return));
  ASSERT_TRUE(waitUntil([&] { return !endings.empty(); }));
  EXPECT_EQ(endings.front(), AnnotationNoteEditor::Ending::saved);
  EXPECT_EQ(saveCalls, 1);
  ASSERT_EQ(session->annotations()->size(), 1U);
  EXPECT_EQ(session->annotations()->front().note, repeated("\u00E9", 4000));
  EXPECT_EQ(editor->container(), nullptr);
}

TEST_F(AnnotationNoteEditorDisplayTest, LeavesShiftEnterToTheTextViewAndCancelsWithEscape) {
  openEditor("first line");
  EXPECT_FALSE(pressKey(GDK_KEY_Return, GDK_SHIFT_MASK));
  EXPECT_FALSE(pressKey(GDK_KEY_KP_Enter, GDK_SHIFT_MASK));
  EXPECT_EQ(saveCalls, 0);
  EXPECT_FALSE(editor->isSaving());
  // What the text view then does with it: a new line, counted as one more character.
  GtkTextBuffer* buffer = gtk_text_view_get_buffer(GTK_TEXT_VIEW(editor->textView()));
  g_signal_emit_by_name(editor->textView(), "insert-at-cursor", "\n");
  EXPECT_NE(gtk_text_buffer_get_char_count(buffer), 0);
  EXPECT_EQ(countText(), "11 / 4000");

  EXPECT_TRUE(pressKey(GDK_KEY_Escape));
  ASSERT_TRUE(waitUntil([&] { return !endings.empty(); }));
  EXPECT_EQ(endings.front(), AnnotationNoteEditor::Ending::cancelled);
  EXPECT_EQ(saveCalls, 0);
}

TEST_F(AnnotationNoteEditorDisplayTest, LeavesEveryKeyToTheInputMethodWhileItComposes) {
  openEditor("draft");
  g_signal_emit_by_name(editor->textView(), "preedit-changed", "\u304B");
  EXPECT_FALSE(pressKey(GDK_KEY_Return));
  EXPECT_FALSE(pressKey(GDK_KEY_Escape));
  EXPECT_EQ(saveCalls, 0);
  EXPECT_TRUE(endings.empty());

  // The composition ends: Enter saves again.
  g_signal_emit_by_name(editor->textView(), "preedit-changed", "");
  EXPECT_TRUE(pressKey(GDK_KEY_Return));
  ASSERT_TRUE(waitUntil([&] { return !endings.empty(); }));
  EXPECT_EQ(saveCalls, 1);
}

TEST_F(AnnotationNoteEditorDisplayTest, KeepsTheDraftAndShowsTheFailureWhenTheSaveFails) {
  annotations->writeFailure = AnnotationPersistenceFailure::cannotWrite;
  openEditor("A note that will not save");
  g_signal_emit_by_name(editor->doneButton(), "clicked");
  EXPECT_TRUE(editor->isSaving());
  EXPECT_FALSE(gtk_widget_get_sensitive(editor->doneButton()));
  ASSERT_TRUE(waitUntil([&] { return !editor->isSaving(); }));
  EXPECT_TRUE(editor->saveFailed());
  EXPECT_TRUE(isShown(editor->failureLabel()));
  EXPECT_EQ(std::string(gtk_label_get_text(GTK_LABEL(editor->failureLabel()))),
            "Couldn\u2019t save the note. Your draft is still here. Please try again.");
  EXPECT_EQ(editor->draft(), "A note that will not save");
  EXPECT_TRUE(endings.empty());
  EXPECT_NE(editor->container(), nullptr);
  EXPECT_TRUE(gtk_widget_get_sensitive(editor->doneButton()));

  // The next attempt clears the red line and succeeds.
  annotations->writeFailure.reset();
  g_signal_emit_by_name(editor->doneButton(), "clicked");
  EXPECT_FALSE(isShown(editor->failureLabel()));
  ASSERT_TRUE(waitUntil([&] { return !endings.empty(); }));
  EXPECT_EQ(session->annotations()->front().note, "A note that will not save");
}

// Real key events through the X server (xdotool), so that the text view's own handling of
// Shift+Enter is what makes the new line.
TEST_F(AnnotationNoteEditorDisplayTest, TypedShiftEnterMakesANewLineAndTypedEnterSaves) {
  gchar* xdotool = g_find_program_in_path("xdotool");
  if (xdotool == nullptr) GTEST_SKIP() << "xdotool is not installed";
  g_free(xdotool);
  if (std::string(G_OBJECT_TYPE_NAME(gdk_display_get_default())) != "GdkX11Display")
    GTEST_SKIP() << "not an X11 display";
  openEditor("line");
  GtkTextBuffer* buffer = gtk_text_view_get_buffer(GTK_TEXT_VIEW(editor->textView()));
  GtkTextIter end;
  gtk_text_buffer_get_end_iter(buffer, &end);
  gtk_text_buffer_place_cursor(buffer, &end);
  ASSERT_TRUE(waitUntil([&] { return gtk_widget_has_focus(editor->textView()); }));
  const auto type = [](const char* keys) {
    const std::string command = std::string("xdotool key --delay 20 ") + keys;
    gint status = 0;
    ASSERT_TRUE(g_spawn_command_line_sync(command.c_str(), nullptr, nullptr, &status, nullptr));
  };

  type("shift+Return x");
  ASSERT_TRUE(waitUntil([&] { return editor->draft() == "line\nx"; }));
  EXPECT_EQ(countText(), "6 / 4000");
  EXPECT_EQ(saveCalls, 0);

  type("Return");
  ASSERT_TRUE(waitUntil([&] { return !endings.empty(); }));
  EXPECT_EQ(endings.front(), AnnotationNoteEditor::Ending::saved);
  EXPECT_EQ(session->annotations()->front().note, "line\nx");
}

TEST_F(AnnotationNoteEditorDisplayTest, OpensAsADialog) {
  AnnotationNoteEditor::Callbacks callbacks;
  callbacks.finished = [this](AnnotationNoteEditor::Ending ending) { endings.push_back(ending); };
  editor = AnnotationNoteEditor::create("Call me Ishmael.", "", std::move(callbacks));
  editor->presentInDialog(nullptr);
  ASSERT_TRUE(GTK_IS_WINDOW(editor->container()));
  ASSERT_TRUE(waitUntil([&] { return gtk_widget_get_mapped(editor->textView()); }));
  EXPECT_EQ(countText(), "0 / 4000");
  g_signal_emit_by_name(editor->cancelButton(), "clicked");
  ASSERT_TRUE(waitUntil([&] { return !endings.empty(); }));
  EXPECT_EQ(editor->container(), nullptr);
}

}  // namespace
}  // namespace tomekeeper::testing
