#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/ReaderWindowFrame.h"
#include "async/Task.h"

namespace tomekeeper {

enum class AlertStyle { informational, warning };

// How an alert's action (its last button, when it has more than one) looks and whether Enter
// chooses it: a suggested action is the default; a destructive one is shown in red and Enter
// chooses the first button, which cancels.
enum class AlertAction { suggested, destructive };

// A modal alert: a message, an informative text and its buttons in the order they are shown,
// the one that cancels first and the action last (an alert with one button only dismisses).
struct AlertContent {
  AlertStyle style = AlertStyle::warning;
  std::string message;
  std::string information;
  std::vector<std::string> buttons;
  AlertAction action = AlertAction::suggested;
  bool operator==(const AlertContent&) const = default;
};

enum class FileSelection { single, multiple };

// Something shown while it is held; dropping it takes it away.
class ShownIndicator {
 public:
  virtual ~ShownIndicator() = default;
};

// What the coordinator needs of the desktop, apart from windows: alerts, the open panel, the
// recent documents, the stored window frame, the screens and open progress. The
// application implements it on GTK and libadwaita; tests implement it with fakes. Main executor
// only.
class ShellPlatform {
 public:
  virtual ~ShellPlatform() = default;

  // Shows the alert, modal to the key window, and gives the index of the chosen button (the
  // first, which cancels, when the alert is dismissed otherwise).
  virtual async::Task<std::size_t> runAlert(AlertContent content) = 0;

  // Runs an open panel for EPUB files (no directories); empty when cancelled. The modal form
  // blocks the key window until it is answered.
  virtual async::Task<std::vector<std::filesystem::path>> chooseEPUBFiles(
      FileSelection selection) = 0;

  // Recent documents: entries of type application/epub+zip added by this application, most
  // recent first.
  virtual void noteRecentDocument(const std::filesystem::path& file) = 0;
  virtual std::vector<std::filesystem::path> recentDocuments() const = 0;
  virtual void clearRecentDocuments() = 0;

  // The frame shared by every reader window; absent until one was stored.
  virtual std::optional<WindowFrame> storedReaderWindowFrame() const = 0;
  virtual void storeReaderWindowFrame(const WindowFrame& frame) = 0;
  virtual std::vector<ScreenArea> screens() const = 0;

  // Shows that the book `displayName` is being read (hashed, inspected, extracted), in the open
  // window when it is shown, else in a small window of its own.
  virtual std::unique_ptr<ShownIndicator> showOpenProgress(const std::string& displayName) = 0;
};

}  // namespace tomekeeper
