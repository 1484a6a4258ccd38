#pragma once

#include "async/Task.h"
#include "model/ReadingMode.h"

namespace tomekeeper {

// The global store of the reading mode, shared by all windows. Call from the main executor; each
// operation runs on the repository's own executor, one at a time in call order, and resumes on
// the main executor. Failures are ReadingModePersistenceFailureError.
class ReadingModeRepository {
 public:
  virtual ~ReadingModeRepository() = default;

  // The stored value; paginated when nothing is stored.
  virtual async::Task<ReadingMode> load() = 0;
  // Replaces the stored value.
  virtual async::Task<void> save(ReadingMode value) = 0;
};

}  // namespace tomekeeper
