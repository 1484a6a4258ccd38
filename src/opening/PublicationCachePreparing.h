#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

#include "async/Task.h"
#include "opening/PreparationObserver.h"
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

  // Whether this cache can fingerprint a book in the same read of its file
  // that inspects and extracts it.
  virtual bool extractsWhileFingerprinting() const { return false; }

  // The fingerprint of `sourceURL`, from one read of the file that also
  // inspects and extracts it; the next `prepare` of that fingerprint takes the
  // extraction instead of reading the file again. `observer` hears of the
  // package document and of the progress of the read. Throws what inspection
  // and extraction throw, the platform's file errors, async::OperationCancelled,
  // and std::logic_error where extractsWhileFingerprinting() is false.
  virtual async::Task<std::string> fingerprintWhileExtracting(
      std::filesystem::path /*sourceURL*/, PreparationObserver /*observer*/ = {}) const {
    throw std::logic_error("this cache does not extract while fingerprinting");
    co_return std::string();
  }

  // Drops an extraction that fingerprintWhileExtracting left for a prepare
  // that will not come (the book's window already exists, or the open failed).
  virtual void discardStaged(const std::string& /*fingerprint*/) const {}
};

}  // namespace tomekeeper
