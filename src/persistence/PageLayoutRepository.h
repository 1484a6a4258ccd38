#pragma once

#include "async/Task.h"
#include "model/PageLayout.h"

namespace tomekeeper {

// The global store of the page layout, shared by all windows. Call from the main executor; each
// operation runs on the repository's own executor, one at a time in call order, and resumes on
// the main executor. Failures are PageLayoutPersistenceFailureError.
class PageLayoutRepository {
 public:
  virtual ~PageLayoutRepository() = default;

  // The stored value; adaptive when nothing is stored.
  virtual async::Task<PageLayout> load() = 0;
  // Replaces the stored value.
  virtual async::Task<void> save(PageLayout value) = 0;
};

}  // namespace tomekeeper
