#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "async/Task.h"
#include "opening/PreparedPublicationResources.h"
#include "session/ReaderNavigationDirection.h"

namespace tomekeeper {

// The publication's names as the reader runtime reported them.
struct PublicationTitle {
  std::optional<std::string> title;
  std::vector<std::string> authors;
  // "ltr" or "rtl" where the book declares them; absent otherwise.
  std::optional<std::string> titleDirection{};
  std::optional<std::string> authorsDirection{};
  bool operator==(const PublicationTitle&) const = default;
};

// What the coordinator needs of the reading session of one window: open it, close it, read its
// publication's names, and hand it the page keys. The application's implementation wraps a
// ReaderSession; tests use fakes. Main executor only.
class WindowSession {
 public:
  virtual ~WindowSession() = default;

  // Opens the prepared publication. Throws the session's ReaderError (or any failure).
  virtual async::Task<void> open(PreparedPublicationResources resources,
                                 std::filesystem::path runtimeRoot, std::string fingerprint) = 0;
  // Synchronous, idempotent, never fails.
  virtual void close() = 0;
  // Absent until the open has succeeded.
  virtual std::optional<PublicationTitle> publicationTitle() const = 0;
  // True when the key was taken: only while the book is ready and paginated; the page then turns
  // on a task of its own, whose failure is ignored. In scrolled mode the key goes on to the view.
  virtual bool handlePaginationKey(ReaderNavigationDirection direction) = 0;
};

// Makes the session of a new window with the book's own repositories and the global ones.
// Throws when the book's repositories cannot be made, before anything else has happened.
class WindowSessionFactory {
 public:
  virtual ~WindowSessionFactory() = default;
  virtual std::shared_ptr<WindowSession> makeSession(const std::string& fingerprint) = 0;
};

}  // namespace tomekeeper
