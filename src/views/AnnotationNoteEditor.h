#pragma once

#include <gtk/gtk.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "async/Task.h"
#include "views/ViewSupport.h"

namespace tomekeeper {

// The small panel in which a highlight's note is written, as a dialog over a window or as a
// popover pointing at the highlight. Its text view takes Enter to save, Shift+Enter for a new
// line and Escape to cancel, none of it while an input method is composing.
//
// The editor owns only its progress (`saving`, `saveFailed`) and its widgets; the draft goes
// out through `draftChanged`, and saving is the caller's `save`, which throws on failure (the
// draft then stays, with a red line under it). Made with create() and held by its caller;
// the save task holds it weakly. `finished` is called once, from the main loop, after a save
// succeeded or the editor was left (Cancel, Escape, the dialog closed, the popover dismissed);
// the caller may drop the editor there. Main executor only.
class AnnotationNoteEditor : public std::enable_shared_from_this<AnnotationNoteEditor> {
 public:
  static constexpr std::size_t kCharacterLimit = 4000;

  enum class Ending { saved, cancelled };
  struct Callbacks {
    std::function<async::Task<void>(std::string draft)> save;
    std::function<void(const std::string& draft)> draftChanged;
    std::function<void(Ending ending)> finished;
  };

  static std::shared_ptr<AnnotationNoteEditor> create(std::string excerpt, std::string draft,
                                                      Callbacks callbacks);
  ~AnnotationNoteEditor();
  AnnotationNoteEditor(const AnnotationNoteEditor&) = delete;
  AnnotationNoteEditor& operator=(const AnnotationNoteEditor&) = delete;

  // Shows the editor in a modal dialog over `parent` (may be null).
  void presentInDialog(GtkWindow* parent);
  // Shows the editor in a popover parented to `anchor` and pointing at `pointingTo`, a
  // rectangle in `anchor`'s coordinates.
  void presentInPopover(GtkWidget* anchor, const GdkRectangle& pointingTo);
  // Closes the dialog or popover without calling `finished`.
  void dismiss();

  // The panel itself, without its dialog or popover.
  GtkWidget* widget() const noexcept { return root_.get(); }
  GtkWidget* textView() const noexcept { return textView_; }
  GtkWidget* countLabel() const noexcept { return countLabel_; }
  GtkWidget* doneButton() const noexcept { return doneButton_; }
  GtkWidget* cancelButton() const noexcept { return cancelButton_; }
  GtkWidget* failureLabel() const noexcept { return failureLabel_; }
  // The dialog or popover while shown.
  GtkWidget* container() const noexcept { return container_.get(); }

  std::string draft() const;
  void setDraft(const std::string& draft);
  // The draft's length in user-perceived characters (extended grapheme clusters).
  std::size_t characterCount() const noexcept { return characterCount_; }
  bool isSaving() const noexcept { return saving_; }
  bool saveFailed() const noexcept { return saveFailed_; }

  // "Done" and Enter: nothing while saving or above the limit; else runs `save`.
  void submit();
  // "Cancel" and Escape.
  void cancel();

 private:
  AnnotationNoteEditor(std::string excerpt, Callbacks callbacks);
  void build(const std::string& excerpt);
  void update();
  void finish(Ending ending);
  bool handleKey(guint keyval, GdkModifierType state);
  static async::Task<void> runSave(std::weak_ptr<AnnotationNoteEditor> editor,
                                   std::function<async::Task<void>(std::string)> save,
                                   std::string draft);

  static void onBufferChanged(GtkTextBuffer* buffer, gpointer self);
  static void onPreeditChanged(GtkTextView* view, char* preedit, gpointer self);
  static gboolean onKeyPressed(GtkEventControllerKey* controller, guint keyval, guint keycode,
                               GdkModifierType state, gpointer self);
  static void onDone(GtkButton* button, gpointer self);
  static void onCancel(GtkButton* button, gpointer self);
  static void onPopoverClosed(GtkPopover* popover, gpointer self);
  static gboolean onDialogCloseRequest(GtkWindow* window, gpointer self);

  Callbacks callbacks_;
  views::WidgetHandle root_;
  views::WidgetHandle container_;
  enum class ContainerKind { none, dialog, popover };
  ContainerKind containerKind_ = ContainerKind::none;
  GtkWidget* textView_ = nullptr;
  GtkWidget* countLabel_ = nullptr;
  GtkWidget* doneButton_ = nullptr;
  GtkWidget* cancelButton_ = nullptr;
  GtkWidget* failureLabel_ = nullptr;
  std::size_t characterCount_ = 0;
  std::string preedit_;
  bool saving_ = false;
  bool saveFailed_ = false;
  bool finished_ = false;
  views::ViewConnections connections_;
  views::ViewConnections containerConnections_;
};

}  // namespace tomekeeper
