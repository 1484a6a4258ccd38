#pragma once

#include <adwaita.h>

#include <functional>
#include <memory>

#include "app/ReaderWindowFactory.h"
#include "runtime/GObjectHandle.h"

namespace tomekeeper {

// The window actions of a reader window, under "win.": the Reading menu's commands and their
// accelerators are set up by the application.
inline constexpr const char* kReaderWindowActionNames[] = {
    "previous-page", "next-page",          "toggle-sidebar",
    "show-contents", "decrease-text-size", "increase-text-size",
    "search",        "toggle-fullscreen",  "toggle-reading-controls",
};

// Makes the coordinator's windows on GTK and libadwaita: the reader window (header bar with the
// page buttons and the main menu, the session's web view, the page label and the error banner),
// and the empty window that takes a dropped or chosen EPUB. Windows belong to `application` and
// show `primaryMenu` in their header bar. Main thread only.
class GtkReaderWindowFactory final : public ReaderWindowFactory {
 public:
  GtkReaderWindowFactory(GtkApplication* application, GMenuModel* primaryMenu);

  std::shared_ptr<ShellWindow> makeOpenDocumentWindow(
      ShellWindowDelegate& delegate, std::function<void(std::filesystem::path)> open) override;
  // `request.session` must be an ApplicationReaderSession.
  std::shared_ptr<ShellWindow> makeReaderWindow(ShellWindowDelegate& delegate,
                                                ReaderWindowRequest request) override;

 private:
  // Not owned: the application outlives its windows' factory.
  GtkApplication* application_;
  GObjectHandle<GMenuModel> primaryMenu_;
};

}  // namespace tomekeeper
