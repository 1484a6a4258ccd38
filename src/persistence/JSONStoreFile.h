#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include <nlohmann/json.hpp>

#include "async/Failure.h"
#include "async/SerialExecutor.h"
#include "async/Task.h"
#include "model/JSONCoding.h"
#include "platform/AtomicFileWriter.h"

// What every JSON store of this folder shares: reading the file, parsing it, writing it whole and
// atomically, and running a repository's operation on its own executor. Each repository maps the
// outcomes onto its own failure enumeration; the mapping differs between stores on purpose.
namespace tomekeeper::detail {

// Absolute and lexically normal: the form in which every store names its file.
std::filesystem::path standardisedFileURL(const std::filesystem::path& file);

// The whole content of a store file, or nothing when there is no file at `file`. Any other
// problem (a directory at the path, no permission, a read error) throws `unreadable`. Blocking.
template <typename Failure>
std::optional<std::string> readStoreFile(const std::filesystem::path& file, Failure unreadable);

// One JSON document, strictly: a syntax error, trailing content, invalid UTF-8 or an empty text
// throws JSONDecodingError. Nesting beyond kMaximumStoreDepth is refused too, so that a hostile
// file cannot exhaust the stack of whoever walks the value.
inline constexpr int kMaximumStoreDepth = 64;
nlohmann::json parseStoreDocument(std::string_view contents);

// Makes the parent directory with its intermediates, encodes `store` compactly and replaces the
// file atomically (see writeFileAtomically). Any failure of the three throws `cannotWrite`, and
// leaves the old file whole. Blocking.
template <typename Failure>
void writeStoreFile(const std::filesystem::path& file, const nlohmann::json& store,
                    Failure cannotWrite);

// The compact text of `store`. Throws nlohmann::json::exception for a string that is not UTF-8,
// and std::invalid_argument for a number that is not finite (which would be written as null).
std::string encodeStoreDocument(const nlohmann::json& store);

// The entries of the object under `key`, each decoded strictly as Value: a missing key, a value
// that is not an object, or any entry that fails throws JSONDecodingError.
template <typename Value>
std::map<std::string, Value> decodeDictionaryField(const nlohmann::json& object,
                                                   std::string_view key);

// A task that runs `function` on `executor` and resumes on the main executor with its result.
// It owns what it needs (the executor and the function with its captures), so the repository
// that made it may go away before it runs: repositories never hand `this` to their jobs.
template <typename Function, typename Result = std::invoke_result_t<Function&>>
async::Task<Result> runSerially(std::shared_ptr<async::SerialExecutor> executor,
                                Function function) {
  co_return co_await executor->run(std::move(function));
}

void writeStoreFileOrThrow(const std::filesystem::path& file, const nlohmann::json& store);

template <typename Failure>
std::optional<std::string> readStoreFile(const std::filesystem::path& file, Failure unreadable) {
  try {
    return readWholeFile(file);
  } catch (const std::exception&) {
    throwFailure(unreadable);
  }
}

template <typename Failure>
void writeStoreFile(const std::filesystem::path& file, const nlohmann::json& store,
                    Failure cannotWrite) {
  try {
    writeStoreFileOrThrow(file, store);
  } catch (const std::exception&) {
    throwFailure(cannotWrite);
  }
}

template <typename Value>
std::map<std::string, Value> decodeDictionaryField(const nlohmann::json& object,
                                                   std::string_view key) {
  const auto found = object.find(std::string(key));
  if (found == object.end()) {
    throw JSONDecodingError("Missing required key \"" + std::string(key) + "\".");
  }
  std::map<std::string, Value> entries;
  try {
    requireJSONObject(*found, key);
    for (const auto& [entryKey, entryValue] : found->items()) {
      try {
        entries.insert_or_assign(entryKey, decodeJSON<Value>(entryValue));
      } catch (JSONDecodingError& error) {
        error.prependPathComponent(entryKey);
        throw;
      }
    }
  } catch (JSONDecodingError& error) {
    error.prependPathComponent(std::string(key));
    throw;
  }
  return entries;
}

}  // namespace tomekeeper::detail
