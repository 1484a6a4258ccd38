#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "async/Task.h"
#include "opening/SecurityScopedAccess.h"

namespace tomekeeper {

// Who a file is, and what this open holds on it.
struct PreparedDocumentIdentity {
  std::filesystem::path sourceURL;  // Absolute, normal, symbolic links resolved.
  std::string fingerprint;
  // True when a session for the fingerprint was already active or reserved;
  // false when this open has just reserved it.
  bool reusedActiveSession = false;
  // The holder owes exactly one end().
  std::unique_ptr<SourceAccessLease> sourceAccess;
};

// Computes a fingerprint in place of the plain hash, doing more work in the
// same read of the file (see PublicationCachePreparing::fingerprintWhileExtracting).
using FingerprintComputing = std::function<async::Task<std::string>(std::filesystem::path)>;

// The identity step of the open road. Main executor only.
class DocumentIdentityPreparing {
 public:
  virtual ~DocumentIdentityPreparing() = default;
  // `computing`, when given, is used where the file must be hashed; when it
  // fails for any reason but cancellation, the plain hash runs instead.
  virtual async::Task<PreparedDocumentIdentity> prepareIdentity(
      std::filesystem::path sourceURL, std::optional<std::string> expectedFingerprint,
      FingerprintComputing computing = {}) = 0;
  virtual void releaseReservation(const std::string& fingerprint) = 0;
};

}  // namespace tomekeeper
