#include "persistence/StoreDirectoryMonitor.h"

#include <stdexcept>
#include <utility>

#include "persistence/ConflictCopies.h"
#include "persistence/ReadingDataBackups.h"

namespace tomekeeper {

StoreDirectoryMonitor::StoreDirectoryMonitor(std::filesystem::path directory, ChangeHandler changed,
                                             std::chrono::milliseconds quietTime)
    : directory_(std::move(directory)),
      changed_(std::move(changed)),
      quietTime_(quietTime),
      monitor_(nullptr, g_object_unref) {
  std::error_code error;
  std::filesystem::create_directories(directory_, error);
  if (error)
    throw std::runtime_error("cannot make " + directory_.string() + ": " + error.message());
  GFile* file = g_file_new_for_path(directory_.c_str());
  GError* watchError = nullptr;
  // Moves are reported as such, so that a store renamed into place names its new name.
  monitor_.reset(g_file_monitor_directory(file, G_FILE_MONITOR_WATCH_MOVES, nullptr, &watchError));
  g_object_unref(file);
  if (!monitor_) {
    const std::string message = watchError != nullptr ? watchError->message : "unknown error";
    g_clear_error(&watchError);
    throw std::runtime_error("cannot watch " + directory_.string() + ": " + message);
  }
  handlerID_ = g_signal_connect(monitor_.get(), "changed", G_CALLBACK(&handleEvent), this);
}

StoreDirectoryMonitor::~StoreDirectoryMonitor() {
  if (quietSourceID_ != 0) g_source_remove(quietSourceID_);
  g_signal_handler_disconnect(monitor_.get(), handlerID_);
  g_file_monitor_cancel(monitor_.get());
}

std::string StoreDirectoryMonitor::storeNameFor(const std::string& fileName) {
  for (const PublicationStore store :
       {PublicationStore::readingPosition, PublicationStore::bookmarks,
        PublicationStore::annotations}) {
    const std::string_view storeName = publicationStoreFileName(store);
    if (fileName == storeName || isConflictCopyName(fileName, storeName)) {
      return std::string(storeName);
    }
  }
  return {};
}

void StoreDirectoryMonitor::handleEvent(GFileMonitor*, GFile* file, GFile* otherFile,
                                        GFileMonitorEvent event, gpointer self) {
  auto& monitor = *static_cast<StoreDirectoryMonitor*>(self);
  switch (event) {
    case G_FILE_MONITOR_EVENT_CHANGES_DONE_HINT:
    case G_FILE_MONITOR_EVENT_CREATED:
    case G_FILE_MONITOR_EVENT_DELETED:
    case G_FILE_MONITOR_EVENT_MOVED_IN:
    case G_FILE_MONITOR_EVENT_MOVED_OUT:
      monitor.noteChange(file);
      break;
    case G_FILE_MONITOR_EVENT_RENAMED:
      // The atomic writer's rename of its temporary file: the new name is what changed.
      monitor.noteChange(file);
      if (otherFile != nullptr) monitor.noteChange(otherFile);
      break;
    default:
      // Plain CHANGED events come in bursts while a file is written; its CHANGES_DONE_HINT
      // follows.
      break;
  }
}

void StoreDirectoryMonitor::noteChange(GFile* file) {
  char* baseName = g_file_get_basename(file);
  const std::string storeName = baseName != nullptr ? storeNameFor(baseName) : std::string();
  g_free(baseName);
  if (storeName.empty()) return;
  pending_.insert(storeName);
  if (quietSourceID_ != 0) g_source_remove(quietSourceID_);
  quietSourceID_ = g_timeout_add(static_cast<guint>(quietTime_.count()),
                                 &StoreDirectoryMonitor::handleQuiet, this);
}

gboolean StoreDirectoryMonitor::handleQuiet(gpointer self) {
  auto& monitor = *static_cast<StoreDirectoryMonitor*>(self);
  monitor.quietSourceID_ = 0;
  const std::set<std::string> changed = std::exchange(monitor.pending_, {});
  // A copy: the handler may destroy the monitor, and with it `changed_`.
  const ChangeHandler handler = monitor.changed_;
  handler(changed);
  return G_SOURCE_REMOVE;
}

}  // namespace tomekeeper
