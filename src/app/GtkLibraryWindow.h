#pragma once

#include <adwaita.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "app/ShellWindow.h"
#include "library/LibraryCatalog.h"

namespace tomekeeper {

// What the library window reaches beyond itself.
struct LibraryWindowServices {
  LibraryLocations locations;
  // Asks the user for the file of the book `fingerprint`, which has gone (the coordinator's
  // relocation).
  std::function<void(std::string fingerprint)> locate;
};

// The window shown in place of the empty open window once a book has been opened: the library
// (see LibraryView) under a header bar with "Open EPUB…" and the main menu, taking a dropped
// EPUB anywhere. Its identifier is empty, as the open window's. A chosen, dropped or activated
// book goes to `open`, after the drop has finished (the open may close this window). When the
// last book has been removed it says, as the open window does, to drop an EPUB. Main thread only.
std::shared_ptr<ShellWindow> makeGtkLibraryWindow(ShellWindowDelegate& delegate,
                                                  GtkApplication* application,
                                                  GMenuModel* primaryMenu,
                                                  std::function<void(std::filesystem::path)> open,
                                                  LibraryWindowServices services);

}  // namespace tomekeeper
