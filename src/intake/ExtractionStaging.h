#pragma once

#include <filesystem>
#include <stop_token>
#include <string>
#include <vector>

#include "intake/EPUBArchiveExtractor.h"
#include "intake/EPUBArchiveInspection.h"

namespace tomekeeper {

// The staging directory of one extraction, beside its destination: made by the
// constructor, turned into the destination by `commit`, and removed by the
// destructor on every other way out. Used by one thread.
class ExtractionStaging {
 public:
  // Throws EPUBArchiveExtractionFailureError (destinationExists,
  // cannotCreateOutput) or the platform's error when the parent cannot be made.
  explicit ExtractionStaging(const std::filesystem::path& destination);
  ~ExtractionStaging();
  ExtractionStaging(const ExtractionStaging&) = delete;
  ExtractionStaging& operator=(const ExtractionStaging&) = delete;

  // Checks every entry's output path and method, makes every directory the
  // entries need, and gives each entry's output path (empty for directories).
  // Throws EPUBArchiveExtractionFailureError (invalidEntryMetadata,
  // cannotCreateOutput).
  std::vector<std::filesystem::path> prepareEntries(const EPUBArchiveInspection& inspection) const;

  // Makes what was written durable as `durability` says (one syncfs when it is
  // synchronizeOnceBeforeCommit), checks `stopToken` a last time, and moves the
  // staging directory to the destination without replacing anything.
  void commit(EPUBArchiveExtractor::Durability durability, const std::stop_token& stopToken);

 private:
  std::filesystem::path target_;
  std::filesystem::path staging_;
  std::string stagingPrefix_;
};

}  // namespace tomekeeper
