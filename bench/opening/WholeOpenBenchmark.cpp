// The whole cold open, as a person meets it: the real application is started on a large book it
// has never seen (fresh data and cache directories), and the time runs from its start to the line
// it logs once the book's window shows its first page ("Opened the window of ..."). Beside it, in
// the same run and on the same file, `bsdtar -x` (plain extraction, which neither hashes, parses
// nor syncs). With the book open, the proportional set size of the application and of every
// process it started (WebKit's web and network processes) is read from /proc/<pid>/smaps_rollup.
// The medians of alternating rounds (5 unless told) are reported, the memory's too: it is read two
// seconds after the first page shows, while the page may still be weighing the book's sections, so
// one round's figure is noisy. The anonymous part is what these processes hold themselves; the file
// part is their share of libraries, which shrinks as other programs map the same libraries.
//
// The book: 2 000 chapters in the spine and 400 incompressible images, about 100 MB.
// Needs a display and a session bus:
//   xvfb-run -a -s "-screen 0 1280x1024x24" dbus-run-session -- \
//     build/<dir>/bench/opening/bench_whole_open [ROUNDS [LOG]]
// With LOG, the application's log of the first round (GLib stamps each line with the time of
// day) goes to that file, after a line with the time of day the application was started: where
// the time of an open goes.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "../support/BenchmarkBook.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr auto kOpenPatience = std::chrono::seconds(120);
// How long the open book is left before its memory is read, so that the first page's layout
// and the work that follows it have settled.
constexpr auto kSettle = std::chrono::seconds(2);

double millisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

// Starts `arguments`; with `output`, both standard output (where GLib writes its informational
// lines) and standard error go there.
pid_t spawn(const std::vector<std::string>& arguments, const std::vector<std::string>& environment,
            int output) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  if (output >= 0) {
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
  }
  std::vector<char*> argv, envp;
  for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  for (const auto& variable : environment) envp.push_back(const_cast<char*>(variable.c_str()));
  envp.push_back(nullptr);
  pid_t child = 0;
  const int failed = posix_spawnp(&child, argv[0], &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (failed != 0) throw std::runtime_error("cannot start " + arguments[0]);
  return child;
}

// `bsdtar -x` of the book into a directory of its own, timed from spawn to exit.
double timeExtraction(const fs::path& book, const fs::path& target) {
  fs::create_directories(target);
  std::vector<std::string> environment;
  for (char** variable = environ; *variable != nullptr; ++variable)
    environment.push_back(*variable);
  const auto start = Clock::now();
  const pid_t child =
      spawn({"bsdtar", "-x", "-f", book.string(), "-C", target.string()}, environment, -1);
  int status = 0;
  waitpid(child, &status, 0);
  const double milliseconds = millisecondsSince(start);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) throw std::runtime_error("bsdtar failed");
  return milliseconds;
}

// Every process below `root`, `root` included, from the parent links in /proc.
std::vector<pid_t> processTree(pid_t root) {
  std::multimap<pid_t, pid_t> children;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const std::string name = entry.path().filename().string();
    if (name.empty() || !std::all_of(name.begin(), name.end(), ::isdigit)) continue;
    std::ifstream stat(entry.path() / "stat");
    std::string line;
    if (!std::getline(stat, line)) continue;
    // The command sits in parentheses and may hold blanks: the fields go on after the last ')'.
    const auto close = line.rfind(')');
    if (close == std::string::npos) continue;
    std::istringstream fields(line.substr(close + 2));
    char state = 0;
    pid_t parent = 0;
    fields >> state >> parent;
    children.emplace(parent, std::stoi(name));
  }
  std::vector<pid_t> tree{root};
  for (std::size_t index = 0; index < tree.size(); ++index) {
    const auto [first, last] = children.equal_range(tree[index]);
    for (auto child = first; child != last; ++child) tree.push_back(child->second);
  }
  return tree;
}

struct ProcessMemory {
  pid_t pid = 0;
  std::string command;
  long pssKilobytes = 0;
  // Of which anonymous memory, and file mappings (the libraries' text, shared with others).
  long anonymousKilobytes = 0;
  long fileKilobytes = 0;
};

std::vector<ProcessMemory> memoryOf(pid_t root) {
  std::vector<ProcessMemory> processes;
  for (const pid_t pid : processTree(root)) {
    const fs::path directory = fs::path("/proc") / std::to_string(pid);
    ProcessMemory memory{pid, "", 0, 0, 0};
    std::ifstream(directory / "comm") >> memory.command;
    std::ifstream rollup(directory / "smaps_rollup");
    for (std::string line; std::getline(rollup, line);) {
      if (line.starts_with("Pss:")) memory.pssKilobytes = std::stol(line.substr(4));
      if (line.starts_with("Pss_Anon:")) memory.anonymousKilobytes = std::stol(line.substr(9));
      if (line.starts_with("Pss_File:")) memory.fileKilobytes = std::stol(line.substr(9));
    }
    processes.push_back(memory);
  }
  return processes;
}

struct OpenRun {
  double milliseconds = 0;
  std::vector<ProcessMemory> memory;
  // The application's log up to the first page, after the time of day it was started.
  std::string log;
};

// The time of day as GLib stamps its log lines, to the millisecond.
std::string timeOfDay() {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  std::tm local{};
  localtime_r(&seconds, &local);
  char text[32];
  const std::size_t length = std::strftime(text, sizeof text, "%H:%M:%S", &local);
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::snprintf(text + length, sizeof text - length, ".%03d", static_cast<int>(milliseconds));
  return text;
}

// Starts the application on `book` with `home` as its data, cache and configuration, waits for
// its window to show the first page, reads its memory, and ends it.
OpenRun openOnce(const fs::path& executable, const fs::path& schemas, const fs::path& book,
                 const fs::path& home) {
  std::vector<std::string> environment = {
      "XDG_DATA_HOME=" + (home / "data").string(),
      "XDG_CACHE_HOME=" + (home / "cache").string(),
      "XDG_CONFIG_HOME=" + (home / "config").string(),
      "GSETTINGS_SCHEMA_DIR=" + schemas.string(),
      "GSETTINGS_BACKEND=memory",
      "G_MESSAGES_DEBUG=Tomekeeper",
      "NO_AT_BRIDGE=1",
  };
  for (const char* name : {"DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "XAUTHORITY", "PATH", "HOME",
                           "GSK_RENDERER", "GDK_DEBUG"}) {
    if (const char* value = std::getenv(name))
      environment.push_back(std::string(name) + "=" + value);
  }
  int pipeEnds[2];
  if (pipe2(pipeEnds, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
  const std::string startedAt = timeOfDay();
  const auto start = Clock::now();
  const pid_t application = spawn({executable.string(), book.string()}, environment, pipeEnds[1]);
  close(pipeEnds[1]);

  OpenRun run;
  std::string log;
  bool opened = false;
  while (!opened && Clock::now() - start < kOpenPatience) {
    pollfd readable{pipeEnds[0], POLLIN, 0};
    if (poll(&readable, 1, 1000) <= 0) continue;
    char buffer[4096];
    const ssize_t count = read(pipeEnds[0], buffer, sizeof buffer);
    if (count <= 0) break;
    log.append(buffer, static_cast<std::size_t>(count));
    opened = log.find("Opened the window of") != std::string::npos;
  }
  run.milliseconds = millisecondsSince(start);
  run.log = "started at " + startedAt + "\n" + log;
  if (opened) {
    // The log keeps flowing; a full pipe would stall the application.
    std::thread drain([descriptor = pipeEnds[0]] {
      char buffer[4096];
      while (read(descriptor, buffer, sizeof buffer) > 0) {
      }
    });
    std::this_thread::sleep_for(kSettle);
    run.memory = memoryOf(application);
    kill(application, SIGTERM);
    waitpid(application, nullptr, 0);
    drain.join();
  } else {
    kill(application, SIGKILL);
    waitpid(application, nullptr, 0);
  }
  close(pipeEnds[0]);
  if (!opened) {
    throw std::runtime_error("the window did not show the book; the application wrote:\n" + log);
  }
  return run;
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;
  const std::optional<fs::path> logFile =
      argc > 2 ? std::optional<fs::path>(argv[2]) : std::nullopt;
  const fs::path executable = TOMEKEEPER_BENCH_EXECUTABLE;
  const fs::path schemas = TOMEKEEPER_BENCH_SCHEMA_DIRECTORY;

  std::string pattern = (fs::temp_directory_path() / "tomekeeper-whole-open-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) return 1;
  const fs::path work = pattern;
  const fs::path book = work / "large.epub";
  tomekeeper::bench::writeBenchmarkBook(book);
  std::printf("book: %.1f MiB, %d chapters, %d images\n",
              static_cast<double>(fs::file_size(book)) / (1024.0 * 1024.0),
              tomekeeper::bench::kChapters, tomekeeper::bench::kImages);

  std::vector<double> opens, extractions;
  // Per round, the memory of each kind of process (the bwrap sandboxes together).
  std::vector<std::map<std::string, ProcessMemory>> memory;
  try {
    for (int round = 0; round < rounds; ++round) {
      // Every run writes into directories of its own; nothing is deleted until the end, so
      // that no run pays for another's deletions.
      const OpenRun open =
          openOnce(executable, schemas, book, work / ("home" + std::to_string(round)));
      opens.push_back(open.milliseconds);
      if (round == 0 && logFile) std::ofstream(*logFile) << open.log;
      std::map<std::string, ProcessMemory>& byCommand = memory.emplace_back();
      for (const ProcessMemory& process : open.memory) {
        ProcessMemory& sum = byCommand[process.command];
        sum.command = process.command;
        sum.pssKilobytes += process.pssKilobytes;
        sum.anonymousKilobytes += process.anonymousKilobytes;
        sum.fileKilobytes += process.fileKilobytes;
      }
      extractions.push_back(timeExtraction(book, work / ("tar" + std::to_string(round))));
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bench_whole_open: %s\n", error.what());
    fs::remove_all(work);
    return 1;
  }

  const double openMedian = median(opens);
  const double extractionMedian = median(extractions);
  std::printf("cold open to the first page shown (median of %d): %.1f ms\n", rounds, openMedian);
  std::printf("bsdtar -x of the same file (median of %d): %.1f ms\n", rounds, extractionMedian);
  std::printf("ratio cold open / bsdtar -x: %.2f\n", openMedian / extractionMedian);
  // Medians in MB over the rounds of `field`, for one kind of process or, without one, all
  // together.
  const auto medianMegabytes = [&memory](long ProcessMemory::*field, const std::string* command) {
    std::vector<double> values;
    for (const auto& round : memory) {
      long kilobytes = 0;
      for (const auto& [name, process] : round) {
        if (command == nullptr || name == *command) kilobytes += process.*field;
      }
      values.push_back(static_cast<double>(kilobytes) / 1024.0);
    }
    return median(values);
  };
  std::set<std::string> commands;
  for (const auto& round : memory) {
    for (const auto& entry : round) commands.insert(entry.first);
  }
  for (const std::string& command : commands) {
    std::printf("  PSS %-16s %7.1f MB (anonymous %.1f MB, files %.1f MB)\n", command.c_str(),
                medianMegabytes(&ProcessMemory::pssKilobytes, &command),
                medianMegabytes(&ProcessMemory::anonymousKilobytes, &command),
                medianMegabytes(&ProcessMemory::fileKilobytes, &command));
  }
  std::printf(
      "PSS of the application and its processes, the book open (median of %d): %.1f MB, of which "
      "anonymous %.1f MB\n",
      rounds, medianMegabytes(&ProcessMemory::pssKilobytes, nullptr),
      medianMegabytes(&ProcessMemory::anonymousKilobytes, nullptr));
  fs::remove_all(work);
  return 0;
}
