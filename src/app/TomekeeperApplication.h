#pragma once

#include <adwaita.h>

#include <memory>
#include <string_view>
#include <vector>

#include <sigc++/connection.h>

#include "app/ApplicationActions.h"
#include "app/DocumentOpenCoordinator.h"
#include "app/GtkShellPlatform.h"
#include "app/TomekeeperAppDelegate.h"
#include "platform/GObjectHandle.h"

namespace tomekeeper {

// The application object: an AdwApplication "org.tomekeeper.Tomekeeper" that opens files. It
// makes the coordinator and the launch delegate at startup, hands them the files and
// activations of this and later launches, installs the File and Reading commands with their
// accelerators, and keeps running when its last window closes, until Quit. One per process,
// on the main thread.
class TomekeeperApplication final : private ApplicationCommands {
 public:
  static constexpr const char* kApplicationID = "org.tomekeeper.Tomekeeper";

  TomekeeperApplication();
  ~TomekeeperApplication() override;
  TomekeeperApplication(const TomekeeperApplication&) = delete;
  TomekeeperApplication& operator=(const TomekeeperApplication&) = delete;

  // Runs the main loop; gives the exit status.
  int run(int argc, char** argv);

 private:
  static void handleStartup(GApplication* application, gpointer data);
  static void handleActivate(GApplication* application, gpointer data);
  static void handleOpen(GApplication* application, GFile** files, int count, const char* hint,
                         gpointer data);
  static void handleShutdown(GApplication* application, gpointer data);
  static gboolean handleTerminationSignal(gpointer data);

  void start();
  void installStyle();
  void installActions();
  void rebuildRecentMenu();
  // The application's actions (ApplicationActions.h).
  void open() override;
  void openRecent(std::string_view path) override;
  void clearRecent() override;
  void showSettings() override;
  void showAbout() override;
  // Saves what the next launch restores, closes every window, and ends the main loop once the
  // sessions' last writes have had their turn.
  void quit() override;
  void terminate();

  GObjectHandle<AdwApplication> application_;
  GObjectHandle<GMenu> primaryMenu_;
  GObjectHandle<GMenu> recentMenu_;
  std::vector<GObjectHandle<GSimpleAction>> actions_;
  std::shared_ptr<GtkShellPlatform> platform_;
  std::shared_ptr<DocumentOpenCoordinator> coordinator_;
  std::shared_ptr<TomekeeperAppDelegate> delegate_;
  sigc::connection recentDocumentsConnection_;
  bool isStarted_ = false;
  bool isFirstActivation_ = true;
  bool isQuitting_ = false;
  bool isHeld_ = false;
  guint terminationSources_[2] = {0, 0};
};

}  // namespace tomekeeper
