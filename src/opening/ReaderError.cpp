#include "opening/ReaderError.h"

#include <utility>

#include "async/Failure.h"
#include "async/OperationCancelled.h"

namespace tomekeeper {

namespace {

constexpr ReaderErrorPolicy kInlineRetryable{true, false, true, ReaderErrorPresentation::inline_};

constexpr std::string_view kPersistenceFailures[] = {
    "ReadingPositionPersistenceFailure", "TypographyPreferencesPersistenceFailure",
    "ReadingThemePersistenceFailure",    "ReadingModePersistenceFailure",
    "PageLayoutPersistenceFailure",      "ScrolledContentWidthPersistenceFailure",
    "BookmarkPersistenceFailure",        "AnnotationPersistenceFailure",
};

bool isPersistenceFailure(const Failure& failure) {
  for (std::string_view name : kPersistenceFailures) {
    if (failure.typeName() == name) return true;
  }
  return false;
}

ReaderError fromFailure(const Failure& failure) {
  const std::string_view type = failure.typeName();
  const std::string_view name = failure.caseName();
  const bool bridge = type == "ReaderBridgeFailure";
  const bool host = type == "ReaderWebViewHostFailure";

  if (bridge && name == "runtime" && failure.detail() != nullptr) {
    const FailureDetail& payload = *failure.detail();
    if (payload.code == "annotation-anchor-unresolved" ||
        payload.code == "highlight-rendering-unavailable") {
      return ReaderError(ReaderErrorKind::readerRuntimeFailed,
                         "A saved highlight could not be shown at its original text.",
                         payload.code + ": " + payload.diagnostic.value_or(payload.message),
                         {false, false, true, ReaderErrorPresentation::inline_});
    }
    if (payload.code == "selection-too-long") {
      return ReaderError(ReaderErrorKind::unsupportedFeature,
                         "Select fewer than 2000 characters to create a highlight.", payload.code,
                         kInlineRetryable);
    }
  }
  if (bridge && name == "timedOut") {
    return ReaderError(
        ReaderErrorKind::bridgeTimedOut, "The reader took too long to respond. Try again.",
        "ReaderBridgeFailure.timedOut", {true, false, true, ReaderErrorPresentation::alert});
  }
  if ((bridge || host) && name == "webContentProcessTerminated") {
    return ReaderError(ReaderErrorKind::webContentProcessTerminated,
                       "The book renderer stopped unexpectedly. You can reopen the book.",
                       failure.reflectiveText(), kInlineRetryable);
  }
  if ((bridge && (name == "cancelled" || name == "readerClosed")) || (host && name == "closed")) {
    return ReaderError(ReaderErrorKind::operationCancelled, "The reading operation was cancelled.",
                       failure.reflectiveText(), kInlineRetryable);
  }
  if (isPersistenceFailure(failure)) {
    return ReaderError(ReaderErrorKind::persistenceFailed,
                       "Your local reading data could not be saved or restored.",
                       failure.reflectiveText(), kInlineRetryable);
  }
  return ReaderError(ReaderErrorKind::readerRuntimeFailed,
                     "This book could not be opened by the reader.", failure.reflectiveText(),
                     {true, true, false, ReaderErrorPresentation::blocking});
}

}  // namespace

std::string_view rawValue(ReaderErrorKind kind) noexcept {
  return detail::nthName(
      "corruptPublication, unsupportedFeature, readerRuntimeFailed, bridgeTimedOut, "
      "webContentProcessTerminated, persistenceFailed, operationCancelled",
      static_cast<std::size_t>(kind));
}

std::string_view rawValue(ReaderErrorPresentation presentation) noexcept {
  return detail::nthName("inline, alert, blocking", static_cast<std::size_t>(presentation));
}

ReaderError::ReaderError(ReaderErrorKind kind, std::string userMessage, std::string diagnosticCause,
                         ReaderErrorPolicy policy)
    : kind_(kind),
      userMessage_(std::move(userMessage)),
      diagnosticCause_(std::move(diagnosticCause)),
      policy_(policy) {}

std::string reflectiveText(const std::exception_ptr& error) noexcept {
  try {
    std::rethrow_exception(error);
  } catch (const Failure& failure) {
    return failure.reflectiveText();
  } catch (const async::OperationCancelled&) {
    return "OperationCancelled";
  } catch (const std::exception& other) {
    return other.what();
  } catch (...) {
    return "unknown error";
  }
}

ReaderError ReaderError::from(const std::exception_ptr& error) noexcept {
  try {
    std::rethrow_exception(error);
  } catch (const ReaderError& readerError) {
    return readerError;
  } catch (const Failure& failure) {
    return fromFailure(failure);
  } catch (const async::OperationCancelled&) {
    return ReaderError(ReaderErrorKind::operationCancelled, "The reading operation was cancelled.",
                       "OperationCancelled", kInlineRetryable);
  } catch (...) {
    return ReaderError(ReaderErrorKind::readerRuntimeFailed,
                       "This book could not be opened by the reader.", reflectiveText(error),
                       {true, true, false, ReaderErrorPresentation::blocking});
  }
}

}  // namespace tomekeeper
