#pragma once

#include <adwaita.h>

#include <filesystem>
#include <functional>
#include <memory>

#include "app/ShellWindow.h"

namespace tomekeeper {

// The empty window: a large title, a line that invites a drop and a button that opens the panel.
// A chosen or dropped EPUB goes to `open`, after the drop has finished (the open may close this
// window). It belongs to `application` and shows `primaryMenu`. Main thread only.
std::shared_ptr<ShellWindow> makeGtkOpenDocumentWindow(
    ShellWindowDelegate& delegate, GtkApplication* application, GMenuModel* primaryMenu,
    std::function<void(std::filesystem::path)> open);

}  // namespace tomekeeper
