// Deleting a book's reading data: its position, bookmarks, highlights and notes, on the page
// and in the stores. The book and its extraction stay.

#include <utility>

#include "session/ReaderSession.h"

namespace tomekeeper {

async::Task<void> ReaderSession::clearReadingData() {
  if (state_.value() != State::ready || !fingerprint_) co_return;
  const auto keepAlive = shared_from_this();
  const std::string fingerprint = *fingerprint_;
  // The highlights on the page are remembered, and no delayed save of the place may follow.
  const std::vector<Annotation> taken = annotations_.value();
  if (locatorPersistenceTask_) locatorPersistenceTask_->request_stop();
  locatorPersistenceTask_.reset();

  // The highlights leave the page; a runtime refusal stops here, with the stores untouched.
  std::exception_ptr failure;
  try {
    for (const Annotation& annotation : taken) {
      co_await bridge().removeAnnotation(RemoveAnnotationRequest{annotation.id});
    }
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) throw recordFailure(failure);

  // The stores forget the place, the bookmarks and the highlights.
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

  // No bookmark is left to show on the page.
  bookmarks_.set({});
  visibleBookmarkIDs_.set({});
  try {
    co_await bridge().configureBookmarkVisibility(ConfigureBookmarkVisibilityRequest{});
  } catch (...) {
    // Ignored: the page may show a stale mark until the next refresh, the data is gone.
  }

  // Nor any highlight, selection or place to save on close.
  annotations_.set({});
  unresolvedAnnotationIDs_.set({});
  currentTextSelection_.set(std::nullopt);
  currentSelectionRect_.set(std::nullopt);
  shouldPersistCurrentLocatorOnClose_ = false;
}

}  // namespace tomekeeper
