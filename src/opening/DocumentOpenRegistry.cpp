#include "opening/DocumentOpenRegistry.h"

#include <unistd.h>

#include <system_error>

#include "async/OperationCancelled.h"
#include "opening/OpeningFailures.h"
#include "platform/EPUBFileName.h"

namespace tomekeeper {

namespace {

std::filesystem::path canonicalForm(const std::filesystem::path& file) {
  std::error_code error;
  std::filesystem::path absolute = std::filesystem::absolute(file, error).lexically_normal();
  std::filesystem::path resolved = std::filesystem::weakly_canonical(absolute, error);
  return error ? absolute : resolved;
}

}  // namespace

DocumentOpenRegistry::DocumentOpenRegistry(
    std::shared_ptr<PublicationFingerprinting> fingerprintService,
    std::shared_ptr<PublicationIdentityCache> identityCache,
    std::shared_ptr<SourceBookmarkStore> bookmarkStore,
    std::shared_ptr<SecurityScopedAccessLedger> accessLedger)
    : fingerprintService_(std::move(fingerprintService)),
      identityCache_(std::move(identityCache)),
      bookmarkStore_(std::move(bookmarkStore)),
      accessLedger_(std::move(accessLedger)) {}

async::Task<std::string> DocumentOpenRegistry::hash(std::filesystem::path file,
                                                    std::shared_ptr<OpenPerformanceTrace> trace,
                                                    FingerprintComputing computing) {
  std::optional<OpenPerformanceTrace::Token> token;
  if (trace) token = trace->start();
  try {
    std::optional<std::string> computed;
    if (computing) {
      try {
        computed = co_await computing(file);
      } catch (const async::OperationCancelled&) {
        throw;
      } catch (...) {
        // The plain hash below; whatever failed is met again, and reported,
        // by the step that does that work on its own.
      }
    }
    std::string fingerprint =
        computed ? std::move(*computed) : co_await fingerprintService_->fingerprint(file);
    if (trace) trace->mark(OpenPerformanceTrace::Stage::fullFingerprint, *token);
    co_return fingerprint;
  } catch (...) {
    if (trace) trace->mark(OpenPerformanceTrace::Stage::fullFingerprint, *token);
    throw;
  }
}

async::Task<PreparedDocumentIdentity> DocumentOpenRegistry::prepareIdentity(
    std::filesystem::path sourceURL, std::optional<std::string> expectedFingerprint,
    FingerprintComputing computing) {
  // Keep the registry alive across awaits even if its owner lets go.
  const auto self = shared_from_this();
  const std::shared_ptr<OpenPerformanceTrace> trace = co_await OpenPerformanceTrace::current();

  const std::filesystem::path canonical = canonicalForm(sourceURL);
  if (!hasEPUBExtension(canonical)) throw DocumentOpenFailureError(DocumentOpenFailure::notAnEPUB);

  std::unique_ptr<SecurityScopedAccess> lease = accessLedger_->begin(canonical, trace);
  const std::string key = canonical.string();
  if (::access(key.c_str(), R_OK) != 0) {
    lease->end();
    throw DocumentOpenFailureError(DocumentOpenFailure::sourceUnavailable);
  }

  std::optional<InFlight> joined;
  if (auto existing = inFlight_.find(key); existing != inFlight_.end()) {
    joined = existing->second;
  } else {
    std::optional<OpenPerformanceTrace::Token> token;
    if (trace) token = trace->start();
    std::optional<std::string> cached = co_await identityCache_->cachedFingerprint(canonical);
    if (trace) {
      trace->mark(OpenPerformanceTrace::Stage::identityCacheLookup, *token);
      trace->setIdentityCacheHit(cached.has_value());
      std::error_code error;
      const auto size = std::filesystem::file_size(canonical, error);
      if (!error) trace->setSourceByteCount(static_cast<std::int64_t>(size));
    }
    // The await let other opens run: one of them may have started the work.
    if (auto started = inFlight_.find(key); started != inFlight_.end()) {
      joined = started->second;
    } else {
      async::Task<std::string> work =
          cached ? [](std::string value) -> async::Task<std::string> { co_return value; }(*cached)
                 : hash(canonical, trace, std::move(computing));
      joined = InFlight{nextInFlightID_++, async::SharedTask<std::string>::start(std::move(work))};
      inFlight_.emplace(key, *joined);
    }
  }

  std::string fingerprint;
  std::exception_ptr failure;
  ++waitingOpens_;
  try {
    fingerprint = co_await joined->task;
  } catch (...) {
    failure = std::current_exception();
  }
  --waitingOpens_;
  if (auto entry = inFlight_.find(key);
      entry != inFlight_.end() && entry->second.id == joined->id) {
    inFlight_.erase(entry);
  }
  if (failure) {
    lease->end();
    std::rethrow_exception(failure);
  }

  co_await identityCache_->record(canonical, fingerprint);
  if (expectedFingerprint && *expectedFingerprint != fingerprint) {
    lease->end();
    throw DocumentOpenFailureError(DocumentOpenFailure::relocatedContentMismatch);
  }
  try {
    co_await bookmarkStore_->save(canonical, fingerprint);
  } catch (...) {
    // The book opens; it just cannot be restored across launches until a
    // later open saves its bookmark.
  }

  // No await from here to the end: exactly one of many simultaneous opens of
  // one fingerprint takes the reservation.
  const bool reused = active_.contains(fingerprint) || reservedFingerprints_.contains(fingerprint);
  if (!reused) reservedFingerprints_.insert(fingerprint);
  co_return PreparedDocumentIdentity{canonical, fingerprint, reused, std::move(lease)};
}

void DocumentOpenRegistry::releaseReservation(const std::string& fingerprint) {
  if (active_.contains(fingerprint)) return;
  reservedFingerprints_.erase(fingerprint);
}

bool DocumentOpenRegistry::activate(const std::string& fingerprint) {
  auto entry = active_.find(fingerprint);
  if (entry == active_.end()) return false;
  entry->second();
  return true;
}

bool DocumentOpenRegistry::registerActive(const std::string& fingerprint, Activator activator) {
  reservedFingerprints_.erase(fingerprint);
  if (auto existing = active_.find(fingerprint); existing != active_.end()) {
    existing->second();
    return false;
  }
  active_.emplace(fingerprint, std::move(activator));
  return true;
}

void DocumentOpenRegistry::removeActive(const std::string& fingerprint) {
  active_.erase(fingerprint);
  reservedFingerprints_.erase(fingerprint);
}

}  // namespace tomekeeper
