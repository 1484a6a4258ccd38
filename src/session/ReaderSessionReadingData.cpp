// Deleting a book's reading data: its position, bookmarks, highlights and notes, on the page
// and in the stores. The book and its extraction stay.

#include <utility>

#include "session/ReaderSession.h"

namespace tomekeeper {

async::Task<void> ReaderSession::clearReadingData() {
  if (state_.value() != State::ready || !fingerprint_) co_return;
  const auto keepAlive = shared_from_this();
  const std::string fingerprint = *fingerprint_;
  // 1, 2
  const std::vector<Annotation> taken = annotations_.value();
  if (locatorPersistenceTask_) locatorPersistenceTask_->request_stop();
  locatorPersistenceTask_.reset();

  // 3: a runtime refusal stops here; the stores are untouched.
  std::exception_ptr failure;
  try {
    for (const Annotation& annotation : taken) {
      co_await bridge().removeAnnotation(RemoveAnnotationRequest{annotation.id});
    }
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) throw recordFailure(failure);

  // 4 to 6
  try {
    if (positionRepository_) co_await positionRepository_->deleteLocator(fingerprint);
    if (bookmarkRepository_) co_await bookmarkRepository_->deleteAll(fingerprint);
    if (annotationRepository_) co_await annotationRepository_->deleteAll(fingerprint);
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) {
    // Every highlight was taken off the page, but a store still holds them: draw them again.
    // One that fails to draw does not stop the others.
    for (const Annotation& annotation : taken) {
      try {
        co_await sendAnnotation(annotation);
      } catch (...) {
      }
    }
    throw recordFailure(failure);
  }

  // 7, 8
  bookmarks_.set({});
  visibleBookmarkIDs_.set({});
  try {
    co_await bridge().configureBookmarkVisibility(ConfigureBookmarkVisibilityRequest{});
  } catch (...) {
    // Ignored: the page may show a stale mark until the next refresh, the data is gone.
  }

  // 9, 10
  annotations_.set({});
  unresolvedAnnotationIDs_.set({});
  currentTextSelection_.set(std::nullopt);
  currentSelectionRect_.set(std::nullopt);
  shouldPersistCurrentLocatorOnClose_ = false;
}

}  // namespace tomekeeper
