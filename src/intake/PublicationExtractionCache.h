#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "async/Task.h"
#include "intake/EPUBArchiveExtractor.h"
#include "intake/EPUBArchiveInspector.h"
#include "intake/EPUBContainerValidator.h"
#include "opening/PublicationCachePreparing.h"

namespace tomekeeper {

// Turns a source file and its fingerprint into an extracted, validated
// directory `<cachesRoot>/<fingerprint>/Extracted/` and a descriptor with
// private URLs. A book is extracted once per fingerprint and validated again
// on every later open. All work happens in a locked operation directory that
// becomes the final directory by one move, so a crash or a second open of the
// same book never leaves a half-written final directory. A value without
// mutable state: any number of `prepare` calls may run at once, in this
// process or others. Its stages run on the background pool and mark the
// OpenPerformanceTrace bound to the calling task, when there is one.
//
// A book not yet fingerprinted is read once: fingerprintWhileExtracting hashes
// it in the same pass that inspects and extracts it into a locked operation
// directory, and the prepare of that fingerprint that follows validates and
// commits that directory. Copies share what is staged so.
class PublicationExtractionCache final : public PublicationCachePreparing {
 public:
  // With the standard inspector, extractor and validator.
  explicit PublicationExtractionCache(std::filesystem::path cachesRoot);
  PublicationExtractionCache(std::filesystem::path cachesRoot, EPUBArchiveInspector inspector,
                             EPUBArchiveExtractor extractor,
                             EPUBContainerValidator containerValidator);

  // $XDG_CACHE_HOME/tomekeeper/Publications.
  static std::filesystem::path standardCachesRoot();

  const std::filesystem::path& cachesRoot() const { return cachesRoot_; }
  const EPUBArchiveInspector& inspector() const { return inspector_; }
  const EPUBArchiveExtractor& extractor() const { return extractor_; }
  const EPUBContainerValidator& containerValidator() const { return containerValidator_; }

  // Call on the main executor. The task works on a copy of this cache, so it
  // may outlive it. Whatever way it ends, no operation directory of its own
  // remains.
  async::Task<PreparedPublicationResources> prepare(std::filesystem::path sourceURL,
                                                    std::string fingerprint) const override;

  bool extractsWhileFingerprinting() const override { return true; }
  // Call on the main executor. Throws what EPUBArchiveSinglePass::extract
  // throws and the platform's file errors; nothing is staged then.
  async::Task<std::string> fingerprintWhileExtracting(
      std::filesystem::path sourceURL, PreparationObserver observer = {}) const override;
  void discardStaged(const std::string& fingerprint) const override;

  // Bytes the cache occupies on disk (allocated sizes of regular files, hidden
  // names skipped); 0 when there is no cache. Throws std::filesystem errors.
  async::Task<std::int64_t> measureSize() const;

  // Removes the caches root with everything in it. The caller makes sure that
  // no book is open and no prepare runs. Throws std::filesystem errors.
  async::Task<void> clear() const;

  // Removes every `.operation-<UUID>.partial` directory whose lock file exists
  // and is not locked by anyone. Blocking; throws a failed listing.
  void sweepStaleOperations() const;

  // The resources for a validated publication at `extractedRoot`, with a new
  // publication identifier and URLs on the private scheme.
  static PreparedPublicationResources buildResources(const std::string& fingerprint,
                                                     const std::filesystem::path& extractedRoot,
                                                     const ValidatedEPUBContainer& container);

 private:
  std::filesystem::path cachesRoot_;
  EPUBArchiveInspector inspector_;
  EPUBArchiveExtractor extractor_;
  EPUBContainerValidator containerValidator_;

 public:
  // An extraction waiting for its prepare; its lease keeps its directory.
  struct StagedExtraction;
  // Takes what is staged for `fingerprint`, if anything.
  std::shared_ptr<StagedExtraction> takeStaged(const std::string& fingerprint) const;
  // Keeps `staged` for the prepare of `fingerprint`, replacing what was there.
  void stage(const std::string& fingerprint, std::shared_ptr<StagedExtraction> staged) const;

 private:
  class StagedExtractions;
  std::shared_ptr<StagedExtractions> staged_;
};

}  // namespace tomekeeper
