#pragma once

#include <filesystem>
#include <string>

#include "async/SerialExecutor.h"
#include "async/Task.h"

namespace tomekeeper {

// Computes a book's fingerprint from its file's bytes.
class PublicationFingerprinting {
 public:
  virtual ~PublicationFingerprinting() = default;
  // The fingerprint of the file at `file`. Throws std::system_error when the
  // file cannot be opened or read, and OperationCancelled when the awaiting
  // task is asked to stop.
  virtual async::Task<std::string> fingerprint(std::filesystem::path file) = 0;
};

// SHA-256 over the whole file in 256 KiB reads, one file at a time on its own
// executor, checking for cancellation between reads. Memory use does not grow
// with the file.
class PublicationFingerprintService final : public PublicationFingerprinting {
 public:
  static constexpr std::size_t kReadSize = 262144;

  async::Task<std::string> fingerprint(std::filesystem::path file) override;

  // The hashing itself, blocking; for callers already off the main executor.
  static std::string fingerprintFile(const std::filesystem::path& file,
                                     const std::stop_token& stopToken);

 private:
  async::SerialExecutor executor_;
};

}  // namespace tomekeeper
