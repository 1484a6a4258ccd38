#include "opening/AtomicFileWriter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace tomekeeper {

namespace {

[[noreturn]] void throwErrno(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

// Closes a descriptor on every way out.
class Descriptor {
 public:
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
  ~Descriptor() {
    if (descriptor_ >= 0) ::close(descriptor_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return descriptor_; }
  // Closes now, reporting the failure that a deferred close would lose.
  void close() {
    const int descriptor = descriptor_;
    descriptor_ = -1;
    if (::close(descriptor) != 0) throwErrno("close");
  }

 private:
  int descriptor_;
};

void writeAll(int descriptor, std::string_view contents) {
  while (!contents.empty()) {
    const ssize_t written = ::write(descriptor, contents.data(), contents.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      throwErrno("write");
    }
    contents.remove_prefix(static_cast<size_t>(written));
  }
}

}  // namespace

void writeFileAtomically(const std::filesystem::path& path, std::string_view contents) {
  const std::filesystem::path directory = path.parent_path();
  std::string temporary = (directory / ("." + path.filename().string() + ".tmp-XXXXXX")).string();
  Descriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
  if (file.get() < 0) throwErrno("mkostemp");
  try {
    // mkostemp makes the file 0600; a store is an ordinary user file.
    if (::fchmod(file.get(), 0644) != 0) throwErrno("fchmod");
    writeAll(file.get(), contents);
    if (::fsync(file.get()) != 0) throwErrno("fsync");
    file.close();
    if (::rename(temporary.c_str(), path.c_str()) != 0) throwErrno("rename");
  } catch (...) {
    ::unlink(temporary.c_str());
    throw;
  }
  // The rename is durable only once the directory entry is on disk.
  Descriptor directoryHandle(
      ::open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (directoryHandle.get() < 0) throwErrno("open directory");
  if (::fsync(directoryHandle.get()) != 0) throwErrno("fsync directory");
}

std::optional<std::string> readWholeFile(const std::filesystem::path& path) {
  // O_NONBLOCK: a FIFO put at the path must fail below, not hang the caller's executor. It
  // changes nothing for the regular file read here.
  Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (file.get() < 0) {
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
    const ssize_t count = ::read(file.get(), buffer, sizeof buffer);
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
