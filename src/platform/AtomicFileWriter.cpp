#include "platform/AtomicFileWriter.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>

#include "platform/FileDescriptor.h"
#include "platform/FileSystem.h"

namespace tomekeeper {

namespace {

[[noreturn]] void throwErrno(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

void writeAll(FileSystem& fileSystem, int descriptor, std::string_view contents) {
  while (!contents.empty()) {
    const ssize_t written = fileSystem.write(descriptor, contents.data(), contents.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      throwErrno("write");
    }
    contents.remove_prefix(static_cast<size_t>(written));
  }
}

}  // namespace

void writeFileAtomically(const std::filesystem::path& path, std::string_view contents) {
  FileSystem& fileSystem = FileSystem::current();
  const std::filesystem::path directory = path.parent_path();
  std::string temporary = (directory / ("." + path.filename().string() + ".tmp-XXXXXX")).string();
  FileDescriptor file(fileSystem, fileSystem.makeTemporaryFile(temporary));
  if (!file.isOpen()) throwErrno("mkostemp");
  try {
    // mkostemp makes the file 0600; a store is an ordinary user file.
    if (fileSystem.changeMode(file.get(), 0644) != 0) throwErrno("fchmod");
    writeAll(fileSystem, file.get(), contents);
    if (fileSystem.synchronize(file.get()) != 0) throwErrno("fsync");
    file.close();
    if (fileSystem.rename(temporary, path) != 0) throwErrno("rename");
  } catch (...) {
    fileSystem.unlink(temporary);
    throw;
  }
  // The rename is durable only once the directory entry is on disk.
  FileDescriptor directoryHandle(
      fileSystem,
      fileSystem.open(directory.empty() ? "." : directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0));
  if (!directoryHandle.isOpen()) throwErrno("open directory");
  if (fileSystem.synchronize(directoryHandle.get()) != 0) throwErrno("fsync directory");
}

std::optional<std::string> readWholeFile(const std::filesystem::path& path) {
  FileSystem& fileSystem = FileSystem::current();
  // O_NONBLOCK: a FIFO put at the path must fail below, not hang the caller's executor. It
  // changes nothing for the regular file read here.
  FileDescriptor file(fileSystem, fileSystem.open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK, 0));
  if (!file.isOpen()) {
    // ENOTDIR: a component of the path is a file, so no file can exist at the path either.
    if (errno == ENOENT || errno == ENOTDIR) return std::nullopt;
    throwErrno("open");
  }
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) throwErrno("fstat");
  if (!S_ISREG(status.st_mode)) throw std::system_error(EISDIR, std::generic_category(), "read");
  std::string contents;
  char buffer[65536];
  for (;;) {
    const ssize_t count = fileSystem.read(file.get(), buffer, sizeof buffer);
    if (count < 0) {
      if (errno == EINTR) continue;
      throwErrno("read");
    }
    if (count == 0) break;
    contents.append(buffer, static_cast<size_t>(count));
  }
  return contents;
}

}  // namespace tomekeeper
