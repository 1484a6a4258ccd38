#include "opening/PublicationFingerprintService.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "opening/Fingerprint.h"

namespace tomekeeper {

namespace {

struct DigestContextDeleter {
  void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

struct FileCloser {
  int descriptor;
  ~FileCloser() { ::close(descriptor); }
};

}  // namespace

std::string PublicationFingerprintService::fingerprintFile(const std::filesystem::path& file,
                                                           const std::stop_token& stopToken) {
  const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), "open");
  FileCloser closer{descriptor};
  ::posix_fadvise(descriptor, 0, 0, POSIX_FADV_SEQUENTIAL);

  std::unique_ptr<EVP_MD_CTX, DigestContextDeleter> context(EVP_MD_CTX_new());
  if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1) {
    throw std::runtime_error("SHA-256 is unavailable");
  }
  std::vector<unsigned char> buffer(kReadSize);
  for (;;) {
    const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
    if (count < 0) {
      if (errno == EINTR) continue;
      throw std::system_error(errno, std::generic_category(), "read");
    }
    if (count == 0) break;
    async::throwIfCancelled(stopToken);
    EVP_DigestUpdate(context.get(), buffer.data(), static_cast<size_t>(count));
  }
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  EVP_DigestFinal_ex(context.get(), digest, &length);

  return fingerprintText(std::span(digest, length));
}

async::Task<std::string> PublicationFingerprintService::fingerprint(std::filesystem::path file) {
  co_return co_await executor_.run(
      [file](std::stop_token stopToken) { return fingerprintFile(file, stopToken); });
}

}  // namespace tomekeeper
