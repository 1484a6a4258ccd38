// The book safety scan over the large benchmark book (2 000 chapters, 400 images), against
// `grep -c` over the same files, in one run:
//   build/release/bench/safety/bench_safety_scan [rounds]
// It asks bench_intake_prepare (beside it) for the book, unpacks it with bsdtar, then times
// scanPublicationSafety, which reads every document and style sheet and parses them with expat,
// and `grep -r -c script` over the same tree, which only reads them.
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "runtime/PublicationSafetyScan.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

double millisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

bool run(const std::string& command) {
  const int status = std::system(command.c_str());
  return status != -1 && WIFEXITED(status) && WEXITSTATUS(status) <= 1;
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;
  std::string pattern = (fs::temp_directory_path() / "tomekeeper-scan-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) return 1;
  const fs::path work = pattern;
  const fs::path generator =
      fs::canonical("/proc/self/exe").parent_path().parent_path() / "intake" / "bench_intake_prepare";
  const fs::path book = work / "large.epub";
  const fs::path tree = work / "tree";
  fs::create_directories(tree);
  if (!run("'" + generator.string() + "' --generate '" + book.string() + "'") ||
      !run("bsdtar -x -f '" + book.string() + "' -C '" + tree.string() + "'")) {
    std::fprintf(stderr, "cannot make the benchmark book with %s and bsdtar\n", generator.c_str());
    return 1;
  }
  std::vector<double> scanTimes, grepTimes;
  tomekeeper::PublicationSafetyReport report;
  for (int round = 0; round < rounds; ++round) {
    const auto scanStart = Clock::now();
    report = tomekeeper::scanPublicationSafety(tree);
    scanTimes.push_back(millisecondsSince(scanStart));
    const auto grepStart = Clock::now();
    run("grep -r -c script '" + tree.string() + "' > /dev/null");
    grepTimes.push_back(millisecondsSince(grepStart));
  }
  std::printf("safety scan of %s (median of %d): %.1f ms; scripts %zu, web references %zu\n",
              book.filename().c_str(), rounds, median(scanTimes), report.scriptElements,
              report.webReferences);
  std::printf("grep -r -c over the same tree (median of %d): %.1f ms\n", rounds,
              median(grepTimes));
  std::printf("ratio safety scan / grep -r -c: %.2f\n", median(scanTimes) / median(grepTimes));
  fs::remove_all(work);
  return 0;
}
