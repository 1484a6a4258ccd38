#include "app/ReadingControls.h"

namespace tomekeeper {

namespace {

// Below the revealed header bar by this much, the pointer has left it.
constexpr double kLeaveMargin = 24;
constexpr guint kRevealMilliseconds = 150;
constexpr guint kToastSeconds = 6;

// Every menu button's panel at or below `widget`.
void collectPanels(GtkWidget* widget, std::vector<GtkPopover*>& panels) {
  if (GTK_IS_MENU_BUTTON(widget)) {
    if (GtkPopover* popover = gtk_menu_button_get_popover(GTK_MENU_BUTTON(widget))) {
      panels.push_back(popover);
    }
    return;
  }
  for (GtkWidget* child = gtk_widget_get_first_child(widget); child != nullptr;
       child = gtk_widget_get_next_sibling(child)) {
    collectPanels(child, panels);
  }
}

}  // namespace

ReadingControls::ReadingControls(GtkWidget* headerBar, GtkWidget* page)
    : root_(GObjectHandle<GtkWidget>::retain(adw_toast_overlay_new())),
      headerBar_(GObjectHandle<GtkWidget>::retain(headerBar)) {
  GtkWidget* overlay = gtk_overlay_new();
  GtkWidget* column = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
  dockedRevealer_ = gtk_revealer_new();
  gtk_revealer_set_transition_type(GTK_REVEALER(dockedRevealer_), GTK_REVEALER_TRANSITION_TYPE_NONE);
  gtk_revealer_set_child(GTK_REVEALER(dockedRevealer_), headerBar);
  gtk_revealer_set_reveal_child(GTK_REVEALER(dockedRevealer_), TRUE);
  gtk_box_append(GTK_BOX(column), dockedRevealer_);
  gtk_widget_set_vexpand(page, TRUE);
  gtk_widget_set_hexpand(page, TRUE);
  gtk_box_append(GTK_BOX(column), page);
  gtk_overlay_set_child(GTK_OVERLAY(overlay), column);

  floatingRevealer_ = gtk_revealer_new();
  gtk_revealer_set_transition_type(GTK_REVEALER(floatingRevealer_),
                                   GTK_REVEALER_TRANSITION_TYPE_SLIDE_DOWN);
  gtk_revealer_set_transition_duration(GTK_REVEALER(floatingRevealer_), kRevealMilliseconds);
  gtk_widget_set_valign(floatingRevealer_, GTK_ALIGN_START);
  gtk_overlay_add_overlay(GTK_OVERLAY(overlay), floatingRevealer_);
  adw_toast_overlay_set_child(ADW_TOAST_OVERLAY(root_.get()), overlay);

  // In the capture phase: the page's web view would otherwise keep the motion to itself.
  motion_ = gtk_event_controller_motion_new();
  gtk_event_controller_set_propagation_phase(motion_, GTK_PHASE_CAPTURE);
  g_signal_connect(motion_, "motion", G_CALLBACK(onMotion), this);
  g_signal_connect(motion_, "leave", G_CALLBACK(onLeave), this);
  gtk_widget_add_controller(root_.get(), motion_);

  collectPanels(headerBar, panels_);
  for (GtkPopover* panel : panels_) {
    g_signal_connect(panel, "closed", G_CALLBACK(onPanelClosed), this);
  }
}

ReadingControls::~ReadingControls() {
  g_signal_handlers_disconnect_by_data(motion_, this);
  for (GtkPopover* panel : panels_) g_signal_handlers_disconnect_by_data(panel, this);
}

void ReadingControls::setVisibility(ReadingControlsVisibility visibility) {
  if (visibility == visibility_) return;
  visibility_ = visibility;
  GtkWidget* header = headerBar_.get();
  if (visibility == ReadingControlsVisibility::hidden) {
    gtk_revealer_set_child(GTK_REVEALER(dockedRevealer_), nullptr);
    gtk_revealer_set_reveal_child(GTK_REVEALER(dockedRevealer_), FALSE);
    gtk_revealer_set_reveal_child(GTK_REVEALER(floatingRevealer_), FALSE);
    gtk_revealer_set_child(GTK_REVEALER(floatingRevealer_), header);
    AdwToast* toast = adw_toast_new(
        "Reading controls hidden: press Esc or move the pointer to the top to show them");
    adw_toast_set_timeout(toast, kToastSeconds);
    adw_toast_overlay_add_toast(ADW_TOAST_OVERLAY(root_.get()), toast);
  } else {
    gtk_revealer_set_child(GTK_REVEALER(floatingRevealer_), nullptr);
    gtk_revealer_set_reveal_child(GTK_REVEALER(floatingRevealer_), FALSE);
    gtk_revealer_set_child(GTK_REVEALER(dockedRevealer_), header);
    gtk_revealer_set_reveal_child(GTK_REVEALER(dockedRevealer_), TRUE);
  }
  changed_.emit();
}

void ReadingControls::showToast(const std::string& text) {
  AdwToast* toast = adw_toast_new(text.c_str());
  adw_toast_set_timeout(toast, kToastSeconds);
  adw_toast_overlay_add_toast(ADW_TOAST_OVERLAY(root_.get()), toast);
}

bool ReadingControls::headerIsOnScreen() const {
  if (visibility_ == ReadingControlsVisibility::shown) return true;
  return gtk_revealer_get_reveal_child(GTK_REVEALER(floatingRevealer_)) != FALSE;
}

void ReadingControls::revealHeader() {
  if (visibility_ == ReadingControlsVisibility::hidden) setRevealed(true);
}

void ReadingControls::pointerMoved(double y) {
  pointerY_ = y;
  if (visibility_ != ReadingControlsVisibility::hidden) return;
  if (y <= kRevealEdge) {
    setRevealed(true);
  } else {
    concealUnlessNeeded();
  }
}

void ReadingControls::pointerLeft() {
  pointerY_ = -1;
  concealUnlessNeeded();
}

bool ReadingControls::panelIsUp() const {
  for (GtkPopover* panel : panels_) {
    if (gtk_widget_get_visible(GTK_WIDGET(panel))) return true;
  }
  return false;
}

void ReadingControls::concealUnlessNeeded() {
  if (visibility_ != ReadingControlsVisibility::hidden || !headerIsOnScreen()) return;
  const double headerBottom = gtk_widget_get_height(headerBar_.get()) + kLeaveMargin;
  const bool pointerIsOnHeader = pointerY_ >= 0 && pointerY_ <= headerBottom;
  if (pointerIsOnHeader || panelIsUp()) return;
  setRevealed(false);
}

void ReadingControls::setRevealed(bool revealed) {
  if (headerIsOnScreen() == revealed) return;
  gtk_revealer_set_reveal_child(GTK_REVEALER(floatingRevealer_), revealed);
  changed_.emit();
}

void ReadingControls::onMotion(GtkEventControllerMotion*, double, double y, gpointer self) {
  static_cast<ReadingControls*>(self)->pointerMoved(y);
}

void ReadingControls::onLeave(GtkEventControllerMotion*, gpointer self) {
  static_cast<ReadingControls*>(self)->pointerLeft();
}

void ReadingControls::onPanelClosed(GtkPopover*, gpointer self) {
  // The panel is hidden by the time it says so.
  static_cast<ReadingControls*>(self)->concealUnlessNeeded();
}

}  // namespace tomekeeper
