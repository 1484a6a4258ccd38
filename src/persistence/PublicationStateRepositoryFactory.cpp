#include "persistence/PublicationStateRepositoryFactory.h"

#include "opening/Fingerprint.h"
#include "persistence/JSONStoreFile.h"
#include "persistence/PersistenceFailures.h"

namespace tomekeeper {

PublicationStateRepositories PublicationStateRepositoryFactory::makeRepositories(
    std::string_view fingerprint) const {
  if (!isValidFingerprint(fingerprint)) {
    throwFailure(PublicationStateRepositoryFailure::invalidFingerprint);
  }
  const std::filesystem::path directory = publicationsRoot / fingerprint;
  auto fileURL = [&](std::string_view name) {
    return detail::standardisedFileURL(directory / name);
  };
  return PublicationStateRepositories{
      std::make_shared<JSONReadingPositionRepository>(fileURL(kReadingPositionFileName)),
      std::make_shared<JSONBookmarkRepository>(fileURL(kBookmarksFileName)),
      std::make_shared<JSONAnnotationRepository>(fileURL(kAnnotationsFileName)),
  };
}

}  // namespace tomekeeper
