#pragma once

#include <string>
#include <vector>

#include "async/Task.h"
#include "model/Annotation.h"
#include "model/Uuid.h"

namespace tomekeeper {

// The highlights and notes of each book. Call from the main executor; each operation runs on
// the repository's own executor, one at a time in call order, and resumes on the main executor.
// Failures are AnnotationPersistenceFailureError.
class AnnotationRepository {
 public:
  virtual ~AnnotationRepository() = default;

  // The annotations of `fingerprint`, newest first; equal dates by upper-case id ascending.
  virtual async::Task<std::vector<Annotation>> annotations(std::string fingerprint) = 0;
  // Adds `annotation` to its book, or replaces the one with the same id where it stands (a
  // changed note is saved this way).
  virtual async::Task<void> save(Annotation annotation) = 0;
  // Removes every annotation of `fingerprint` with that id; an unknown id is no failure.
  virtual async::Task<void> deleteAnnotation(Uuid id, std::string fingerprint) = 0;
  // Removes all the annotations of `fingerprint`.
  virtual async::Task<void> deleteAll(std::string fingerprint) = 0;
};

}  // namespace tomekeeper
