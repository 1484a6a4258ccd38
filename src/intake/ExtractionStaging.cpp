#include "intake/ExtractionStaging.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

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

// Asks the file system to place each directory made inside `directory` as the
// top of a tree of its own: ext4 then puts a book's folders, and the files in
// them, in a lightly used block group rather than in the group of the caches.
// There, many inodes freed in the last minutes (an evicted book, the last
// extraction's staging) make ext4 without a journal read the deletion time of
// each of them before it reuses one, on every file it creates; a book of
// thousands of files paid for that scan thousands of times. Only a hint: a file
// system without the flag refuses it, and nothing depends on it.
void placeChildrenAsTreeTops(const fs::path& directory) {
  const int descriptor = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW);
  if (descriptor < 0) return;
  int flags = 0;
  if (::ioctl(descriptor, FS_IOC_GETFLAGS, &flags) == 0 && (flags & FS_TOPDIR_FL) == 0) {
    flags |= FS_TOPDIR_FL;
    ::ioctl(descriptor, FS_IOC_SETFLAGS, &flags);
  }
  ::close(descriptor);
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
  placeChildrenAsTreeTops(staging_);
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
