#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "opening/OpenPerformanceTrace.h"

namespace tomekeeper {

// Scoped access to the user's original file, held by one open.
class SourceAccessLease {
 public:
  virtual ~SourceAccessLease() = default;
  // Gives the access back. Idempotent.
  virtual void end() = 0;
};

class SecurityScopedAccess;

// Counts every scoped access, so that a leaked lease shows. Main executor only.
// Outside a sandbox portal no grant exists to ask for: a lease records the
// access and `systemGranted` is false, but the counts are kept all the same.
class SecurityScopedAccessLedger : public std::enable_shared_from_this<SecurityScopedAccessLedger> {
 public:
  // Begins a lease on `file`. `trace` is the open's trace, if one is bound;
  // the lease marks its stage when it ends.
  std::unique_ptr<SecurityScopedAccess> begin(
      const std::filesystem::path& file, std::shared_ptr<OpenPerformanceTrace> trace = nullptr);

  int activeCount() const { return activeCount_; }
  int starts() const { return starts_; }
  int stops() const { return stops_; }

 private:
  friend class SecurityScopedAccess;
  void recordStop();

  int activeCount_ = 0;
  int starts_ = 0;
  int stops_ = 0;
};

// One held access. Ends itself when destroyed, which must happen on the main
// executor. The ledger is not owned: a lease that outlives it just ends.
class SecurityScopedAccess final : public SourceAccessLease {
 public:
  SecurityScopedAccess(std::filesystem::path file, bool systemGranted,
                       std::weak_ptr<SecurityScopedAccessLedger> ledger,
                       std::shared_ptr<OpenPerformanceTrace> trace,
                       std::optional<OpenPerformanceTrace::Token> token);
  ~SecurityScopedAccess() override;
  SecurityScopedAccess(const SecurityScopedAccess&) = delete;
  SecurityScopedAccess& operator=(const SecurityScopedAccess&) = delete;

  void end() override;

  const std::filesystem::path& url() const { return file_; }
  bool systemGranted() const { return systemGranted_; }
  bool ended() const { return ended_; }

 private:
  std::filesystem::path file_;
  bool systemGranted_;
  std::weak_ptr<SecurityScopedAccessLedger> ledger_;
  std::shared_ptr<OpenPerformanceTrace> performanceTrace_;
  std::optional<OpenPerformanceTrace::Token> performanceToken_;
  bool ended_ = false;
};

}  // namespace tomekeeper
