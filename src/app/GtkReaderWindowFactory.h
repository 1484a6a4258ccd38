#pragma once

#include <adwaita.h>

#include <functional>
#include <memory>

#include "app/GtkLibraryWindow.h"
#include "app/ReaderWindowFactory.h"
#include "platform/GObjectHandle.h"

namespace tomekeeper {

// Makes the coordinator's windows on GTK and libadwaita: the reader window (GtkReaderWindow.h)
// and the empty window that takes a dropped or chosen EPUB (GtkOpenDocumentWindow.h). Windows
// belong to `application` and show `primaryMenu` in their header bar. Main thread only.
class GtkReaderWindowFactory final : public ReaderWindowFactory {
 public:
  GtkReaderWindowFactory(GtkApplication* application, GMenuModel* primaryMenu);

  // From now on the empty window is the library once it has a book: `services` says, each time
  // the window is made, where the library reads from and how a lost file is found again.
  void setLibrary(std::function<LibraryWindowServices()> services);

  std::shared_ptr<ShellWindow> makeOpenDocumentWindow(
      ShellWindowDelegate& delegate, std::function<void(std::filesystem::path)> open) override;
  // `request.session` must be an ApplicationWindowSession.
  std::shared_ptr<ShellWindow> makeReaderWindow(ShellWindowDelegate& delegate,
                                                ReaderWindowRequest request) override;
  std::shared_ptr<ShellWindow> makeOpeningWindow(ShellWindowDelegate& delegate,
                                                 OpeningWindowRequest request) override;

 private:
  // Not owned: the application outlives its windows' factory.
  GtkApplication* application_;
  GObjectHandle<GMenuModel> primaryMenu_;
  std::function<LibraryWindowServices()> library_;
};

}  // namespace tomekeeper
