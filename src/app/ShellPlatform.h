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

// A modal alert: a message, an informative text and its buttons, the first being the default.
struct AlertContent {
  AlertStyle style = AlertStyle::warning;
  std::string message;
  std::string information;
  std::vector<std::string> buttons;
  bool operator==(const AlertContent&) const = default;
};

enum class FileSelection { single, multiple };

// Something shown while it is held; dropping it takes it away.
class ShownIndicator {
 public:
  virtual ~ShownIndicator() = default;
};

// What the coordinator needs of the desktop, apart from windows: alerts, the open panel, the
// recent documents, the stored window frame, the screens, activation and open progress. The
// application implements it on GTK and libadwaita; tests implement it with fakes. Main executor
// only.
class ShellPlatform {
 public:
  virtual ~ShellPlatform() = default;

  // Shows the alert, modal to the key window, and gives the index of the chosen button (the
  // last button when the alert is dismissed otherwise).
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

  // Brings the application forward, ignoring other applications.
  virtual void activateApplication() = 0;

  // Shows that the book `displayName` is being read (hashed, inspected, extracted), in the open
  // window when it is shown, else in a small window of its own.
  virtual std::unique_ptr<ShownIndicator> showOpenProgress(const std::string& displayName) = 0;
};

}  // namespace tomekeeper
