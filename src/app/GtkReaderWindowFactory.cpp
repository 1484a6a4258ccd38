#include "app/GtkReaderWindowFactory.h"

#include <utility>

#include "app/GtkOpenDocumentWindow.h"
#include "app/GtkOpeningWindow.h"
#include "app/GtkReaderWindow.h"

namespace tomekeeper {

GtkReaderWindowFactory::GtkReaderWindowFactory(GtkApplication* application, GMenuModel* primaryMenu)
    : application_(application), primaryMenu_(GObjectHandle<GMenuModel>::retain(primaryMenu)) {}

void GtkReaderWindowFactory::setLibrary(std::function<LibraryWindowServices()> services) {
  library_ = std::move(services);
}

std::shared_ptr<ShellWindow> GtkReaderWindowFactory::makeOpenDocumentWindow(
    ShellWindowDelegate& delegate, std::function<void(std::filesystem::path)> open) {
  if (library_) {
    LibraryWindowServices services = library_();
    if (hasLibraryBooks(services.locations.recordsRoot)) {
      return makeGtkLibraryWindow(delegate, application_, primaryMenu_.get(), std::move(open),
                                  std::move(services));
    }
  }
  return makeGtkOpenDocumentWindow(delegate, application_, primaryMenu_.get(), std::move(open));
}

std::shared_ptr<ShellWindow> GtkReaderWindowFactory::makeReaderWindow(ShellWindowDelegate& delegate,
                                                                      ReaderWindowRequest request) {
  return makeGtkReaderWindow(delegate, application_, primaryMenu_.get(), std::move(request));
}

std::shared_ptr<ShellWindow> GtkReaderWindowFactory::makeOpeningWindow(
    ShellWindowDelegate& delegate, OpeningWindowRequest request) {
  return makeGtkOpeningWindow(delegate, application_, primaryMenu_.get(), std::move(request));
}

}  // namespace tomekeeper
