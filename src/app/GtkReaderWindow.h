#pragma once

#include <adwaita.h>

#include <memory>

#include "app/ReaderWindowFactory.h"

namespace tomekeeper {

// The reader window: a header bar with the reading controls and the main menu (`primaryMenu`)
// over the reader screen, whose window actions "win." the Reading menu names. It belongs to
// `application`; `request.session` must be an ApplicationWindowSession. Main thread only.
std::shared_ptr<ShellWindow> makeGtkReaderWindow(ShellWindowDelegate& delegate,
                                                 GtkApplication* application,
                                                 GMenuModel* primaryMenu,
                                                 ReaderWindowRequest request);

}  // namespace tomekeeper
