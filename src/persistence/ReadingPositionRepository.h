#pragma once

#include <optional>
#include <string>

#include "async/Task.h"
#include "model/Locator.h"

namespace tomekeeper {

// Where the reader was in each book, keyed by fingerprint. Call from the main executor; each
// operation runs on the repository's own executor, one at a time in call order, and resumes on
// the main executor. Failures are ReadingPositionPersistenceFailureError.
class ReadingPositionRepository {
 public:
  virtual ~ReadingPositionRepository() = default;

  // The saved locator of `fingerprint`, or nothing when none is saved.
  virtual async::Task<std::optional<Locator>> locator(std::string fingerprint) = 0;
  // Saves `locator` as the position of `fingerprint`, replacing the former one.
  virtual async::Task<void> save(Locator locator, std::string fingerprint) = 0;
  // Forgets the position of `fingerprint`.
  virtual async::Task<void> deleteLocator(std::string fingerprint) = 0;
};

}  // namespace tomekeeper
