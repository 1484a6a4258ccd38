#pragma once

#include <string>
#include <vector>

#include "async/Task.h"
#include "model/Bookmark.h"
#include "model/Uuid.h"

namespace tomekeeper {

// The bookmarks of each book. Call from the main executor; each operation runs on the
// repository's own executor, one at a time in call order, and resumes on the main executor.
// Failures are BookmarkPersistenceFailureError.
class BookmarkRepository {
 public:
  virtual ~BookmarkRepository() = default;

  // The bookmarks of `fingerprint`, newest first; equal dates by upper-case id ascending.
  virtual async::Task<std::vector<Bookmark>> bookmarks(std::string fingerprint) = 0;
  // Adds `bookmark` to its book, or replaces the one with the same id where it stands.
  virtual async::Task<void> save(Bookmark bookmark) = 0;
  // Removes every bookmark of `fingerprint` with that id; an unknown id is no failure.
  virtual async::Task<void> deleteBookmark(Uuid id, std::string fingerprint) = 0;
  // Removes all the bookmarks of `fingerprint`.
  virtual async::Task<void> deleteAll(std::string fingerprint) = 0;
};

}  // namespace tomekeeper
