// Fingerprint throughput next to `openssl dgst -sha256` on the same file, in
// one run. Usage: bench_fingerprint [FILE] [SIZE_MIB]. Without FILE, a file of
// SIZE_MIB (default 512) pseudo-random bytes is made in the temporary
// directory and removed afterwards. Each side runs three times after one
// warm-up read, and the best time counts, so both read from the page cache.

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <stop_token>
#include <string>
#include <vector>

#include "opening/PublicationFingerprintService.h"

namespace {

using Clock = std::chrono::steady_clock;

double seconds(Clock::duration duration) {
  return std::chrono::duration<double>(duration).count();
}

std::filesystem::path makeFile(std::size_t mebibytes) {
  const std::filesystem::path file =
      std::filesystem::temp_directory_path() / ("tomekeeper-bench-" + std::to_string(::getpid()));
  std::ofstream out(file, std::ios::binary);
  std::mt19937_64 random(42);
  std::vector<std::uint64_t> block(1 << 17);
  for (std::size_t written = 0; written < mebibytes; ++written) {
    for (auto& word : block) word = random();
    out.write(reinterpret_cast<const char*>(block.data()), 1 << 20);
  }
  return file;
}

template <typename Function>
double best(Function function) {
  double fastest = 1e300;
  for (int round = 0; round < 3; ++round) {
    const auto start = Clock::now();
    function();
    fastest = std::min(fastest, seconds(Clock::now() - start));
  }
  return fastest;
}

}  // namespace

int main(int argc, char** argv) {
  const bool madeFile = argc < 2;
  const std::size_t mebibytes = argc > 2 ? std::strtoul(argv[2], nullptr, 10) : 512;
  const std::filesystem::path file =
      madeFile ? makeFile(mebibytes) : std::filesystem::path(argv[1]);
  const double size = static_cast<double>(std::filesystem::file_size(file));
  const std::string command = "openssl dgst -sha256 '" + file.string() + "' > /dev/null";

  std::string fingerprint;
  fingerprint = tomekeeper::PublicationFingerprintService::fingerprintFile(file, {});  // Warm-up.
  const double ours = best(
      [&] { fingerprint = tomekeeper::PublicationFingerprintService::fingerprintFile(file, {}); });
  const double reference = best([&] {
    if (std::system(command.c_str()) != 0) std::exit(1);
  });

  std::printf("file: %.0f MiB\n", size / (1 << 20));
  std::printf("fingerprint:          %.3f s  %.0f MiB/s\n", ours, size / (1 << 20) / ours);
  std::printf("openssl dgst -sha256: %.3f s  %.0f MiB/s\n", reference,
              size / (1 << 20) / reference);
  std::printf("throughput ratio (fingerprint / openssl): %.2f\n", reference / ours);
  if (madeFile) std::filesystem::remove(file);
  return 0;
}
