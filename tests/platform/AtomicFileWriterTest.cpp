#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "platform/AtomicFileWriter.h"
#include "support/FaultInjectingFileSystem.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper {
namespace {

using testing::FaultInjectingFileSystem;
using testing::FileFault;
using testing::FileOperation;
using testing::TemporaryDirectory;
using testing::writeFile;

int entriesIn(const std::filesystem::path& directory) {
  int entries = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(directory)) {
    ++entries;
  }
  return entries;
}

class AtomicFileWriterTest : public ::testing::Test {
 protected:
  std::filesystem::path file() const { return directory / "store.json"; }

  TemporaryDirectory directory;
};

TEST_F(AtomicFileWriterTest, ReplacesTheWholeFileAndLeavesNoTemporaryName) {
  writeFile(file(), "old contents that are longer");
  writeFileAtomically(file(), "new");
  EXPECT_EQ(readWholeFile(file()), "new");
  EXPECT_EQ(entriesIn(directory.path()), 1);
  EXPECT_EQ(readWholeFile(directory / "nothing-here.json"), std::nullopt);
}

// Whichever step fails, and with whatever error the disk gives, the old file stays whole, the
// temporary file is gone, and the caller learns the error.
TEST_F(AtomicFileWriterTest, AFailureAtAnyStepLeavesTheOldFileWhole) {
  const struct {
    const char* name;
    FileFault fault;
  } cases[] = {
      {"no room for the temporary file", {FileOperation::makeTemporaryFile, ENOSPC, ".tmp-"}},
      {"permission refused", {FileOperation::makeTemporaryFile, EACCES, ".tmp-"}},
      {"disk full on the first write", {FileOperation::write, ENOSPC, ".tmp-"}},
      {"input/output error on write", {FileOperation::write, EIO, ".tmp-"}},
      {"fsync fails before the move", {FileOperation::synchronize, EIO, ".tmp-"}},
      {"close reports the lost write", {FileOperation::close, ENOSPC, ".tmp-"}},
      {"rename refused", {FileOperation::rename, EACCES, "store.json"}},
      {"rename fails", {FileOperation::rename, EIO, "store.json"}},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    writeFile(file(), "old");
    FaultInjectingFileSystem fileSystem({testCase.fault});
    try {
      writeFileAtomically(file(), "new");
      ADD_FAILURE() << "the write succeeded";
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.code().value(), testCase.fault.error);
    }
    EXPECT_GE(fileSystem.injectedFailures(), 1);
    EXPECT_EQ(readWholeFile(file()), "old");
    EXPECT_EQ(entriesIn(directory.path()), 1);
  }
}

TEST_F(AtomicFileWriterTest, AFailedSyncOfTheDirectoryIsReportedAfterTheMove) {
  writeFile(file(), "old");
  // The first fsync is the temporary file's; the second, the directory's.
  FaultInjectingFileSystem fileSystem({{FileOperation::synchronize, EIO, "", 1}});
  EXPECT_THROW(writeFileAtomically(file(), "new"), std::system_error);
  // The move was made; only its durability is in doubt, and the caller is told.
  EXPECT_EQ(readWholeFile(file()), "new");
}

TEST_F(AtomicFileWriterTest, ReadingReportsEveryErrorButAMissingFile) {
  writeFile(file(), "contents");
  {
    FaultInjectingFileSystem fileSystem({{FileOperation::open, EACCES, "store.json"}});
    EXPECT_THROW(readWholeFile(file()), std::system_error);
  }
  {
    FaultInjectingFileSystem fileSystem({{FileOperation::read, EIO, "store.json"}});
    EXPECT_THROW(readWholeFile(file()), std::system_error);
  }
  std::filesystem::create_directories(directory / "folder");
  EXPECT_THROW(readWholeFile(directory / "folder"), std::system_error);
  EXPECT_EQ(readWholeFile(file() / "below-a-file"), std::nullopt);
  EXPECT_EQ(readWholeFile(file()), "contents");
}

}  // namespace
}  // namespace tomekeeper
