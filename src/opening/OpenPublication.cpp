#include "opening/OpenPublication.h"

namespace tomekeeper {
namespace {

// Fingerprints through the cache's single pass and notes the fingerprint whose
// extraction is now staged.
async::Task<std::string> fingerprintWhileExtracting(
    std::shared_ptr<PublicationCachePreparing> cache, std::filesystem::path file,
    PreparationObserver observer, std::shared_ptr<std::optional<std::string>> staged) {
  std::string fingerprint =
      co_await cache->fingerprintWhileExtracting(std::move(file), std::move(observer));
  *staged = fingerprint;
  co_return fingerprint;
}

}  // namespace

OpenPublication::OpenPublication(std::shared_ptr<DocumentIdentityPreparing> identityPreparer,
                                 std::shared_ptr<PublicationCachePreparing> publicationCache)
    : identityPreparer_(std::move(identityPreparer)),
      publicationCache_(std::move(publicationCache)) {}

async::Task<OpenPublicationDecision> OpenPublication::prepare(
    std::filesystem::path sourceURL, std::optional<std::string> expectedFingerprint,
    PreparationObserver observer) {
  // Keep both collaborators alive across the awaits, whatever the owner does.
  const auto identityPreparer = identityPreparer_;
  const auto publicationCache = publicationCache_;

  // A book that must be hashed is read once: the hash comes with its extraction.
  auto staged = std::make_shared<std::optional<std::string>>();
  FingerprintComputing computing;
  if (publicationCache->extractsWhileFingerprinting()) {
    computing = [publicationCache, staged, observer](std::filesystem::path file) {
      return fingerprintWhileExtracting(publicationCache, std::move(file), observer, staged);
    };
  }

  std::optional<PreparedDocumentIdentity> prepared;
  std::exception_ptr identityFailure;
  try {
    prepared = co_await identityPreparer->prepareIdentity(
        std::move(sourceURL), std::move(expectedFingerprint), std::move(computing));
  } catch (...) {
    identityFailure = std::current_exception();
  }
  if (identityFailure) {
    if (*staged) publicationCache->discardStaged(**staged);
    std::rethrow_exception(identityFailure);
  }
  PreparedDocumentIdentity identity = std::move(*prepared);
  if (identity.reusedActiveSession) {
    if (*staged == identity.fingerprint) publicationCache->discardStaged(identity.fingerprint);
    identity.sourceAccess->end();
    co_return ActivateExisting{identity.fingerprint};
  }

  // The lease stays held while the cache reads the source archive.
  std::optional<PreparedPublicationResources> resources;
  std::exception_ptr failure;
  try {
    resources = co_await publicationCache->prepare(identity.sourceURL, identity.fingerprint);
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) {
    identityPreparer->releaseReservation(identity.fingerprint);
    identity.sourceAccess->end();
    std::rethrow_exception(failure);
  }
  identity.sourceAccess->end();
  co_return CreateWindow{identity.sourceURL, identity.fingerprint, std::move(*resources)};
}

void OpenPublication::releaseReservation(const std::string& fingerprint) {
  identityPreparer_->releaseReservation(fingerprint);
}

}  // namespace tomekeeper
