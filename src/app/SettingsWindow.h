#pragma once

#include <adwaita.h>

#include <memory>

#include "app/DocumentOpenCoordinator.h"

namespace tomekeeper {

// Shows the settings window (an AdwPreferencesWindow, 560 by 440, "Settings"): where reading
// preferences live, the size of the reading cache, and "Clear Reading Cache…" with its
// confirmation and its failure alert. There is one: a second call presents the same window
// again. It is transient for the application window focused last (a reader window, or the
// empty one), measures the cache each time it is presented and follows the coordinator's count
// of reader windows. Main thread only; the window owns its state and goes when it is closed.
void presentSettingsWindow(GtkApplication* application,
                           std::shared_ptr<DocumentOpenCoordinator> coordinator);

// The settings window of `application` while it is open, else null.
GtkWindow* findSettingsWindow(GtkApplication* application);

}  // namespace tomekeeper
