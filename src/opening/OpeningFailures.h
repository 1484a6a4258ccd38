#pragma once

#include <string_view>

#include "async/Failure.h"

namespace tomekeeper {

// Why the open road refused a file before reading it as a book.
TOMEKEEPER_FAILURE(DocumentOpenFailure, notAnEPUB, sourceUnavailable, relocatedContentMismatch);

// The text form of a DocumentOpenFailure: its diagnostic.
constexpr std::string_view description(DocumentOpenFailure failure) noexcept {
  switch (failure) {
    case DocumentOpenFailure::notAnEPUB:
      return "not-an-epub";
    case DocumentOpenFailure::sourceUnavailable:
      return "source-unavailable";
    case DocumentOpenFailure::relocatedContentMismatch:
      return "relocated-content-mismatch";
  }
  return "";
}

// The source bookmark store was handed a name that is not a fingerprint.
TOMEKEEPER_FAILURE(SourceBookmarkStoreFailure, invalidFingerprint);

}  // namespace tomekeeper
