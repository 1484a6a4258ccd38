#pragma once

#include <filesystem>
#include <string_view>

#include <nlohmann/json.hpp>

#include "async/Failure.h"

// Rolling backups of the per-book stores. Before a store file is replaced, the version it held
// is kept beside it as <name>.1, the one before as <name>.2 and the oldest as <name>.3; a fourth
// falls away. Highlights and notes exist nowhere else, so a save that went wrong (or a version a
// sync engine brought in) can still be undone from one of them.
namespace tomekeeper {

inline constexpr int kStoreBackupCount = 3;

// <store>.<generation>: generation 1 is the newest backup, kStoreBackupCount the oldest.
std::filesystem::path storeBackupFile(const std::filesystem::path& store, int generation);

// Replaces `store` with `contents` atomically (see writeFileAtomically), keeping the text it held
// as <store>.1 after moving the older backups one generation down. Each step is a single rename
// or an atomic write, so a process killed at any moment leaves the store and every backup that
// exists whole; at worst a generation is missing until the next save fills it. Nothing is
// rotated when there is no file yet or it already holds `contents`. Makes the parent directory.
// Throws std::system_error or std::filesystem::filesystem_error; the store is then untouched.
// Blocking.
void replaceStoreKeepingBackups(const std::filesystem::path& store, std::string_view contents);

namespace detail {

// writeStoreFile for the per-book stores: the encoded `store` replaces the file with
// replaceStoreKeepingBackups. Any failure throws `cannotWrite` and leaves the old file whole.
void writeStoreFileKeepingBackupsOrThrow(const std::filesystem::path& file,
                                         const nlohmann::json& store);

template <typename Failure>
void writeStoreFileKeepingBackups(const std::filesystem::path& file, const nlohmann::json& store,
                                  Failure cannotWrite) {
  try {
    writeStoreFileKeepingBackupsOrThrow(file, store);
  } catch (const std::exception&) {
    throwFailure(cannotWrite);
  }
}

}  // namespace detail
}  // namespace tomekeeper
