#pragma once

#include <adwaita.h>

#include <memory>

#include "app/ReaderWindowFactory.h"

namespace tomekeeper {

// The reader window of a book still being prepared: its header bar with the main menu
// (`primaryMenu`) over a page that names the book and shows the preparation's progress. The
// reader window takes it over once the book is ready (takeOverOpeningWindow). It belongs to
// `application`. Main thread only.
std::shared_ptr<ShellWindow> makeGtkOpeningWindow(ShellWindowDelegate& delegate,
                                                  GtkApplication* application,
                                                  GMenuModel* primaryMenu,
                                                  OpeningWindowRequest request);

}  // namespace tomekeeper
