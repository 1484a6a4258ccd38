#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <variant>

#include "async/Task.h"
#include "opening/DocumentIdentityPreparing.h"
#include "opening/PublicationCachePreparing.h"

namespace tomekeeper {

// A session for this content exists or is being built; nothing was prepared.
struct ActivateExisting {
  std::string fingerprint;
  bool operator==(const ActivateExisting&) const = default;
};

// The fingerprint is reserved for this open: the caller must build a window
// or release the reservation.
struct CreateWindow {
  std::filesystem::path sourceURL;
  std::string fingerprint;
  PreparedPublicationResources resources;
  bool operator==(const CreateWindow&) const = default;
};

using OpenPublicationDecision = std::variant<ActivateExisting, CreateWindow>;

// Decides what opening a file means: bring an existing window forward, or
// create one with prepared resources. Holds no state of its own; the source
// lease it receives never outlives `prepare`. Main executor only.
class OpenPublication {
 public:
  OpenPublication(std::shared_ptr<DocumentIdentityPreparing> identityPreparer,
                  std::shared_ptr<PublicationCachePreparing> publicationCache);

  // Throws what the identity step or the cache throws, after ending the lease
  // and releasing a reservation that this open made (unless the fingerprint
  // became active meanwhile). `observer` hears of a book that is read and
  // extracted in one pass while that pass runs; a book whose identity is
  // known, or whose cache cannot read while fingerprinting, tells it nothing.
  // Stopping the awaiting task's token cancels the preparation.
  async::Task<OpenPublicationDecision> prepare(std::filesystem::path sourceURL,
                                               std::optional<std::string> expectedFingerprint,
                                               PreparationObserver observer = {});

  // For a createWindow decision that did not become a working window.
  void releaseReservation(const std::string& fingerprint);

 private:
  std::shared_ptr<DocumentIdentityPreparing> identityPreparer_;
  std::shared_ptr<PublicationCachePreparing> publicationCache_;
};

}  // namespace tomekeeper
