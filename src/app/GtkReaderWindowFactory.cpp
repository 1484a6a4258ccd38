#include "app/GtkReaderWindowFactory.h"

#include <utility>

#include "app/GtkOpenDocumentWindow.h"
#include "app/GtkReaderWindow.h"

namespace tomekeeper {

GtkReaderWindowFactory::GtkReaderWindowFactory(GtkApplication* application, GMenuModel* primaryMenu)
    : application_(application), primaryMenu_(GObjectHandle<GMenuModel>::retain(primaryMenu)) {}

std::shared_ptr<ShellWindow> GtkReaderWindowFactory::makeOpenDocumentWindow(
    ShellWindowDelegate& delegate, std::function<void(std::filesystem::path)> open) {
  return makeGtkOpenDocumentWindow(delegate, application_, primaryMenu_.get(), std::move(open));
}

std::shared_ptr<ShellWindow> GtkReaderWindowFactory::makeReaderWindow(ShellWindowDelegate& delegate,
                                                                      ReaderWindowRequest request) {
  return makeGtkReaderWindow(delegate, application_, primaryMenu_.get(), std::move(request));
}

}  // namespace tomekeeper
