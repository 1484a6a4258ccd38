#pragma once

#include <gtk/gtk.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

#include <sigc++/signal.h>

#include "model/Annotation.h"
#include "model/Uuid.h"
#include "session/ReaderSession.h"
#include "views/AnnotationNoteEditor.h"
#include "views/BookmarkFeedback.h"
#include "views/FontSelectionView.h"
#include "views/PublicationSearchView.h"
#include "views/ReaderSidebar.h"
#include "views/ViewSupport.h"

namespace tomekeeper {

enum class SidebarVisibility { hidden, visible };

// The content of a reader window: the collapsible sidebar beside the page, and over the page
// the page-label pill, the error banner, the bookmark note, the "Highlight" callout at a text
// selection and the inline note editor. It also raises the two confirmations of the screen
// (removing a highlight with a note, deleting the book's reading history) and the note sheet.
//
// The web view is made by the session's host and handed in; the screen adds its own reference
// and shows it, nothing more. The toolbar and its menus belong to the window: it calls the
// commands below and puts `fontSelectionView()` and `searchView()` into its popovers. The
// screen keeps the session alive; the window owns the screen and destroys it before the
// session closes or with it. Main executor only; not movable.
class ReaderScreen {
 public:
  // `windowLifetime` is the window's token: every command the screen and its views start stops
  // when the window closes.
  ReaderScreen(std::shared_ptr<ReaderSession> session, GtkWidget* webView,
               SidebarVisibility initialSidebarVisibility, std::stop_token windowLifetime = {});
  ~ReaderScreen();
  ReaderScreen(const ReaderScreen&) = delete;
  ReaderScreen& operator=(const ReaderScreen&) = delete;

  // The root widget, owned by the screen; the window adds its own reference when it sets it as
  // its content.
  GtkWidget* widget() const noexcept { return root_.get(); }

  // ---- Sidebar ----
  bool sidebarIsVisible() const;
  // The widest the sidebar may be: a third of the screen, at most 360 pixels.
  int sidebarMaximumWidth() const;
  void setSidebarVisibility(SidebarVisibility visibility);
  void toggleSidebar();
  // Fires after the sidebar was shown or hidden, by the commands above or by the flap itself;
  // the window stores the new state for this book.
  sigc::signal<void()>& sidebarVisibilityChanged() noexcept { return sidebarVisibilityChanged_; }

  // ---- Commands of the toolbar ----
  // Adds or removes a bookmark here and shows "Bookmark added", "Bookmark removed" or
  // "Couldn’t update bookmark" for two seconds.
  void toggleBookmark();
  // Highlights the current selection (the toolbar item and the callout's button).
  void highlightSelection();
  // Asks "Delete Reading Progress and Annotations?"; the destructive answer clears the book's
  // reading data through the session.
  void presentClearReadingDataConfirmation();
  // Opens the note sheet for `annotation` over the window.
  void presentNoteEditor(const Annotation& annotation);

  // ---- State, for the window and for tests ----
  std::optional<BookmarkFeedback> bookmarkFeedback() const noexcept { return bookmarkFeedback_; }
  void showBookmarkFeedback(BookmarkFeedback feedback);
  // Unsaved note text per highlight, kept when an editor is left.
  const std::map<Uuid, std::string>& noteDrafts() const noexcept { return noteDrafts_; }
  AnnotationNoteEditor* inlineNoteEditor() const noexcept { return inlineNoteEditor_.get(); }
  AnnotationNoteEditor* noteSheet() const noexcept { return noteSheet_.get(); }
  GtkWidget* removalConfirmation() const noexcept { return removalDialog_.get(); }
  GtkWidget* clearReadingDataConfirmation() const noexcept { return clearDialog_.get(); }

  ReaderSidebar& sidebar() noexcept { return sidebar_; }
  FontSelectionView& fontSelectionView() noexcept { return fontSelectionView_; }
  PublicationSearchView& searchView() noexcept { return searchView_; }
  GtkWidget* pageLabelPill() const noexcept { return pageLabelPill_; }
  GtkWidget* pageLabel() const noexcept { return pageLabel_; }
  GtkWidget* errorBanner() const noexcept { return errorBanner_; }
  GtkWidget* errorLabel() const noexcept { return errorLabel_; }
  GtkWidget* bookmarkFeedbackRevealer() const noexcept { return feedbackRevealer_; }
  GtkWidget* bookmarkFeedbackLabel() const noexcept { return feedbackLabel_; }
  GtkWidget* selectionCallout() const noexcept { return selectionCallout_; }
  GtkWidget* highlightButton() const noexcept { return highlightButton_; }

 private:
  void showPageLabel();
  void showError();
  void showSelectionCallout();
  void showPendingRemoval();
  void showNoteEditingRequest();
  void showBackButton();
  void clearBookmarkFeedback(std::uint64_t generation);
  std::shared_ptr<AnnotationNoteEditor> makeNoteEditor(const Annotation& annotation,
                                                       std::shared_ptr<AnnotationNoteEditor>& slot);
  GtkWindow* window() const;
  bool placeSelectionCallout(GdkRectangle* allocation) const;

  static async::Task<void> clearFeedbackLater(std::weak_ptr<ReaderScreen*> screen,
                                              std::uint64_t generation);
  static async::Task<void> toggleBookmarkCommand(std::shared_ptr<ReaderSession> session,
                                                 std::weak_ptr<ReaderScreen*> screen);

  static void onHighlightClicked(GtkButton* button, gpointer self);
  static void onFlapRevealChanged(GObject* flap, GParamSpec* property, gpointer self);
  static void onPageResized(GtkDrawingArea* area, int width, int height, gpointer self);
  void setSidebarMaximumWidth(int width);
  static gboolean onGetChildPosition(GtkOverlay* overlay, GtkWidget* child,
                                     GdkRectangle* allocation, gpointer self);
  static void onRemovalResponse(GtkWidget* dialog, const char* response, gpointer self);
  static void onClearResponse(GtkWidget* dialog, const char* response, gpointer self);

  std::shared_ptr<ReaderSession> session_;
  std::stop_token windowLifetime_;
  // Read by the screen's own tasks to learn whether it is still there.
  std::shared_ptr<ReaderScreen*> lifetime_;
  views::WidgetHandle root_;
  views::WidgetHandle webView_;
  ReaderSidebar sidebar_;
  FontSelectionView fontSelectionView_;
  PublicationSearchView searchView_;
  GtkWidget* overlay_ = nullptr;
  GtkWidget* sidebarClamp_ = nullptr;
  GtkWidget* pageLabelPill_ = nullptr;
  GtkWidget* pageLabel_ = nullptr;
  GtkWidget* errorBanner_ = nullptr;
  GtkWidget* errorLabel_ = nullptr;
  GtkWidget* feedbackRevealer_ = nullptr;
  GtkWidget* feedbackIcon_ = nullptr;
  GtkWidget* feedbackLabel_ = nullptr;
  GtkWidget* selectionCallout_ = nullptr;
  GtkWidget* highlightButton_ = nullptr;
  GtkWidget* backButton_ = nullptr;
  std::optional<BookmarkFeedback> bookmarkFeedback_;
  std::uint64_t bookmarkFeedbackGeneration_ = 0;
  std::optional<std::stop_source> bookmarkFeedbackTimer_;
  std::map<Uuid, std::string> noteDrafts_;
  std::shared_ptr<AnnotationNoteEditor> inlineNoteEditor_;
  std::shared_ptr<AnnotationNoteEditor> noteSheet_;
  views::WidgetHandle removalDialog_;
  views::WidgetHandle clearDialog_;
  sigc::signal<void()> sidebarVisibilityChanged_;
  views::ViewConnections connections_;
  views::ViewConnections dialogConnections_;
};

}  // namespace tomekeeper
