#pragma once

#include <gtk/gtk.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <stop_token>

namespace tomekeeper {

// What each window that invites a book shares: an "Open EPUB…" button that runs the open panel
// (several files may be chosen), and a drop target that takes the first dropped file if it is an
// EPUB and shows an accent while a drag is over it. `open` is called with each file later, from
// the main loop, since an open may close the very window.
//
// Main thread only. Owned by the window whose widgets it connects to, and destroyed before them;
// the panel's task stops with `lifetime`, the window's.
class EPUBOpenControls {
 public:
  using OpenFunction = std::function<void(std::filesystem::path)>;

  EPUBOpenControls(GtkWindow* window, std::stop_token lifetime, OpenFunction open);
  ~EPUBOpenControls();
  EPUBOpenControls(const EPUBOpenControls&) = delete;
  EPUBOpenControls& operator=(const EPUBOpenControls&) = delete;

  // Runs the open panel when `button` is clicked.
  void attachOpenButton(GtkWidget* button);
  // Takes drops on `area`, which shows the accent during a drag.
  void attachDropTarget(GtkWidget* area);
  // Calls `open` with `file` from the main loop, after the event that asked for it has finished.
  void openLater(std::filesystem::path file) const;

 private:
  static void handleOpenClicked(GtkButton*, gpointer data);
  static GdkDragAction handleDropEnter(GtkDropTarget*, double, double, gpointer data);
  static void handleDropLeave(GtkDropTarget*, gpointer data);
  static gboolean handleDrop(GtkDropTarget*, const GValue* value, double, double, gpointer data);

  GtkWindow* window_;
  std::stop_token lifetime_;
  std::shared_ptr<OpenFunction> open_;
  GtkWidget* openButton_ = nullptr;
  GtkWidget* dropArea_ = nullptr;
  GtkDropTarget* dropTarget_ = nullptr;
};

}  // namespace tomekeeper
