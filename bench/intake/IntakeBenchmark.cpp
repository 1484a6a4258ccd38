// Generates a book of about 100 MB (2 000 chapters, 400 incompressible
// images), then measures in one run, side by side: the cold prepare of a book
// never seen (its fingerprint and its extraction, as an open does them) and
// `bsdtar -x` of the same file, their ratio, and the peak resident size of the
// process that prepared. Each tool runs in a child process of its own so that
// its peak RSS is its own; the medians of alternating rounds (5 unless told)
// are reported.
//
// The cold prepare runs three ways per round: in one pass over the file (the
// fingerprint computed while the archive is inspected and extracted, one
// syncfs before the commit move), the same with an fsync of every file, and
// in two reads as a plain hash followed by a prepare. bsdtar runs twice: as it
// is, and followed by `sync -f` of what it wrote, which gives its files the
// durability that prepare guarantees before its commit. A third bsdtar run
// writes into a directory whose folders ext4 places as the prepare's staging
// directory has its folders placed (each the top of a tree, FS_TOPDIR_FL), so
// that the comparison shows what that placement alone is worth.
//
// Files created by ext4 without a journal in a block group where many inodes
// were freed in the last minute (six while the group's inode table is being
// written to) each cost a scan of those inodes' deletion times: a run started
// soon after an earlier one, or after the intake tests, is charged for their
// deletions, which can multiply a tool's time several times over. Start it six
// minutes after anything deleted many files on the same file system.
//
//   bench_intake_prepare [ROUNDS]                 the whole comparison
//   bench_intake_prepare --generate BOOK          writes the book (used by the above)
//   bench_intake_prepare --prepare BOOK DIR MODE  one cold prepare; MODE is once, each or
//                                                 two-reads

#include <fcntl.h>
#include <linux/fs.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <random>
#include <string>
#include <vector>

#include "../support/BenchmarkBook.h"
#include "async/RunUntilDone.h"
#include "intake/PublicationExtractionCache.h"
#include "opening/PublicationFingerprintService.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

int prepareOnce(const fs::path& bookPath, const fs::path& cachesRoot, const std::string& mode) {
  using tomekeeper::EPUBArchiveExtractor;
  const auto start = Clock::now();
  const EPUBArchiveExtractor extractor(
      EPUBArchiveExtractor::kStandardBufferSize, tomekeeper::ArchiveFileOpening::fileSystem(),
      mode == "each" ? EPUBArchiveExtractor::Durability::synchronizeEachFile
                     : EPUBArchiveExtractor::Durability::synchronizeOnceBeforeCommit);
  const tomekeeper::PublicationExtractionCache cache(cachesRoot, tomekeeper::EPUBArchiveInspector(),
                                                     extractor,
                                                     tomekeeper::EPUBContainerValidator());
  const std::string fingerprint =
      mode == "two-reads"
          ? tomekeeper::PublicationFingerprintService::fingerprintFile(bookPath, {})
          : tomekeeper::async::runUntilDone(cache.fingerprintWhileExtracting(bookPath));
  tomekeeper::async::runUntilDone(cache.prepare(bookPath, fingerprint));
  const double milliseconds =
      std::chrono::duration<double, std::milli>(Clock::now() - start).count();
  std::cout << milliseconds << std::endl;
  return 0;
}

struct ChildRun {
  double milliseconds = 0;
  // Processor time of the child, user and system, all its threads.
  double processorMilliseconds = 0;
  long peakKilobytes = 0;
  std::string output;
};

// Runs `arguments` as a child, timing it from spawn to exit and reading its
// peak RSS from wait4.
ChildRun runChild(const std::vector<std::string>& arguments) {
  int pipeEnds[2];
  if (::pipe(pipeEnds) != 0) throw std::runtime_error("pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], STDOUT_FILENO);
  posix_spawn_file_actions_addclose(&actions, pipeEnds[0]);
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  pid_t child = 0;
  const auto start = Clock::now();
  if (posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), environ) != 0) {
    throw std::runtime_error("cannot start " + arguments[0]);
  }
  posix_spawn_file_actions_destroy(&actions);
  ::close(pipeEnds[1]);
  ChildRun run;
  char buffer[256];
  for (ssize_t count; (count = ::read(pipeEnds[0], buffer, sizeof buffer)) > 0;) {
    run.output.append(buffer, static_cast<std::size_t>(count));
  }
  ::close(pipeEnds[0]);
  int status = 0;
  rusage usage{};
  ::wait4(child, &status, 0, &usage);
  run.milliseconds = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
  run.peakKilobytes = usage.ru_maxrss;
  const auto milliseconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) * 1000.0 + static_cast<double>(time.tv_usec) / 1000.0;
  };
  run.processorMilliseconds = milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    throw std::runtime_error(arguments[0] + " failed");
  }
  return run;
}

// Marks `directory` as the extraction's staging directory is marked; false
// where the file system refuses.
bool placeChildrenAsTreeTops(const fs::path& directory) {
  const int descriptor = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return false;
  int flags = 0;
  bool placed = ::ioctl(descriptor, FS_IOC_GETFLAGS, &flags) == 0;
  flags |= FS_TOPDIR_FL;
  placed = placed && ::ioctl(descriptor, FS_IOC_SETFLAGS, &flags) == 0;
  ::close(descriptor);
  return placed;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 5 && std::string(argv[1]) == "--prepare") {
    return prepareOnce(argv[2], argv[3], argv[4]);
  }
  if (argc == 3 && std::string(argv[1]) == "--generate") {
    tomekeeper::bench::writeBenchmarkBook(argv[2]);
    return 0;
  }
  const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;

  std::string pattern = (fs::temp_directory_path() / "tomekeeper-bench-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) return 1;
  const fs::path work = pattern;
  const fs::path book = work / "large.epub";
  const std::string self = fs::canonical("/proc/self/exe").string();
  // In a child, so that this process stays small: a spawned child starts with
  // its parent's resident size as its peak.
  runChild({self, "--generate", book.string()});
  std::cout << "book: " << fs::file_size(book) / (1024.0 * 1024.0) << " MiB, "
            << tomekeeper::bench::kChapters << " chapters, " << tomekeeper::bench::kImages
            << " images\n";

  std::vector<double> prepareTimes, prepareInner, eachFileInner, twoReadsInner, tarTimes,
      durableTarTimes, placedTarTimes, prepareProcessor, tarProcessor;
  bool placementRefused = false;
  long preparePeak = 0, tarPeak = 0;
  // Every run writes into a directory of its own and nothing is deleted
  // until the end: ext4 scans for recently deleted inodes when it creates
  // files, and a deletion just before a run would charge that run for it.
  auto runDirectory = [&work, index = 0](const char* name) mutable {
    return work / (std::string(name) + std::to_string(index++));
  };
  // The six runs of a round, started in another order each round, so that no run always
  // follows the same one (whose dirty pages or deletions the file system may charge to it).
  const std::vector<std::function<void()>> runs = {
      [&] {
        const ChildRun prepared =
            runChild({self, "--prepare", book.string(), runDirectory("caches").string(), "once"});
        prepareInner.push_back(std::stod(prepared.output));
        prepareTimes.push_back(prepared.milliseconds);
        prepareProcessor.push_back(prepared.processorMilliseconds);
        preparePeak = std::max(preparePeak, prepared.peakKilobytes);
      },
      [&] {
        const ChildRun eachFile =
            runChild({self, "--prepare", book.string(), runDirectory("caches").string(), "each"});
        eachFileInner.push_back(std::stod(eachFile.output));
      },
      [&] {
        const ChildRun twoReads = runChild(
            {self, "--prepare", book.string(), runDirectory("caches").string(), "two-reads"});
        twoReadsInner.push_back(std::stod(twoReads.output));
      },
      [&] {
        const fs::path target = runDirectory("tar");
        fs::create_directories(target);
        const ChildRun tar = runChild({"bsdtar", "-x", "-f", book.string(), "-C", target.string()});
        tarTimes.push_back(tar.milliseconds);
        tarProcessor.push_back(tar.processorMilliseconds);
        tarPeak = std::max(tarPeak, tar.peakKilobytes);
      },
      [&] {
        // bsdtar leaves its files in the page cache; prepare does not commit before they are on
        // the disk. The same promise costs bsdtar a syncfs.
        const fs::path durableTarget = runDirectory("tar");
        fs::create_directories(durableTarget);
        const ChildRun durableTar =
            runChild({"sh", "-c", "bsdtar -x -f \"$0\" -C \"$1\" && sync -f \"$1\"", book.string(),
                      durableTarget.string()});
        durableTarTimes.push_back(durableTar.milliseconds);
      },
      [&] {
        const fs::path placedTarget = runDirectory("tar");
        fs::create_directories(placedTarget);
        placementRefused = !placeChildrenAsTreeTops(placedTarget) || placementRefused;
        const ChildRun placedTar =
            runChild({"bsdtar", "-x", "-f", book.string(), "-C", placedTarget.string()});
        placedTarTimes.push_back(placedTar.milliseconds);
      },
  };
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t index = 0; index < runs.size(); ++index) {
      runs[(index + static_cast<std::size_t>(round)) % runs.size()]();
    }
  }

  const double prepareMedian = median(prepareInner);
  const double tarMedian = median(tarTimes);
  const double durableTarMedian = median(durableTarTimes);
  std::printf(
      "cold prepare in one pass: fingerprint, inspection, extraction, validation, one syncfs "
      "and the commit (median of %d): %.1f ms  (whole child: %.1f ms)\n",
      rounds, prepareMedian, median(prepareTimes));
  std::printf("cold prepare in one pass, fsync of every file (median of %d): %.1f ms\n", rounds,
              median(eachFileInner));
  std::printf("cold prepare in two reads, a plain hash then the prepare (median of %d): %.1f ms\n",
              rounds, median(twoReadsInner));
  std::printf("bsdtar -x    (median of %d): %.1f ms\n", rounds, tarMedian);
  std::printf("bsdtar -x, then sync -f of its tree (median of %d): %.1f ms\n", rounds,
              durableTarMedian);
  std::printf("bsdtar -x, its folders placed as the prepare's are%s (median of %d): %.1f ms\n",
              placementRefused ? " (the file system refused the placement)" : "", rounds,
              median(placedTarTimes));
  std::printf("ratio cold prepare / bsdtar -x: %.2f\n", prepareMedian / tarMedian);
  std::printf("ratio cold prepare / bsdtar -x with the same durability: %.2f\n",
              prepareMedian / durableTarMedian);
  std::printf("ratio cold prepare / bsdtar -x with the same placement: %.2f\n",
              prepareMedian / median(placedTarTimes));
  // On a machine that others load, the times above depend on how much of the processors each
  // run was given; the processor time each used depends much less on it.
  std::printf(
      "processor time, user and system (median of %d): cold prepare process %.1f ms, "
      "bsdtar -x %.1f ms\n",
      rounds, median(prepareProcessor), median(tarProcessor));
  std::printf("peak RSS: prepare process %ld KiB, bsdtar %ld KiB\n", preparePeak, tarPeak);
  fs::remove_all(work);
  return 0;
}
