#pragma once

#include <gio/gio.h>

#include <span>
#include <string_view>
#include <vector>

#include "app/ActionTable.h"
#include "platform/GObjectHandle.h"

namespace tomekeeper {

// What the application's actions do. The application implements it; the table below names its
// members. Main thread only.
class ApplicationCommands {
 public:
  virtual ~ApplicationCommands() = default;
  virtual void open() = 0;
  // The recent document at this path.
  virtual void openRecent(std::string_view path) = 0;
  virtual void clearRecent() = 0;
  virtual void showSettings() = 0;
  virtual void showAbout() = 0;
  virtual void quit() = 0;
};

// The application's actions show in no menu of their own table: the main menu names them.
enum class ApplicationMenu { main };

// One application action "app.<name>" (ActionTable.h).
using ApplicationAction = WidgetAction<ApplicationCommands, ApplicationMenu>;

std::span<const ApplicationAction> applicationActions();

// Installs every action of the table on `map` (the application), each calling `commands`, which
// must outlive the actions' use; the caller keeps the returned actions.
std::vector<GObjectHandle<GSimpleAction>> installApplicationActions(GActionMap* map,
                                                                    ApplicationCommands& commands);

// The main menu of every window: Open… and Open Recent (`recentMenu`), the Reading submenu, then
// Settings, Keyboard Shortcuts, About and Quit.
GObjectHandle<GMenu> makeMainMenu(GMenuModel* recentMenu);

}  // namespace tomekeeper
