#include "opening/SecurityScopedAccess.h"

#include <glib.h>

namespace tomekeeper {

std::unique_ptr<SecurityScopedAccess> SecurityScopedAccessLedger::begin(
    const std::filesystem::path& file, std::shared_ptr<OpenPerformanceTrace> trace) {
  std::optional<OpenPerformanceTrace::Token> token;
  if (trace) token = trace->start();
  // No sandbox grant exists to ask for here; reading the file decides.
  constexpr bool kSystemGranted = false;
  ++activeCount_;
  ++starts_;
  return std::make_unique<SecurityScopedAccess>(file, kSystemGranted, weak_from_this(),
                                                std::move(trace), token);
}

void SecurityScopedAccessLedger::recordStop() {
  // Begin and end are paired by construction; a negative count is a bug.
  g_assert(activeCount_ > 0);
  --activeCount_;
  ++stops_;
}

SecurityScopedAccess::SecurityScopedAccess(std::filesystem::path file, bool systemGranted,
                                           std::weak_ptr<SecurityScopedAccessLedger> ledger,
                                           std::shared_ptr<OpenPerformanceTrace> trace,
                                           std::optional<OpenPerformanceTrace::Token> token)
    : file_(std::move(file)),
      systemGranted_(systemGranted),
      ledger_(std::move(ledger)),
      performanceTrace_(std::move(trace)),
      performanceToken_(token) {}

SecurityScopedAccess::~SecurityScopedAccess() {
  end();
}

void SecurityScopedAccess::end() {
  if (ended_) return;
  ended_ = true;
  if (auto ledger = ledger_.lock()) ledger->recordStop();
  if (performanceTrace_ && performanceToken_) {
    performanceTrace_->mark(OpenPerformanceTrace::Stage::securityScopedAccess, *performanceToken_);
  }
}

}  // namespace tomekeeper
