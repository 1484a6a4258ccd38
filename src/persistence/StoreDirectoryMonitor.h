#pragma once

#include <gio/gio.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <set>
#include <string>

namespace tomekeeper {

// Watches one book's directory of stores (Publications/<fingerprint>/) for what others do to
// it while the book is open: a file-sync engine replacing a store with the version of another
// machine, or writing a conflict copy beside it, or a restore from a backup. After such a
// change the directory must be quiet for `quietTime` (a sync engine writes in several steps),
// and then `changed` is called once with the names of the store files that changed, a conflict
// copy counting as its store ("annotations.json"). Backups, temporary files, conflicts/ and
// anything else are passed over. The session's own saves are reported too: rereading a store
// that holds what the session already shows changes nothing.
//
// Makes the directory when it does not exist yet, so that a book's first store can be seen
// arriving. Confined to the main executor: made, called back and destroyed there; destroying it
// stops every report, one already due included. Throws std::runtime_error when the directory
// cannot be made or watched.
class StoreDirectoryMonitor {
 public:
  using ChangeHandler = std::function<void(const std::set<std::string>& storeNames)>;

  StoreDirectoryMonitor(std::filesystem::path directory, ChangeHandler changed,
                        std::chrono::milliseconds quietTime = std::chrono::milliseconds(400));
  ~StoreDirectoryMonitor();
  StoreDirectoryMonitor(const StoreDirectoryMonitor&) = delete;
  StoreDirectoryMonitor& operator=(const StoreDirectoryMonitor&) = delete;

  const std::filesystem::path& directory() const noexcept { return directory_; }

  // The store that `fileName` (a name in the directory) stands for: itself for a store file,
  // the store of a conflict copy; empty for anything else.
  static std::string storeNameFor(const std::string& fileName);

 private:
  static void handleEvent(GFileMonitor* monitor, GFile* file, GFile* otherFile,
                          GFileMonitorEvent event, gpointer self);
  static gboolean handleQuiet(gpointer self);
  void noteChange(GFile* file);

  std::filesystem::path directory_;
  ChangeHandler changed_;
  std::chrono::milliseconds quietTime_;
  std::unique_ptr<GFileMonitor, void (*)(gpointer)> monitor_;
  gulong handlerID_ = 0;
  guint quietSourceID_ = 0;
  std::set<std::string> pending_;
};

}  // namespace tomekeeper
