#include "opening/OpenPerformanceTrace.h"

#include "async/Failure.h"

namespace tomekeeper {

std::string_view OpenPerformanceTrace::name(Stage stage) noexcept {
  return detail::nthName(
      "identityCacheLookup, fullFingerprint, securityScopedAccess, extractionCacheValidation, "
      "archiveInspection, archiveExtraction, containerValidation, cacheCommit, "
      "runtimePreparation, publicationOpen, readerSessionReady, totalOpen",
      static_cast<std::size_t>(stage));
}

void OpenPerformanceTrace::mark(Stage stage, Token since) {
  const std::chrono::duration<double, std::milli> elapsed =
      std::chrono::steady_clock::now() - since.instant;
  std::lock_guard guard(lock_);
  state_.durationsMS[std::string(name(stage))] += elapsed.count();
}

void OpenPerformanceTrace::setSourceByteCount(std::int64_t count) {
  std::lock_guard guard(lock_);
  state_.sourceByteCount = count;
}

void OpenPerformanceTrace::setArchiveEntryCount(std::int64_t count) {
  std::lock_guard guard(lock_);
  state_.archiveEntryCount = count;
}

void OpenPerformanceTrace::setExtractionCacheHit(bool hit) {
  std::lock_guard guard(lock_);
  state_.extractionCacheHit = hit;
}

void OpenPerformanceTrace::setIdentityCacheHit(bool hit) {
  std::lock_guard guard(lock_);
  state_.identityCacheHit = hit;
}

OpenPerformanceTrace::State OpenPerformanceTrace::state() const {
  std::lock_guard guard(lock_);
  return state_;
}

}  // namespace tomekeeper
