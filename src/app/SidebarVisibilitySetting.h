#pragma once

#include <string>

#include "views/ReaderScreen.h"

namespace tomekeeper {

// Each book keeps its own sidebar state in the application's settings, under its fingerprint.
// Hidden when none is stored or the settings are not installed. Main thread only.
SidebarVisibility storedSidebarVisibility(const std::string& fingerprint);
// Records `visibility` for the book; the other books' entries stay.
void storeSidebarVisibility(const std::string& fingerprint, SidebarVisibility visibility);

}  // namespace tomekeeper
