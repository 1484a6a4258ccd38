#include "intake/ExtractionStaging.h"

#include <fcntl.h>

#include <set>

#include "async/OperationCancelled.h"
#include "async/Task.h"
#include "intake/FileOperations.h"
#include "intake/IntakeFailures.h"
#include "model/Uuid.h"
#include "platform/FileDescriptor.h"
#include "platform/FileSystem.h"

namespace tomekeeper {
namespace {

namespace fs = std::filesystem;
using ExtractionFailure = EPUBArchiveExtractionFailure;

[[noreturn]] void fail(ExtractionFailure failure) {
  throw EPUBArchiveExtractionFailureError(failure);
}

// Everything written under `staging` goes to stable storage.
void synchronizeFileSystemOf(const fs::path& staging) {
  FileSystem& fileSystem = FileSystem::current();
  FileDescriptor directory(fileSystem,
                           fileSystem.open(staging, O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0));
  if (!directory.isOpen() || fileSystem.synchronizeFileSystem(directory.get()) != 0) {
    fail(ExtractionFailure::cannotCreateOutput);
  }
}

}  // namespace

ExtractionStaging::ExtractionStaging(const fs::path& destination)
    : target_(standardised(destination)) {
  std::error_code error;
  if (fs::exists(fs::symlink_status(target_, error))) fail(ExtractionFailure::destinationExists);

  const fs::path parent = target_.parent_path();
  fs::create_directories(parent);

  staging_ = parent / (".extract-" + Uuid::random().string() + ".partial");
  if (FileSystem::current().makeDirectory(staging_, 0777) != 0) {
    staging_.clear();
    fail(ExtractionFailure::cannotCreateOutput);
  }
  stagingPrefix_ = staging_.native() + "/";
}

ExtractionStaging::~ExtractionStaging() {
  if (staging_.empty()) return;
  std::error_code ignored;
  fs::remove_all(staging_, ignored);
}

std::vector<fs::path> ExtractionStaging::prepareEntries(
    const EPUBArchiveInspection& inspection) const {
  std::vector<fs::path> outputs;
  outputs.reserve(inspection.entries.size());
  // Parents first, each once: the writers then only create files.
  std::set<fs::path> directories;
  for (const EPUBArchiveEntry& entry : inspection.entries) {
    // A second check, independent of the inspector's, on the real path.
    const fs::path outputPath = (staging_ / entry.path).lexically_normal();
    if (!outputPath.native().starts_with(stagingPrefix_)) {
      fail(ExtractionFailure::invalidEntryMetadata);
    }
    if (entry.isDirectory) {
      directories.insert(outputPath);
      outputs.emplace_back();
      continue;
    }
    if (entry.compressionMethod != 0 && entry.compressionMethod != 8) {
      fail(ExtractionFailure::invalidEntryMetadata);
    }
    if (outputPath.parent_path() != staging_) directories.insert(outputPath.parent_path());
    outputs.push_back(outputPath);
  }
  for (const fs::path& directory : directories) {
    std::error_code error;
    fs::create_directories(directory, error);
    if (error) fail(ExtractionFailure::cannotCreateOutput);
  }
  return outputs;
}

void ExtractionStaging::commit(EPUBArchiveExtractor::Durability durability,
                               const std::stop_token& stopToken) {
  if (durability == EPUBArchiveExtractor::Durability::synchronizeOnceBeforeCommit) {
    synchronizeFileSystemOf(staging_);
  }
  async::throwIfCancelled(stopToken);
  std::error_code error;
  moveWithoutReplacing(staging_, target_, error);
  if (error) fail(ExtractionFailure::commitFailed);
  staging_.clear();
}

}  // namespace tomekeeper
