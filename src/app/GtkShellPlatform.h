#pragma once

#include <adwaita.h>

#include "app/ShellPlatform.h"
#include "platform/GObjectHandle.h"

namespace tomekeeper {

// The settings of schema org.tomekeeper.Tomekeeper, or none when the schema is not installed
// (a run that found no compiled schema): callers then keep nothing.
GObjectHandle<GSettings> applicationSettings();

// ShellPlatform on GTK and libadwaita: AdwMessageDialog alerts, a GtkFileChooserNative for EPUB
// files, GtkRecentManager entries of this application, the reader window size in GSettings,
// the monitors of the default display, and a small window that names the book being opened.
// Made once by the application and shared with the coordinator; main thread only.
class GtkShellPlatform final : public ShellPlatform {
 public:
  explicit GtkShellPlatform(GtkApplication* application);

  async::Task<std::size_t> runAlert(AlertContent content) override;
  async::Task<std::vector<std::filesystem::path>> chooseEPUBFiles(FileSelection selection) override;
  void noteRecentDocument(const std::filesystem::path& file) override;
  std::vector<std::filesystem::path> recentDocuments() const override;
  void clearRecentDocuments() override;
  std::optional<WindowFrame> storedReaderWindowFrame() const override;
  void storeReaderWindowFrame(const WindowFrame& frame) override;
  std::vector<ScreenArea> screens() const override;
  std::unique_ptr<ShownIndicator> showOpenProgress(const std::string& displayName) override;

 private:
  GtkWindow* activeWindow() const;

  // Not owned: the application outlives the platform it made.
  GtkApplication* application_;
  GObjectHandle<GSettings> settings_;
};

// Runs an AdwMessageDialog with `content` over `parent` (may be null) and gives the chosen
// button's index; closing the dialog otherwise gives the first, which cancels.
async::Task<std::size_t> runMessageDialog(GtkWindow* parent, AlertContent content);

// Runs an open panel for EPUB files over `parent` (may be null); empty when cancelled.
async::Task<std::vector<std::filesystem::path>> runEPUBOpenPanel(GtkWindow* parent,
                                                                 FileSelection selection);

}  // namespace tomekeeper
