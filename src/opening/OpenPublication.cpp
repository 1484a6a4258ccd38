#include "opening/OpenPublication.h"

namespace tomekeeper {

OpenPublication::OpenPublication(std::shared_ptr<DocumentIdentityPreparing> identityPreparer,
                                 std::shared_ptr<PublicationCachePreparing> publicationCache)
    : identityPreparer_(std::move(identityPreparer)),
      publicationCache_(std::move(publicationCache)) {}

async::Task<OpenPublicationDecision> OpenPublication::prepare(
    std::filesystem::path sourceURL, std::optional<std::string> expectedFingerprint) {
  // Keep both collaborators alive across the awaits, whatever the owner does.
  const auto identityPreparer = identityPreparer_;
  const auto publicationCache = publicationCache_;

  PreparedDocumentIdentity identity = co_await identityPreparer->prepareIdentity(
      std::move(sourceURL), std::move(expectedFingerprint));
  if (identity.reusedActiveSession) {
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
