#include "views/AnnotationNoteEditor.h"

#include <adwaita.h>

#include <exception>
#include <memory>

#include "async/MainContext.h"
#include "async/Spawn.h"
#include "session/AnnotationNote.h"
#include "views/ViewResources.h"

namespace tomekeeper {

std::shared_ptr<AnnotationNoteEditor> AnnotationNoteEditor::create(std::string excerpt,
                                                                   std::string draft,
                                                                   Callbacks callbacks) {
  std::shared_ptr<AnnotationNoteEditor> editor(
      new AnnotationNoteEditor(std::move(excerpt), std::move(callbacks)));
  editor->setDraft(draft);
  return editor;
}

AnnotationNoteEditor::AnnotationNoteEditor(std::string excerpt, Callbacks callbacks)
    : callbacks_(std::move(callbacks)) {
  build(excerpt);
}

AnnotationNoteEditor::~AnnotationNoteEditor() {
  connections_.disconnectAll();
  dismiss();
}

void AnnotationNoteEditor::build(const std::string& excerpt) {
  const views::ViewBuilder builder("AnnotationNoteEditor.ui");
  root_ = builder.root("root");
  views::setLabelText(builder.widget("excerpt_label"), excerpt);
  textView_ = builder.widget("text_view");
  failureLabel_ = builder.widget("failure_label");
  countLabel_ = builder.widget("count_label");
  cancelButton_ = builder.widget("cancel_button");
  doneButton_ = builder.widget("done_button");

  // Capture phase: the keys are seen before the text view's own handling and its input
  // method, so the handler itself must step aside while a composition is under way.
  GtkEventController* keys = gtk_event_controller_key_new();
  gtk_event_controller_set_propagation_phase(keys, GTK_PHASE_CAPTURE);
  connections_.add(keys, "key-pressed", G_CALLBACK(onKeyPressed), this);
  gtk_widget_add_controller(textView_, keys);
  connections_.add(textView_, "preedit-changed", G_CALLBACK(onPreeditChanged), this);
  connections_.add(gtk_text_view_get_buffer(GTK_TEXT_VIEW(textView_)), "changed",
                   G_CALLBACK(onBufferChanged), this);
  connections_.add(cancelButton_, "clicked", G_CALLBACK(onCancel), this);
  connections_.add(doneButton_, "clicked", G_CALLBACK(onDone), this);
}

std::string AnnotationNoteEditor::draft() const {
  GtkTextBuffer* buffer = gtk_text_view_get_buffer(GTK_TEXT_VIEW(textView_));
  GtkTextIter start;
  GtkTextIter end;
  gtk_text_buffer_get_bounds(buffer, &start, &end);
  const std::unique_ptr<char, decltype(&g_free)> text(
      gtk_text_buffer_get_text(buffer, &start, &end, FALSE), &g_free);
  return text.get();
}

void AnnotationNoteEditor::setDraft(const std::string& draft) {
  gtk_text_buffer_set_text(gtk_text_view_get_buffer(GTK_TEXT_VIEW(textView_)), draft.c_str(),
                           static_cast<int>(draft.size()));
  update();
}

void AnnotationNoteEditor::update() {
  characterCount_ = AnnotationNote::graphemeCount(draft());
  const bool overLimit = characterCount_ > kCharacterLimit;
  views::setLabelText(countLabel_,
                      std::to_string(characterCount_) + " / " + std::to_string(kCharacterLimit));
  if (overLimit) {
    gtk_widget_remove_css_class(countLabel_, "dim-label");
    gtk_widget_add_css_class(countLabel_, "error");
  } else {
    gtk_widget_remove_css_class(countLabel_, "error");
    gtk_widget_add_css_class(countLabel_, "dim-label");
  }
  gtk_widget_set_sensitive(doneButton_, !overLimit && !saving_);
  gtk_widget_set_visible(failureLabel_, saveFailed_);
}

void AnnotationNoteEditor::submit() {
  if (saving_ || finished_) return;
  // Above the limit the draft stays as it is; the count is already red.
  if (characterCount_ > kCharacterLimit) return;
  saveFailed_ = false;
  saving_ = true;
  update();
  async::spawn(runSave(weak_from_this(), callbacks_.save, draft()));
}

async::Task<void> AnnotationNoteEditor::runSave(std::weak_ptr<AnnotationNoteEditor> editor,
                                                std::function<async::Task<void>(std::string)> save,
                                                std::string draft) {
  bool failed = false;
  try {
    if (save) co_await save(std::move(draft));
  } catch (...) {
    failed = true;
  }
  const auto alive = editor.lock();
  if (!alive) co_return;
  alive->saving_ = false;
  alive->saveFailed_ = failed;
  alive->update();
  if (!failed) alive->finish(Ending::saved);
}

void AnnotationNoteEditor::cancel() {
  finish(Ending::cancelled);
}

void AnnotationNoteEditor::finish(Ending ending) {
  if (finished_) return;
  finished_ = true;
  containerConnections_.disconnectAll();
  // The container goes and the caller hears of it from the main loop, never from inside the
  // signal that ended the editor: the caller may drop the editor there.
  async::postToMain([weak = weak_from_this(), ending] {
    const auto editor = weak.lock();
    if (!editor) return;
    editor->dismiss();
    if (editor->callbacks_.finished) editor->callbacks_.finished(ending);
  });
}

void AnnotationNoteEditor::presentInDialog(GtkWindow* parent) {
  dismiss();
  GtkWidget* dialog = adw_window_new();
  container_ = views::WidgetHandle::retain(dialog);
  containerKind_ = ContainerKind::dialog;
  gtk_window_set_modal(GTK_WINDOW(dialog), TRUE);
  if (parent != nullptr) gtk_window_set_transient_for(GTK_WINDOW(dialog), parent);
  gtk_window_set_title(GTK_WINDOW(dialog), "Note");
  gtk_window_set_resizable(GTK_WINDOW(dialog), FALSE);
  adw_window_set_content(ADW_WINDOW(dialog), root_.get());
  containerConnections_.add(dialog, "close-request", G_CALLBACK(onDialogCloseRequest), this);
  gtk_window_present(GTK_WINDOW(dialog));
  gtk_widget_grab_focus(textView_);
}

void AnnotationNoteEditor::presentInPopover(GtkWidget* anchor, const GdkRectangle& pointingTo) {
  dismiss();
  GtkWidget* popover = gtk_popover_new();
  container_ = views::WidgetHandle::adopt(popover);
  containerKind_ = ContainerKind::popover;
  gtk_popover_set_child(GTK_POPOVER(popover), root_.get());
  gtk_widget_set_parent(popover, anchor);
  gtk_popover_set_pointing_to(GTK_POPOVER(popover), &pointingTo);
  containerConnections_.add(popover, "closed", G_CALLBACK(onPopoverClosed), this);
  gtk_popover_popup(GTK_POPOVER(popover));
  gtk_widget_grab_focus(textView_);
}

void AnnotationNoteEditor::dismiss() {
  containerConnections_.disconnectAll();
  GtkWidget* container = container_.get();
  if (container == nullptr) return;
  switch (containerKind_) {
    case ContainerKind::dialog:
      adw_window_set_content(ADW_WINDOW(container), nullptr);
      gtk_window_destroy(GTK_WINDOW(container));
      break;
    case ContainerKind::popover:
      gtk_popover_popdown(GTK_POPOVER(container));
      gtk_popover_set_child(GTK_POPOVER(container), nullptr);
      if (gtk_widget_get_parent(container) != nullptr) gtk_widget_unparent(container);
      break;
    case ContainerKind::none:
      break;
  }
  containerKind_ = ContainerKind::none;
  container_.reset();
}

bool AnnotationNoteEditor::handleKey(guint keyval, GdkModifierType state) {
  // During a composition the keys belong to the input method: Enter confirms it.
  if (!preedit_.empty()) return false;
  switch (keyval) {
    case GDK_KEY_Escape:
      cancel();
      return true;
    case GDK_KEY_Return:
    case GDK_KEY_KP_Enter:
    case GDK_KEY_ISO_Enter:
      // Shift+Enter is left to the text view, which makes a new line.
      if ((state & GDK_SHIFT_MASK) != 0) return false;
      submit();
      return true;
    default:
      return false;
  }
}

void AnnotationNoteEditor::onBufferChanged(GtkTextBuffer*, gpointer self) {
  auto* editor = static_cast<AnnotationNoteEditor*>(self);
  editor->update();
  if (editor->callbacks_.draftChanged) editor->callbacks_.draftChanged(editor->draft());
}

void AnnotationNoteEditor::onPreeditChanged(GtkTextView*, char* preedit, gpointer self) {
  static_cast<AnnotationNoteEditor*>(self)->preedit_ = preedit != nullptr ? preedit : "";
}

gboolean AnnotationNoteEditor::onKeyPressed(GtkEventControllerKey*, guint keyval, guint,
                                            GdkModifierType state, gpointer self) {
  return static_cast<AnnotationNoteEditor*>(self)->handleKey(keyval, state) ? TRUE : FALSE;
}

void AnnotationNoteEditor::onDone(GtkButton*, gpointer self) {
  static_cast<AnnotationNoteEditor*>(self)->submit();
}

void AnnotationNoteEditor::onCancel(GtkButton*, gpointer self) {
  static_cast<AnnotationNoteEditor*>(self)->cancel();
}

void AnnotationNoteEditor::onPopoverClosed(GtkPopover*, gpointer self) {
  static_cast<AnnotationNoteEditor*>(self)->finish(Ending::cancelled);
}

gboolean AnnotationNoteEditor::onDialogCloseRequest(GtkWindow*, gpointer self) {
  static_cast<AnnotationNoteEditor*>(self)->finish(Ending::cancelled);
  return TRUE;
}

}  // namespace tomekeeper
