#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>

#include <nlohmann/json.hpp>

#include "async/Failure.h"
#include "async/RunUntilDone.h"
#include "async/Task.h"
#include "model/Annotation.h"
#include "model/Bookmark.h"
#include "model/Uuid.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper::testing {

using namespace std::chrono_literals;

// Generous: the machine may be loaded, and every write waits for two fsync calls.
inline constexpr auto kOperationLimit = 120s;

// Runs a repository operation to its end on the test's main context.
template <typename T>
T await(async::Task<T> task) {
  return async::runUntilDone(std::move(task), kOperationLimit);
}

// Runs `task` and expects it to fail with exactly `failure`; any other exception escapes and
// fails the test.
template <typename T, typename Enumeration>
void expectFailure(async::Task<T> task, Enumeration failure) {
  try {
    async::runUntilDone(std::move(task), kOperationLimit);
    ADD_FAILURE() << "expected " << failureTypeName(failure) << "." << failureCaseName(failure)
                  << " but the operation succeeded";
  } catch (const FailureError<Enumeration>& error) {
    EXPECT_EQ(error.failure(), failure) << "failed with " << error.what();
  }
}

inline std::string readFile(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  std::ostringstream contents;
  contents << stream.rdbuf();
  return contents.str();
}

inline nlohmann::json readJSONFile(const std::filesystem::path& file) {
  return nlohmann::json::parse(readFile(file));
}

// What a file is on disk: its bytes, and the inode and modification time that any rewrite
// (the atomic writer always renames a new file into place) would change.
struct FileSnapshot {
  std::string contents;
  ino_t inode = 0;
  std::int64_t modificationNanoseconds = 0;

  static FileSnapshot of(const std::filesystem::path& file) {
    struct stat status {};
    EXPECT_EQ(::stat(file.c_str(), &status), 0) << file;
    return FileSnapshot{readFile(file), status.st_ino,
                        status.st_mtim.tv_sec * 1'000'000'000LL + status.st_mtim.tv_nsec};
  }
  bool operator==(const FileSnapshot&) const = default;
};

inline const std::string kFingerprint(64, 'a');
inline const std::string kOtherFingerprint = std::string(63, 'b') + "0";

inline Uuid uuid(const std::string& text) {
  return Uuid::fromString(text).value();
}

inline Locator locatorAt(std::int64_t spineIndex, double totalProgression) {
  Locator locator;
  locator.spineHref = "chapter" + std::to_string(spineIndex) + ".xhtml";
  locator.spineIndex = spineIndex;
  locator.totalProgression = totalProgression;
  return locator;
}

inline Bookmark makeBookmark(Uuid id, double createdAt, std::string fingerprint = kFingerprint) {
  Bookmark bookmark;
  bookmark.id = id;
  bookmark.bookFingerprint = std::move(fingerprint);
  bookmark.locator = locatorAt(3, 0.25);
  bookmark.title = "Bookmark at 25%";
  bookmark.createdAt = Date(createdAt);
  return bookmark;
}

inline Annotation makeAnnotation(Uuid id, double createdAt,
                                 std::string fingerprint = kFingerprint) {
  Annotation annotation;
  annotation.id = id;
  annotation.bookFingerprint = std::move(fingerprint);
  annotation.locator = locatorAt(5, 0.5);
  annotation.selectedText = "the marked words";
  annotation.note = "a note";
  annotation.createdAt = Date(createdAt);
  annotation.modifiedAt = Date(createdAt);
  return annotation;
}

}  // namespace tomekeeper::testing
