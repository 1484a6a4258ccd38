#include "views/ReaderScreen.h"

#include <adwaita.h>

#include <algorithm>
#include <chrono>

#include "async/Sleep.h"
#include "async/Spawn.h"
#include "views/SessionCommand.h"
#include "views/ViewResources.h"

namespace tomekeeper {

namespace {

constexpr auto kBookmarkFeedbackDuration = std::chrono::seconds(2);
constexpr int kCalloutGap = 8;
constexpr int kSidebarMaximumWidth = 360;

async::Task<void> saveNoteCommand(std::shared_ptr<ReaderSession> session, Annotation annotation,
                                  std::string draft) {
  co_await session->saveNote(std::move(annotation), std::move(draft));
}

}  // namespace

ReaderScreen::ReaderScreen(std::shared_ptr<ReaderSession> session, GtkWidget* webView,
                           SidebarVisibility initialSidebarVisibility,
                           std::stop_token windowLifetime)
    : session_(std::move(session)),
      windowLifetime_(std::move(windowLifetime)),
      lifetime_(std::make_shared<ReaderScreen*>(this)),
      webView_(views::WidgetHandle::retain(webView)),
      sidebar_(session_, windowLifetime_),
      fontSelectionView_(session_, windowLifetime_),
      searchView_(session_, windowLifetime_) {
  const views::ViewBuilder builder("ReaderScreen.ui");
  root_ = builder.root("root");
  GtkWidget* flap = root_.get();
  overlay_ = builder.widget("overlay");
  pageLabelPill_ = builder.widget("page_label_pill");
  pageLabel_ = builder.widget("page_label");
  errorBanner_ = builder.widget("error_banner");
  errorLabel_ = builder.widget("error_label");
  feedbackRevealer_ = builder.widget("bookmark_feedback_revealer");
  feedbackIcon_ = builder.widget("bookmark_feedback_icon");
  feedbackLabel_ = builder.widget("bookmark_feedback_label");
  selectionCallout_ = builder.widget("selection_callout");
  highlightButton_ = builder.widget("highlight_button");

  // The sidebar takes at most a third of the screen, and never more than kSidebarMaximumWidth.
  // A scrolled window without scroll bars holds it at that width (GTK applies content widths
  // only to a policy other than "never"), set from the screen's width each time the page is
  // given a new size.
  sidebarClamp_ = gtk_scrolled_window_new();
  gtk_scrolled_window_set_policy(GTK_SCROLLED_WINDOW(sidebarClamp_), GTK_POLICY_EXTERNAL,
                                 GTK_POLICY_NEVER);
  gtk_scrolled_window_set_propagate_natural_width(GTK_SCROLLED_WINDOW(sidebarClamp_), TRUE);
  // Its chapter buttons expand within it; the sidebar itself must not share the screen's
  // spare width with the page.
  gtk_widget_set_hexpand(sidebarClamp_, FALSE);
  gtk_scrolled_window_set_child(GTK_SCROLLED_WINDOW(sidebarClamp_), sidebar_.widget());
  setSidebarMaximumWidth(kSidebarMaximumWidth);
  adw_flap_set_flap(ADW_FLAP(flap), sidebarClamp_);
  GtkWidget* sizeWatch = gtk_drawing_area_new();
  gtk_widget_set_can_target(sizeWatch, FALSE);
  gtk_overlay_add_overlay(GTK_OVERLAY(overlay_), sizeWatch);
  connections_.add(sizeWatch, "resize", G_CALLBACK(onPageResized), this);
  adw_flap_set_reveal_flap(ADW_FLAP(flap), initialSidebarVisibility == SidebarVisibility::visible);
  gtk_widget_add_css_class(sidebar_.widget(), "background");
  if (webView != nullptr) {
    gtk_widget_set_hexpand(webView, TRUE);
    gtk_widget_set_vexpand(webView, TRUE);
    gtk_box_prepend(GTK_BOX(builder.widget("page_column")), webView);
  }

  connections_.add(highlightButton_, "clicked", G_CALLBACK(onHighlightClicked), this);
  connections_.add(flap, "notify::reveal-flap", G_CALLBACK(onFlapRevealChanged), this);
  connections_.add(overlay_, "get-child-position", G_CALLBACK(onGetChildPosition), this);
  const auto watch = [this](const auto& property, void (ReaderScreen::*show)()) {
    connections_.add(property.changed().connect([this, show] { (this->*show)(); }));
  };
  watch(session_->position(), &ReaderScreen::showPageLabel);
  watch(session_->readingMode(), &ReaderScreen::showPageLabel);
  watch(session_->layoutReport().effectiveColumnCount, &ReaderScreen::showPageLabel);
  watch(session_->error(), &ReaderScreen::showError);
  watch(session_->currentSelectionRect(), &ReaderScreen::showSelectionCallout);
  watch(session_->annotationPendingRemoval(), &ReaderScreen::showPendingRemoval);
  watch(session_->noteEditingRequest(), &ReaderScreen::showNoteEditingRequest);
  showPageLabel();
  showError();
  showSelectionCallout();
  showPendingRemoval();
  showNoteEditingRequest();

  // After a jump (a link, a contents entry, a search result), a way back over the page.
  backButton_ = gtk_button_new();
  GtkWidget* backContent = adw_button_content_new();
  adw_button_content_set_icon_name(ADW_BUTTON_CONTENT(backContent), "go-previous-symbolic");
  adw_button_content_set_label(ADW_BUTTON_CONTENT(backContent), "Back");
  gtk_button_set_child(GTK_BUTTON(backButton_), backContent);
  gtk_actionable_set_action_name(GTK_ACTIONABLE(backButton_), "win.go-back");
  gtk_widget_set_tooltip_text(backButton_, "Back to where you were (Alt+Left)");
  gtk_widget_add_css_class(backButton_, "osd");
  gtk_widget_add_css_class(backButton_, "pill");
  gtk_widget_set_halign(backButton_, GTK_ALIGN_START);
  gtk_widget_set_valign(backButton_, GTK_ALIGN_END);
  gtk_widget_set_margin_start(backButton_, 18);
  gtk_widget_set_margin_bottom(backButton_, 18);
  gtk_overlay_add_overlay(GTK_OVERLAY(overlay_), backButton_);
  watch(session_->navigationAvailability(), &ReaderScreen::showBackButton);
  showBackButton();
}

ReaderScreen::~ReaderScreen() {
  lifetime_.reset();
  if (bookmarkFeedbackTimer_) bookmarkFeedbackTimer_->request_stop();
  connections_.disconnectAll();
  dialogConnections_.disconnectAll();
  inlineNoteEditor_.reset();
  noteSheet_.reset();
  for (views::WidgetHandle* dialog : {&removalDialog_, &clearDialog_}) {
    if (*dialog) gtk_window_destroy(GTK_WINDOW(dialog->get()));
    dialog->reset();
  }
}

void ReaderScreen::setSidebarMaximumWidth(int width) {
  // The flap gives the sidebar its minimum width: both bounds are the width wanted. (The
  // minimum goes first out of the way, so that it is never above the maximum.)
  GtkScrolledWindow* bounds = GTK_SCROLLED_WINDOW(sidebarClamp_);
  gtk_scrolled_window_set_min_content_width(bounds, -1);
  gtk_scrolled_window_set_max_content_width(bounds, width);
  gtk_scrolled_window_set_min_content_width(bounds, width);
}

int ReaderScreen::sidebarMaximumWidth() const {
  return gtk_scrolled_window_get_max_content_width(GTK_SCROLLED_WINDOW(sidebarClamp_));
}

void ReaderScreen::onPageResized(GtkDrawingArea*, int, int, gpointer self) {
  auto* screen = static_cast<ReaderScreen*>(self);
  // The screen has its width before the page inside it is allocated.
  const int screenWidth = gtk_widget_get_width(screen->root_.get());
  const int maximum = std::min(kSidebarMaximumWidth, screenWidth / 3);
  if (screenWidth <= 0 || maximum == screen->sidebarMaximumWidth()) return;
  // Not in the middle of this allocation: on the next turn of the loop.
  g_idle_add_full(
      G_PRIORITY_HIGH_IDLE,
      [](gpointer data) -> gboolean {
        auto* lifetime = static_cast<std::weak_ptr<ReaderScreen*>*>(data);
        if (const auto alive = lifetime->lock()) {
          ReaderScreen* current = *alive;
          const int width = gtk_widget_get_width(current->root_.get());
          current->setSidebarMaximumWidth(std::min(kSidebarMaximumWidth, width / 3));
        }
        return G_SOURCE_REMOVE;
      },
      new std::weak_ptr<ReaderScreen*>(screen->lifetime_),
      [](gpointer data) { delete static_cast<std::weak_ptr<ReaderScreen*>*>(data); });
}

bool ReaderScreen::sidebarIsVisible() const {
  return adw_flap_get_reveal_flap(ADW_FLAP(root_.get())) != FALSE;
}

void ReaderScreen::setSidebarVisibility(SidebarVisibility visibility) {
  adw_flap_set_reveal_flap(ADW_FLAP(root_.get()), visibility == SidebarVisibility::visible);
}

void ReaderScreen::toggleSidebar() {
  setSidebarVisibility(sidebarIsVisible() ? SidebarVisibility::hidden : SidebarVisibility::visible);
}

void ReaderScreen::toggleBookmark() {
  async::spawn(toggleBookmarkCommand(session_, lifetime_), windowLifetime_);
}

async::Task<void> ReaderScreen::toggleBookmarkCommand(std::shared_ptr<ReaderSession> session,
                                                      std::weak_ptr<ReaderScreen*> screen) {
  std::optional<BookmarkFeedback> feedback;
  try {
    const std::optional<BookmarkToggle> toggle = co_await session->toggleBookmark();
    if (toggle) {
      feedback =
          *toggle == BookmarkToggle::added ? BookmarkFeedback::added : BookmarkFeedback::removed;
    }
  } catch (const ReaderError&) {
    feedback = BookmarkFeedback::failed;
  }
  const auto alive = screen.lock();
  if (alive && feedback) (*alive)->showBookmarkFeedback(*feedback);
}

void ReaderScreen::showBookmarkFeedback(BookmarkFeedback feedback) {
  bookmarkFeedback_ = feedback;
  const std::uint64_t generation = ++bookmarkFeedbackGeneration_;
  const std::string text = bookmarkFeedbackText(feedback);
  views::setLabelText(feedbackLabel_, text);
  gtk_image_set_from_icon_name(GTK_IMAGE(feedbackIcon_), bookmarkFeedbackIconName(feedback));
  views::setAccessibleLabel(feedbackRevealer_, text);
  gtk_revealer_set_reveal_child(GTK_REVEALER(feedbackRevealer_), TRUE);
  // A newer note restarts the clock: the older sleep is interrupted and clears nothing.
  if (bookmarkFeedbackTimer_) bookmarkFeedbackTimer_->request_stop();
  bookmarkFeedbackTimer_.emplace();
  async::spawn(clearFeedbackLater(lifetime_, generation), bookmarkFeedbackTimer_->get_token());
}

async::Task<void> ReaderScreen::clearFeedbackLater(std::weak_ptr<ReaderScreen*> screen,
                                                   std::uint64_t generation) {
  co_await async::sleepFor(kBookmarkFeedbackDuration);
  if (const auto alive = screen.lock()) (*alive)->clearBookmarkFeedback(generation);
}

void ReaderScreen::clearBookmarkFeedback(std::uint64_t generation) {
  if (generation != bookmarkFeedbackGeneration_) return;
  bookmarkFeedback_.reset();
  gtk_revealer_set_reveal_child(GTK_REVEALER(feedbackRevealer_), FALSE);
}

void ReaderScreen::highlightSelection() {
  views::runSessionCommand(
      session_, [](ReaderSession& session) { return session.addHighlight(); }, windowLifetime_);
}

GtkWindow* ReaderScreen::window() const {
  GtkRoot* root = gtk_widget_get_root(root_.get());
  return root != nullptr && GTK_IS_WINDOW(root) ? GTK_WINDOW(root) : nullptr;
}

void ReaderScreen::presentClearReadingDataConfirmation() {
  if (clearDialog_) return;
  GtkWidget* dialog = views::makeDeleteReadingDataDialog(window());
  clearDialog_ = views::WidgetHandle::retain(dialog);
  dialogConnections_.add(dialog, "response", G_CALLBACK(onClearResponse), this);
  gtk_window_present(GTK_WINDOW(dialog));
}

void ReaderScreen::onClearResponse(GtkWidget*, const char* response, gpointer self) {
  auto* screen = static_cast<ReaderScreen*>(self);
  // The dialog closes itself after the response.
  screen->clearDialog_.reset();
  if (std::string_view(response) == views::kDeleteReadingDataResponse) {
    views::runSessionCommand(
        screen->session_, [](ReaderSession& session) { return session.clearReadingData(); },
        screen->windowLifetime_);
  }
}

void ReaderScreen::showPendingRemoval() {
  const std::optional<Annotation>& pending = session_->annotationPendingRemoval().value();
  if (!pending || removalDialog_) return;
  GtkWidget* dialog =
      adw_message_dialog_new(window(), "Remove Highlight and Note?",
                             "This also deletes the note attached to this highlight.");
  removalDialog_ = views::WidgetHandle::retain(dialog);
  adw_message_dialog_add_responses(ADW_MESSAGE_DIALOG(dialog), "cancel", "Cancel", "remove",
                                   "Remove", nullptr);
  adw_message_dialog_set_response_appearance(ADW_MESSAGE_DIALOG(dialog), "remove",
                                             ADW_RESPONSE_DESTRUCTIVE);
  adw_message_dialog_set_default_response(ADW_MESSAGE_DIALOG(dialog), "cancel");
  adw_message_dialog_set_close_response(ADW_MESSAGE_DIALOG(dialog), "cancel");
  dialogConnections_.add(dialog, "response", G_CALLBACK(onRemovalResponse), this);
  gtk_window_present(GTK_WINDOW(dialog));
}

void ReaderScreen::onRemovalResponse(GtkWidget*, const char* response, gpointer self) {
  auto* screen = static_cast<ReaderScreen*>(self);
  screen->removalDialog_.reset();
  if (std::string_view(response) == "remove") {
    views::runSessionCommand(
        screen->session_, [](ReaderSession& session) { return session.confirmAnnotationRemoval(); },
        screen->windowLifetime_);
  } else {
    screen->session_->cancelAnnotationRemoval();
  }
}

std::shared_ptr<AnnotationNoteEditor> ReaderScreen::makeNoteEditor(
    const Annotation& annotation, std::shared_ptr<AnnotationNoteEditor>& slot) {
  const auto draft = noteDrafts_.find(annotation.id);
  std::string text = draft != noteDrafts_.end() ? draft->second : annotation.note.value_or("");
  AnnotationNoteEditor::Callbacks callbacks;
  callbacks.save = [session = session_, annotation](std::string note) {
    return saveNoteCommand(session, annotation, std::move(note));
  };
  callbacks.draftChanged = [this, id = annotation.id](const std::string& changed) {
    noteDrafts_[id] = changed;
  };
  std::shared_ptr<AnnotationNoteEditor>* editorSlot = &slot;
  callbacks.finished = [this, id = annotation.id, editorSlot,
                        inlineForm =
                            &slot == &inlineNoteEditor_](AnnotationNoteEditor::Ending ending) {
    if (ending == AnnotationNoteEditor::Ending::saved) noteDrafts_.erase(id);
    editorSlot->reset();
    if (inlineForm) session_->endNoteEditing();
  };
  // The editor's callbacks point back here; the screen drops its editors before it goes.
  slot =
      AnnotationNoteEditor::create(annotation.selectedText, std::move(text), std::move(callbacks));
  return slot;
}

void ReaderScreen::presentNoteEditor(const Annotation& annotation) {
  makeNoteEditor(annotation, noteSheet_)->presentInDialog(window());
}

void ReaderScreen::showNoteEditingRequest() {
  const std::optional<ReaderAnnotationContextMenuRequest>& request =
      session_->noteEditingRequest().value();
  if (!request) {
    inlineNoteEditor_.reset();
    return;
  }
  const std::vector<Annotation>& annotations = session_->annotations().value();
  const auto found = std::find_if(annotations.begin(), annotations.end(), [&](const Annotation& a) {
    return a.id == request->annotationID;
  });
  if (found == annotations.end()) return;
  const GdkRectangle point{static_cast<int>(request->x), static_cast<int>(request->y), 1, 1};
  makeNoteEditor(*found, inlineNoteEditor_)->presentInPopover(overlay_, point);
}

void ReaderScreen::showPageLabel() {
  const std::optional<std::string> label = session_->pageLabel();
  gtk_widget_set_visible(pageLabelPill_, label.has_value());
  views::setLabelText(pageLabel_, label.value_or(""));
  if (label) views::setAccessibleLabel(pageLabelPill_, *label);
}

void ReaderScreen::showError() {
  const std::optional<ReaderError>& error = session_->error().value();
  gtk_widget_set_visible(errorBanner_, error.has_value());
  views::setLabelText(errorLabel_, error ? error->userMessage() : "");
}

void ReaderScreen::showSelectionCallout() {
  gtk_widget_set_visible(selectionCallout_, session_->currentSelectionRect().value().has_value());
  gtk_widget_queue_allocate(overlay_);
}

bool ReaderScreen::placeSelectionCallout(GdkRectangle* allocation) const {
  const std::optional<ReaderSelectionRect>& rect = session_->currentSelectionRect().value();
  if (!rect) return false;
  int width = 0;
  int height = 0;
  gtk_widget_measure(selectionCallout_, GTK_ORIENTATION_HORIZONTAL, -1, nullptr, &width, nullptr,
                     nullptr);
  gtk_widget_measure(selectionCallout_, GTK_ORIENTATION_VERTICAL, width, nullptr, &height, nullptr,
                     nullptr);
  const int overlayWidth = gtk_widget_get_width(overlay_);
  const int overlayHeight = gtk_widget_get_height(overlay_);
  // Centred above the selection; below it when there is no room above; inside the page always.
  const int centre = static_cast<int>(rect->x + rect->width / 2);
  int x = centre - width / 2;
  int y = static_cast<int>(rect->y) - height - kCalloutGap;
  if (y < kCalloutGap) y = static_cast<int>(rect->y + rect->height) + kCalloutGap;
  x = std::clamp(x, kCalloutGap, std::max(kCalloutGap, overlayWidth - width - kCalloutGap));
  y = std::clamp(y, kCalloutGap, std::max(kCalloutGap, overlayHeight - height - kCalloutGap));
  *allocation = GdkRectangle{x, y, width, height};
  return true;
}

void ReaderScreen::onHighlightClicked(GtkButton*, gpointer self) {
  static_cast<ReaderScreen*>(self)->highlightSelection();
}

void ReaderScreen::onFlapRevealChanged(GObject*, GParamSpec*, gpointer self) {
  static_cast<ReaderScreen*>(self)->sidebarVisibilityChanged_.emit();
}

void ReaderScreen::showBackButton() {
  gtk_widget_set_visible(backButton_, session_->navigationAvailability().value().canGoBack);
}

gboolean ReaderScreen::onGetChildPosition(GtkOverlay*, GtkWidget* child, GdkRectangle* allocation,
                                          gpointer self) {
  auto* screen = static_cast<ReaderScreen*>(self);
  if (child != screen->selectionCallout_) return FALSE;
  return screen->placeSelectionCallout(allocation) ? TRUE : FALSE;
}

}  // namespace tomekeeper
