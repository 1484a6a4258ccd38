// Highlights and notes: the selection callout, adding a highlight (runtime first, store
// second), notes, removal with its confirmation, jumps, and the runtime's resolution reports.
// What is stored, what `annotations` lists and what the runtime draws are kept in step: a
// refused store takes back what the runtime was told.

#include <algorithm>
#include <utility>

#include "async/Spawn.h"
#include "session/AnnotationNote.h"
#include "session/ReaderSession.h"

namespace tomekeeper {

namespace {

RuntimeAnnotation runtimeAnnotation(const Annotation& annotation) {
  return RuntimeAnnotation{annotation.id, annotation.locator, annotation.selectedText,
                           annotation.color};
}

std::optional<Annotation> findAnnotation(const std::vector<Annotation>& list, const Uuid& id) {
  const auto found = std::find_if(list.begin(), list.end(),
                                  [&](const Annotation& entry) { return entry.id == id; });
  if (found == list.end()) return std::nullopt;
  return *found;
}

async::Task<void> removeWithoutConfirmation(std::weak_ptr<ReaderSession> weak,
                                            Annotation annotation) {
  const std::shared_ptr<ReaderSession> session = weak.lock();
  if (!session) co_return;
  try {
    co_await session->removeAnnotation(std::move(annotation));
  } catch (const ReaderError&) {
    // Recorded in `error`; the menu has no one to tell.
  }
}

}  // namespace

async::Task<void> ReaderSession::sendAnnotation(const Annotation& annotation) {
  co_await bridge().addAnnotation(AnnotationRequest{runtimeAnnotation(annotation)});
}

async::Task<void> ReaderSession::reloadAnnotations() {
  std::vector<Annotation> reloaded = co_await annotationRepository_->annotations(*fingerprint_);
  annotations_.set(std::move(reloaded));
}

void ReaderSession::handleSelectionAvailabilityChanged(bool available,
                                                       std::optional<ReaderSelectionRect> rect) {
  const std::int64_t snapshot = ++selectionRevision_;
  currentTextSelection_.set(std::nullopt);
  currentSelectionRect_.set(std::nullopt);
  if (!available) return;
  async::spawn(updateSelection(weak_from_this(), snapshot, rect));
}

async::Task<void> ReaderSession::updateSelection(std::weak_ptr<ReaderSession> weak,
                                                 std::int64_t snapshot,
                                                 std::optional<ReaderSelectionRect> rect) {
  std::shared_ptr<ReaderSession> session = weak.lock();
  if (!session || session->state_.value() != State::ready) co_return;
  const std::shared_ptr<ReaderBridge> bridge = session->host_->bridge();
  session.reset();
  CurrentSelectionResult reply;
  try {
    reply = co_await bridge->currentSelection();
  } catch (...) {
    // A selection that cannot be read shows no callout; nothing else depends on it.
    co_return;
  }
  session = weak.lock();
  // A newer selection event has moved the revision on: this reply is out of date.
  if (!session || !reply.selection || session->state_.value() != State::ready ||
      session->selectionRevision_ != snapshot) {
    co_return;
  }
  session->currentTextSelection_.set(std::move(reply.selection));
  session->currentSelectionRect_.set(rect);
}

async::Task<void> ReaderSession::addHighlight() {
  if (state_.value() != State::ready) co_return;
  const auto keepAlive = shared_from_this();
  std::exception_ptr failure;
  std::optional<TextSelection> selection;
  try {
    selection = (co_await bridge().currentSelection()).selection;
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) throw recordFailure(failure);
  if (!selection) co_return;

  const Date now = Date::now();
  Annotation annotation{Uuid::random(),
                        fingerprint_.value_or(""),
                        selection->locator,
                        selection->selectedText,
                        AnnotationColor::yellow,
                        std::nullopt,
                        now,
                        now};
  try {
    co_await sendAnnotation(annotation);
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) throw recordFailure(failure);

  if (annotationRepository_ && fingerprint_) {
    try {
      co_await annotationRepository_->save(annotation);
    } catch (...) {
      failure = std::current_exception();
    }
    if (failure) {
      // The drawn highlight must not stay without a stored one.
      try {
        co_await bridge().removeAnnotation(RemoveAnnotationRequest{annotation.id});
      } catch (...) {
      }
      throw recordFailure(failure);
    }
  }

  ++selectionRevision_;
  currentTextSelection_.set(std::nullopt);
  currentSelectionRect_.set(std::nullopt);

  if (annotationRepository_ && fingerprint_) {
    try {
      co_await reloadAnnotations();
    } catch (...) {
      failure = std::current_exception();
    }
    if (failure) throw recordFailure(failure);
  } else {
    std::vector<Annotation> appended = annotations_.value();
    appended.push_back(std::move(annotation));
    annotations_.set(std::move(appended));
  }
}

async::Task<void> ReaderSession::saveNote(Annotation annotation, std::string editedText) {
  if (state_.value() != State::ready) co_return;
  const auto keepAlive = shared_from_this();
  const AnnotationNote::Outcome outcome = AnnotationNote::fromEditedText(editedText);
  if (outcome.exceedsLimit) {
    ReaderError tooLong(ReaderErrorKind::unsupportedFeature,
                        "Notes can contain up to 4000 characters.", "annotation-note-too-long",
                        {true, false, true, ReaderErrorPresentation::inline_});
    throw recordFailure(std::make_exception_ptr(tooLong));
  }
  Annotation changed = annotation.withNote(outcome.note, Date::now());
  std::exception_ptr failure;
  if (annotationRepository_) {
    try {
      co_await annotationRepository_->save(changed);
    } catch (...) {
      failure = std::current_exception();
    }
    if (failure) throw recordFailure(failure);
  }
  std::vector<Annotation> list = annotations_.value();
  for (Annotation& entry : list) {
    if (entry.id == changed.id) entry = changed;
  }
  annotations_.set(std::move(list));
}

void ReaderSession::requestAnnotationRemoval(Uuid annotationID) {
  if (state_.value() != State::ready) return;
  std::optional<Annotation> annotation = findAnnotation(annotations_.value(), annotationID);
  if (!annotation) return;
  if (annotation->note) {
    annotationPendingRemoval_.set(std::move(annotation));
    return;
  }
  async::spawn(removeWithoutConfirmation(weak_from_this(), std::move(*annotation)));
}

async::Task<void> ReaderSession::confirmAnnotationRemoval() {
  std::optional<Annotation> pending = annotationPendingRemoval_.value();
  if (!pending) co_return;
  const auto keepAlive = shared_from_this();
  // Cleared before the removal runs, so that the dialog goes away whatever the outcome.
  annotationPendingRemoval_.set(std::nullopt);
  co_await removeAnnotation(std::move(*pending));
}

void ReaderSession::cancelAnnotationRemoval() {
  annotationPendingRemoval_.set(std::nullopt);
}

async::Task<void> ReaderSession::removeAnnotation(Annotation annotation) {
  if (state_.value() != State::ready) co_return;
  const auto keepAlive = shared_from_this();
  std::exception_ptr failure;
  try {
    co_await bridge().removeAnnotation(RemoveAnnotationRequest{annotation.id});
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) throw recordFailure(failure);

  if (annotationRepository_ && fingerprint_) {
    try {
      co_await annotationRepository_->deleteAnnotation(annotation.id, *fingerprint_);
    } catch (...) {
      failure = std::current_exception();
    }
    if (failure) {
      // Draw it again, so that the page shows what the store holds.
      try {
        co_await sendAnnotation(annotation);
      } catch (...) {
      }
      throw recordFailure(failure);
    }
    try {
      co_await reloadAnnotations();
    } catch (...) {
      failure = std::current_exception();
    }
    if (failure) throw recordFailure(failure);
  } else {
    std::vector<Annotation> remaining = annotations_.value();
    std::erase_if(remaining, [&](const Annotation& entry) { return entry.id == annotation.id; });
    annotations_.set(std::move(remaining));
  }
  std::set<Uuid> unresolved = unresolvedAnnotationIDs_.value();
  unresolved.erase(annotation.id);
  unresolvedAnnotationIDs_.set(std::move(unresolved));
}

async::Task<void> ReaderSession::goToAnnotation(Annotation annotation) {
  if (state_.value() != State::ready || annotation.bookFingerprint != fingerprint_) co_return;
  const auto keepAlive = shared_from_this();
  co_await jump(bridge().goTo(GoToLocatorRequest{annotation.locator}));
  std::exception_ptr failure;
  try {
    co_await bridge().pulseAnnotation(AnnotationPulseRequest{annotation.id});
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) throw recordFailure(failure);
}

void ReaderSession::handleAnnotationContextMenuRequested(
    ReaderAnnotationContextMenuRequest request) {
  if (state_.value() != State::ready) return;
  const std::optional<Annotation> annotation =
      findAnnotation(annotations_.value(), request.annotationID);
  if (!annotation) return;
  ++selectionRevision_;
  currentTextSelection_.set(std::nullopt);
  currentSelectionRect_.set(std::nullopt);
  host_->presentAnnotationMenu(request, annotation->note ? AnnotationNotePresence::withNote
                                                         : AnnotationNotePresence::withoutNote);
}

void ReaderSession::handleEditAnnotation(ReaderAnnotationContextMenuRequest request) {
  if (state_.value() != State::ready) return;
  if (!findAnnotation(annotations_.value(), request.annotationID)) return;
  noteEditingRequest_.set(request);
}

void ReaderSession::endNoteEditing() {
  noteEditingRequest_.set(std::nullopt);
}

void ReaderSession::handleAnnotationResolutionChanged(std::set<Uuid> resolved,
                                                      std::set<Uuid> unresolved) {
  std::set<Uuid> ids = unresolvedAnnotationIDs_.value();
  for (const Uuid& id : resolved) ids.erase(id);
  ids.insert(unresolved.begin(), unresolved.end());
  unresolvedAnnotationIDs_.set(std::move(ids));
  if (unresolved.empty()) return;
  std::string cause = "annotation-resolution-event: ";
  bool first = true;
  // A set of Uuid orders by bytes, which is the order of the upper-case text as well.
  for (const Uuid& id : unresolved) {
    if (!first) cause += ",";
    cause += id.string();
    first = false;
  }
  ReaderError error(ReaderErrorKind::readerRuntimeFailed,
                    "A saved highlight could not be shown at its original text.", cause,
                    {false, false, true, ReaderErrorPresentation::inline_});
  recordFailure(std::make_exception_ptr(error));
}

}  // namespace tomekeeper
