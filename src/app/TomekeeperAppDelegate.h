#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <stop_token>
#include <vector>

#include "app/DocumentOpenCoordinator.h"

namespace tomekeeper {

// Whether any window of the application is on the screen.
enum class WindowVisibility { noneVisible, someVisible };

// Receives the application's launch and open events and makes the launch decision. Files are
// delivered around the moment the application has started, before or after it, so the decision
// waits a short while after the start for files that may still come. The application object
// calls it; it knows nothing of GTK. Main executor only.
class TomekeeperAppDelegate : public std::enable_shared_from_this<TomekeeperAppDelegate> {
 public:
  static constexpr std::chrono::milliseconds kLaunchEventSettlementDelay{200};

  explicit TomekeeperAppDelegate(std::shared_ptr<DocumentOpenCoordinator> coordinator);
  ~TomekeeperAppDelegate();

  // The application has started: the launch decision follows, at once when files are waiting,
  // else after the settlement delay.
  void applicationDidFinishLaunching();
  // Files from the command line or the file manager.
  void applicationOpen(const std::vector<std::filesystem::path>& urls);
  // The application is ending: the restoration file keeps the books open now.
  void applicationWillTerminate();
  // The application was started again without files. Shows the open window when launching has
  // finished, the decision has been made and no window is visible.
  void applicationShouldHandleReopen(WindowVisibility visibility);

  const std::shared_ptr<DocumentOpenCoordinator>& coordinator() const { return coordinator_; }
  bool didFinishLaunching() const { return didFinishLaunching_; }
  bool isLaunchDecisionWaiting() const { return initialLaunchPresentation_.has_value(); }
  const std::vector<std::filesystem::path>& pendingOpenURLs() const { return pendingOpenURLs_; }

 private:
  void flushLaunch();

  std::shared_ptr<DocumentOpenCoordinator> coordinator_;
  std::vector<std::filesystem::path> pendingOpenURLs_;
  bool didFinishLaunching_ = false;
  // The delayed launch decision while it waits; stopping it cancels it.
  std::optional<std::stop_source> initialLaunchPresentation_;
};

}  // namespace tomekeeper
