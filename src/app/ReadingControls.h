#pragma once

#include <adwaita.h>

#include <string>
#include <vector>

#include <sigc++/signal.h>

#include "platform/GObjectHandle.h"

namespace tomekeeper {

enum class ReadingControlsVisibility { shown, hidden };

// The header bar of a reader window and the page under it, with the header bar's two places:
// docked above the page while the reading controls are shown, and over the top of the page,
// out of sight, while they are hidden. Hidden controls never trap the reader: the pointer at
// the top edge brings the header bar over the page (as GNOME's full-screen headers do), a panel
// of the header bar (search, fonts) brings it too and keeps it while the panel is up, and the
// toast shown on hiding says how to get them back. The header bar goes away again once the
// pointer has left it and no panel is up.
//
// `root()` is the window's content: a toast overlay over the page and the header bar, both
// handed in with their references taken. Main thread only; owned by its window.
class ReadingControls {
 public:
  // The pointer this close to the top edge (in pixels) reveals a hidden header bar.
  static constexpr double kRevealEdge = 6;

  // Takes `headerBar` and `page`; the header bar's menu buttons must already be packed, so that
  // the closing of their panels is followed.
  ReadingControls(GtkWidget* headerBar, GtkWidget* page);
  ~ReadingControls();
  ReadingControls(const ReadingControls&) = delete;
  ReadingControls& operator=(const ReadingControls&) = delete;

  GtkWidget* root() const noexcept { return root_.get(); }

  ReadingControlsVisibility visibility() const noexcept { return visibility_; }
  // Hiding shows the toast that says how to bring the controls back.
  void setVisibility(ReadingControlsVisibility visibility);
  // Whether the header bar can be seen: docked, or revealed over the page.
  bool headerIsOnScreen() const;
  // While hidden: the header bar over the page, until the pointer leaves it with no panel up.
  void revealHeader();
  // A quiet note over the page that goes by itself.
  void showToast(const std::string& text);

  // Where the pointer is, in root coordinates; the root's own motion controller calls it, and
  // tests do.
  void pointerMoved(double y);
  void pointerLeft();

  // After every change of visibility or of the header bar's place.
  sigc::signal<void()>& changed() noexcept { return changed_; }

 private:
  bool panelIsUp() const;
  void concealUnlessNeeded();
  void setRevealed(bool revealed);

  static void onMotion(GtkEventControllerMotion* controller, double x, double y, gpointer self);
  static void onLeave(GtkEventControllerMotion* controller, gpointer self);
  static void onPanelClosed(GtkPopover* popover, gpointer self);

  GObjectHandle<GtkWidget> root_;
  GObjectHandle<GtkWidget> headerBar_;
  GtkWidget* dockedRevealer_ = nullptr;
  GtkWidget* floatingRevealer_ = nullptr;
  GtkEventController* motion_ = nullptr;
  std::vector<GtkPopover*> panels_;
  ReadingControlsVisibility visibility_ = ReadingControlsVisibility::shown;
  double pointerY_ = -1;
  sigc::signal<void()> changed_;
};

}  // namespace tomekeeper
