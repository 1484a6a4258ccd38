#pragma once

#include "async/Task.h"
#include "model/ScrolledContentWidth.h"

namespace tomekeeper {

// The global store of the scrolled column width, shared by all windows. Call from the main
// executor; each operation runs on the repository's own executor, one at a time in call order, and
// resumes on the main executor. Failures are ScrolledContentWidthPersistenceFailureError.
class ScrolledContentWidthRepository {
 public:
  virtual ~ScrolledContentWidthRepository() = default;

  // The stored value; comfortable when nothing is stored.
  virtual async::Task<ScrolledContentWidth> load() = 0;
  // Replaces the stored value.
  virtual async::Task<void> save(ScrolledContentWidth value) = 0;
};

}  // namespace tomekeeper
