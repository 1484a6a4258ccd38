#pragma once

#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>

#include "async/Completion.h"
#include "async/Sleep.h"
#include "opening/DocumentOpenRegistry.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper::testing {

// The real hash, counted, and held until released when a test needs two opens
// to overlap.
class CountingFingerprinter final : public PublicationFingerprinting {
 public:
  async::Task<std::string> fingerprint(std::filesystem::path file) override {
    ++calls;
    if (holdUntilReleased) co_await *gate;
    if (failure) throw std::runtime_error("read failed");
    co_return co_await service.fingerprint(file);
  }
  void release() { gate->resolve(); }

  int calls = 0;
  bool holdUntilReleased = false;
  bool failure = false;
  std::unique_ptr<async::Completion<void>> gate = std::make_unique<async::Completion<void>>();
  PublicationFingerprintService service;
};

// A registry on real stores in a temporary directory.
struct RegistryFixture {
  TemporaryDirectory directory;
  std::shared_ptr<CountingFingerprinter> fingerprinter = std::make_shared<CountingFingerprinter>();
  std::shared_ptr<PublicationIdentityCache> identityCache =
      std::make_shared<PublicationIdentityCache>(directory / "DocumentAccess/identity-cache.json");
  std::shared_ptr<SourceBookmarkStore> bookmarkStore = std::make_shared<SourceBookmarkStore>(
      directory / "Publications", std::make_shared<SystemSecurityScopedBookmarkCodec>());
  std::shared_ptr<SecurityScopedAccessLedger> ledger =
      std::make_shared<SecurityScopedAccessLedger>();
  std::shared_ptr<DocumentOpenRegistry> registry =
      std::make_shared<DocumentOpenRegistry>(fingerprinter, identityCache, bookmarkStore, ledger);
};

}  // namespace tomekeeper::testing
