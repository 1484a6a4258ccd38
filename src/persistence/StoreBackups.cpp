#include "persistence/StoreBackups.h"

#include <cerrno>
#include <optional>
#include <string>
#include <system_error>

#include "persistence/JSONStoreFile.h"
#include "platform/AtomicFileWriter.h"
#include "platform/FileSystem.h"

namespace tomekeeper {

std::filesystem::path storeBackupFile(const std::filesystem::path& store, int generation) {
  std::filesystem::path backup = store;
  backup += "." + std::to_string(generation);
  return backup;
}

void replaceStoreKeepingBackups(const std::filesystem::path& store, std::string_view contents) {
  std::filesystem::create_directories(store.parent_path());
  const std::optional<std::string> previous = readWholeFile(store);
  if (previous && *previous != contents) {
    FileSystem& fileSystem = FileSystem::current();
    // Oldest first, so that every rename moves a version into a free or expiring slot. A
    // missing generation (a kill between two steps of an earlier save) is skipped.
    for (int generation = kStoreBackupCount; generation > 1; --generation) {
      if (fileSystem.rename(storeBackupFile(store, generation - 1),
                            storeBackupFile(store, generation)) != 0 &&
          errno != ENOENT) {
        throw std::system_error(errno, std::generic_category(), "rename backup");
      }
    }
    writeFileAtomically(storeBackupFile(store, 1), *previous);
  }
  writeFileAtomically(store, contents);
}

namespace detail {

void writeStoreFileKeepingBackupsOrThrow(const std::filesystem::path& file,
                                         const nlohmann::json& store) {
  replaceStoreKeepingBackups(file, encodeStoreDocument(store));
}

}  // namespace detail
}  // namespace tomekeeper
