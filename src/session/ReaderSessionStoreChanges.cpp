// Following stores that changed under an open book: a file-sync engine brought another
// machine's version, or the reader restored a backup. The lists and the highlights drawn on the
// page are brought in line with what the stores hold now.

#include <algorithm>
#include <map>
#include <utility>

#include "session/ReaderSession.h"

namespace tomekeeper {

namespace {

// What the page draws of a highlight; a change of the note alone redraws nothing.
bool drawsDifferently(const Annotation& left, const Annotation& right) {
  return left.locator != right.locator || left.selectedText != right.selectedText ||
         left.color != right.color;
}

// The same records in any order: the session keeps its own order (a new highlight goes last,
// while a store lists newest first), which a reread must not shuffle.
template <typename Record>
bool sameRecords(const std::vector<Record>& left, const std::vector<Record>& right) {
  return left.size() == right.size() &&
         std::all_of(left.begin(), left.end(), [&](const Record& record) {
           return std::find(right.begin(), right.end(), record) != right.end();
         });
}

}  // namespace

async::Task<void> ReaderSession::rereadReadingData() {
  if (state_.value() != State::ready || !fingerprint_) co_return;
  const auto keepAlive = shared_from_this();
  const std::string fingerprint = *fingerprint_;

  if (bookmarkRepository_) {
    std::optional<std::vector<Bookmark>> loaded;
    std::exception_ptr failure;
    try {
      loaded = co_await bookmarkRepository_->bookmarks(fingerprint);
    } catch (...) {
      failure = std::current_exception();
    }
    if (state_.value() != State::ready) co_return;
    if (failure) {
      recordFailure(failure);
    } else if (!sameRecords(*loaded, bookmarks_.value())) {
      bookmarks_.set(std::move(*loaded));
      try {
        co_await refreshBookmarkVisibility();
      } catch (...) {
        // The list is right; the marks on the page follow with the next page turn.
      }
    }
  }

  if (!annotationRepository_ || state_.value() != State::ready) co_return;
  std::vector<Annotation> loaded;
  std::exception_ptr failure;
  try {
    loaded = co_await annotationRepository_->annotations(fingerprint);
  } catch (...) {
    failure = std::current_exception();
  }
  if (state_.value() != State::ready) co_return;
  if (failure) {
    recordFailure(failure);
    co_return;
  }
  if (sameRecords(loaded, annotations_.value())) co_return;
  std::map<Uuid, Annotation> shown;
  for (const Annotation& annotation : annotations_.value())
    shown.emplace(annotation.id, annotation);
  std::map<Uuid, const Annotation*> stored;
  for (const Annotation& annotation : loaded) stored.emplace(annotation.id, &annotation);

  std::set<Uuid> unresolved = unresolvedAnnotationIDs_.value();
  for (const auto& [id, annotation] : shown) {
    const auto now = stored.find(id);
    if (now != stored.end() && !drawsDifferently(annotation, *now->second)) continue;
    try {
      co_await bridge().removeAnnotation(RemoveAnnotationRequest{id});
    } catch (...) {
      // A highlight the page no longer has is what was asked for.
    }
    unresolved.erase(id);
    if (state_.value() != State::ready) co_return;
  }
  for (const Annotation& annotation : loaded) {
    const auto before = shown.find(annotation.id);
    if (before != shown.end() && !drawsDifferently(before->second, annotation)) continue;
    std::exception_ptr drawFailure;
    try {
      co_await sendAnnotation(annotation);
    } catch (...) {
      drawFailure = std::current_exception();
    }
    if (state_.value() != State::ready) co_return;
    if (drawFailure) {
      unresolved.insert(annotation.id);
      recordFailure(drawFailure);
    }
  }
  annotations_.set(std::move(loaded));
  unresolvedAnnotationIDs_.set(std::move(unresolved));
}

}  // namespace tomekeeper
