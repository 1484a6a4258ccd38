#pragma once

#include <filesystem>
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

// The identity step of the open road. Main executor only.
class DocumentIdentityPreparing {
 public:
  virtual ~DocumentIdentityPreparing() = default;
  virtual async::Task<PreparedDocumentIdentity> prepareIdentity(
      std::filesystem::path sourceURL, std::optional<std::string> expectedFingerprint) = 0;
  virtual void releaseReservation(const std::string& fingerprint) = 0;
};

}  // namespace tomekeeper
