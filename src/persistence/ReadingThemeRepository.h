#pragma once

#include "async/Task.h"
#include "model/ReadingThemeSelection.h"

namespace tomekeeper {

// The global store of the colour theme, shared by all windows. Call from the main executor; each
// operation runs on the repository's own executor, one at a time in call order, and resumes on
// the main executor. Failures are ReadingThemePersistenceFailureError.
class ReadingThemeRepository {
 public:
  virtual ~ReadingThemeRepository() = default;

  // The stored value; system when nothing is stored.
  virtual async::Task<ReadingThemeSelection> load() = 0;
  // Replaces the stored value.
  virtual async::Task<void> save(ReadingThemeSelection value) = 0;
};

}  // namespace tomekeeper
