#pragma once

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "async/SharedTask.h"
#include "opening/DocumentIdentityPreparing.h"
#include "opening/PublicationFingerprintService.h"
#include "opening/PublicationIdentityCache.h"
#include "opening/SecurityScopedAccess.h"
#include "opening/SourceBookmarkStore.h"

namespace tomekeeper {

// Makes sure a book has at most one window. Turns a file into its identity,
// joins concurrent work on one path into one hash, reserves a fingerprint for
// the open that will build its window, and keeps per window the closure that
// brings it forward. Lives on the main executor; its maps have no lock, and
// what keeps them right is the order of steps between awaits.
class DocumentOpenRegistry final : public DocumentIdentityPreparing,
                                   public std::enable_shared_from_this<DocumentOpenRegistry> {
 public:
  using Activator = std::function<void()>;

  DocumentOpenRegistry(std::shared_ptr<PublicationFingerprinting> fingerprintService,
                       std::shared_ptr<PublicationIdentityCache> identityCache,
                       std::shared_ptr<SourceBookmarkStore> bookmarkStore,
                       std::shared_ptr<SecurityScopedAccessLedger> accessLedger);

  // Throws DocumentOpenFailure::notAnEPUB, ::sourceUnavailable,
  // ::relocatedContentMismatch, or the hash's own error. On every failure the
  // lease is ended and the reservation sets are as they were.
  async::Task<PreparedDocumentIdentity> prepareIdentity(
      std::filesystem::path sourceURL, std::optional<std::string> expectedFingerprint,
      FingerprintComputing computing = {}) override;

  // Frees a reservation that did not become a window; an active one stays.
  void releaseReservation(const std::string& fingerprint) override;

  // Brings the fingerprint's window forward; false when none is registered.
  bool activate(const std::string& fingerprint);

  // Turns the reservation into an active window. If a window is already
  // active for it, that one is brought forward, `activator` is dropped, and
  // the result is false.
  bool registerActive(const std::string& fingerprint, Activator activator);

  // The window closed.
  void removeActive(const std::string& fingerprint);

  bool isReserved(const std::string& fingerprint) const {
    return reservedFingerprints_.contains(fingerprint);
  }
  bool isActive(const std::string& fingerprint) const { return active_.contains(fingerprint); }
  std::size_t inFlightCount() const { return inFlight_.size(); }
  // Opens now waiting for a hash, whether they started it or joined it.
  std::size_t waitingOpenCount() const { return waitingOpens_; }
  const std::shared_ptr<SecurityScopedAccessLedger>& accessLedger() const { return accessLedger_; }

 private:
  struct InFlight {
    std::uint64_t id;
    async::SharedTask<std::string> task;
  };

  async::Task<std::string> hash(std::filesystem::path file,
                                std::shared_ptr<OpenPerformanceTrace> trace,
                                FingerprintComputing computing);

  std::shared_ptr<PublicationFingerprinting> fingerprintService_;
  std::shared_ptr<PublicationIdentityCache> identityCache_;
  std::shared_ptr<SourceBookmarkStore> bookmarkStore_;
  std::shared_ptr<SecurityScopedAccessLedger> accessLedger_;
  std::map<std::string, InFlight> inFlight_;
  std::map<std::string, Activator> active_;
  std::set<std::string> reservedFingerprints_;
  std::uint64_t nextInFlightID_ = 1;
  std::size_t waitingOpens_ = 0;
};

}  // namespace tomekeeper
