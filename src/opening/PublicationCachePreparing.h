#pragma once

#include <filesystem>
#include <string>

#include "async/Task.h"
#include "opening/PreparedPublicationResources.h"

namespace tomekeeper {

// The cache step of the open road: makes an extracted, validated copy of the
// book with this fingerprint ready. Called on the main executor; the work
// itself runs off it. Throws what inspection, extraction and container
// validation throw, the platform's file errors, and async::OperationCancelled.
class PublicationCachePreparing {
 public:
  virtual ~PublicationCachePreparing() = default;
  virtual async::Task<PreparedPublicationResources> prepare(std::filesystem::path sourceURL,
                                                            std::string fingerprint) const = 0;
};

}  // namespace tomekeeper
