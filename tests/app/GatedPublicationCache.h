#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <utility>

#include "async/Completion.h"
#include "intake/PublicationExtractionCache.h"
#include "opening/PublicationCachePreparing.h"

namespace tomekeeper::testing {

// The real cache, whose prepare waits at `gate` until the test releases it. With
// SinglePass::offered it also offers the fingerprint while extracting, so that an open reads the
// book (and shows the window made from its package document) before it reaches the gate.
class GatedPublicationCache final : public PublicationCachePreparing {
 public:
  enum class SinglePass { withheld, offered };

  explicit GatedPublicationCache(std::filesystem::path cachesRoot,
                                 SinglePass singlePass = SinglePass::withheld)
      : cache_(std::move(cachesRoot)), singlePass_(singlePass) {}

  async::Task<PreparedPublicationResources> prepare(std::filesystem::path sourceURL,
                                                    std::string fingerprint) const override {
    // The gate of the moment the open asked: a later gate holds only later opens.
    const auto heldBy = gate;
    co_await *heldBy;
    co_return co_await cache_.prepare(std::move(sourceURL), std::move(fingerprint));
  }
  bool extractsWhileFingerprinting() const override { return singlePass_ == SinglePass::offered; }
  async::Task<std::string> fingerprintWhileExtracting(std::filesystem::path sourceURL,
                                                      PreparationObserver observer) const override {
    return cache_.fingerprintWhileExtracting(std::move(sourceURL), std::move(observer));
  }
  void discardStaged(const std::string& fingerprint) const override {
    if (singlePass_ == SinglePass::offered) cache_.discardStaged(fingerprint);
  }

  std::shared_ptr<async::Completion<void>> gate = std::make_shared<async::Completion<void>>();

 private:
  PublicationExtractionCache cache_;
  SinglePass singlePass_;
};

}  // namespace tomekeeper::testing
