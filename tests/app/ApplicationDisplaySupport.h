// The real application under Xvfb, for the display tests of the application: one run of the
// executable with a test's own directories, and the X and D-Bus tools that watch and drive it.
#pragma once

#include <fcntl.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "AccessibilityBus.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper::testing {

// How long the application may take to do what a test waits for: an ASan build hashes,
// extracts and lays out a book in a few seconds; this is a limit for a hang, not a measure.
inline constexpr std::chrono::seconds kPatience{90};
// Where the application keeps its settings: in memory for one run, or in a key file under the
// test's configuration directory, which a relaunch reads again.
enum class SettingsStorage { memory, keyFile };

inline bool hasDisplay() {
  const char* display = g_getenv("DISPLAY");
  return display != nullptr && *display != '\0';
}

inline bool hasProgram(const char* name) {
  char* found = g_find_program_in_path(name);
  g_free(found);
  return found != nullptr;
}

// One run of the tomekeeper executable with the test's directories and settings schema; its
// standard error goes to a file the test reads. With the key-file settings storage the settings
// live in <home>/config/glib-2.0/settings/keyfile. Ended with SIGTERM when the test is done.
class ApplicationProcess {
 public:
  ApplicationProcess(const TemporaryDirectory& home, std::vector<std::string> arguments,
                     const std::filesystem::path& log,
                     SettingsStorage settings = SettingsStorage::memory) {
    std::vector<std::string> environment = {
        "XDG_DATA_HOME=" + (home / "data").string(),
        "XDG_CACHE_HOME=" + (home / "cache").string(),
        "XDG_CONFIG_HOME=" + (home / "config").string(),
        "GSETTINGS_SCHEMA_DIR=" TOMEKEEPER_TEST_SCHEMA_DIRECTORY,
        settings == SettingsStorage::keyFile ? "GSETTINGS_BACKEND=keyfile"
                                             : "GSETTINGS_BACKEND=memory",
        "GSK_RENDERER=cairo",
        "GDK_DEBUG=gl-disable",
        "G_MESSAGES_DEBUG=Tomekeeper",
        "ASAN_OPTIONS=detect_leaks=0",
        "NO_AT_BRIDGE=1",
    };
    for (const char* name : {"DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "XAUTHORITY", "PATH", "HOME"}) {
      if (const char* value = g_getenv(name))
        environment.push_back(std::string(name) + "=" + value);
    }
    std::vector<std::string> command = {TOMEKEEPER_TEST_EXECUTABLE};
    command.insert(command.end(), arguments.begin(), arguments.end());

    std::vector<char*> argv;
    for (auto& argument : command) argv.push_back(argument.data());
    argv.push_back(nullptr);
    std::vector<char*> envp;
    for (auto& variable : environment) envp.push_back(variable.data());
    envp.push_back(nullptr);

    const int logFile = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    GError* error = nullptr;
    const gboolean spawned =
        g_spawn_async_with_fds(nullptr, argv.data(), envp.data(), G_SPAWN_DO_NOT_REAP_CHILD,
                               nullptr, nullptr, &pid_, -1, logFile, logFile, &error);
    close(logFile);
    if (!spawned) {
      ADD_FAILURE() << "cannot start the application: " << error->message;
      g_error_free(error);
      pid_ = 0;
    }
  }
  ~ApplicationProcess() {
    if (pid_ == 0) return;
    terminate();
    if (!waitForExit()) {
      // A process left running would keep the application's name on the bus and take the next
      // test's launch as its own.
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
  }
  ApplicationProcess(const ApplicationProcess&) = delete;
  ApplicationProcess& operator=(const ApplicationProcess&) = delete;

  GPid pid() const { return pid_; }

  void terminate() const {
    if (pid_ != 0) kill(pid_, SIGTERM);
  }

  // The exit status once the process has ended within the patience; absent otherwise.
  std::optional<int> waitForExit() {
    if (pid_ == 0) return std::nullopt;
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (std::chrono::steady_clock::now() < deadline) {
      int status = 0;
      if (waitpid(pid_, &status, WNOHANG) == pid_) {
        pid_ = 0;
        return status;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return std::nullopt;
  }

 private:
  GPid pid_ = 0;
};

// Runs `command` (searched in PATH) to its end; gives whether it started. Its standard output
// and error go to `output` and `errors` when given, to /dev/null otherwise.
inline bool spawnAndWait(std::vector<std::string> command, int& status,
                         std::string* output = nullptr, std::string* errors = nullptr) {
  std::vector<char*> argv;
  for (auto& argument : command) argv.push_back(argument.data());
  argv.push_back(nullptr);
  int flags = G_SPAWN_SEARCH_PATH;
  if (output == nullptr) flags |= G_SPAWN_STDOUT_TO_DEV_NULL;
  if (errors == nullptr) flags |= G_SPAWN_STDERR_TO_DEV_NULL;
  char* standardOutput = nullptr;
  char* standardError = nullptr;
  const bool started = g_spawn_sync(nullptr, argv.data(), nullptr, static_cast<GSpawnFlags>(flags),
                                    nullptr, nullptr, output ? &standardOutput : nullptr,
                                    errors ? &standardError : nullptr, &status, nullptr);
  if (output != nullptr) *output = standardOutput != nullptr ? standardOutput : "";
  if (errors != nullptr) *errors = standardError != nullptr ? standardError : "";
  g_free(standardOutput);
  g_free(standardError);
  return started;
}

// Runs `command` (searched in PATH) and answers whether it ended with status 0; its standard
// output goes to `output` when given.
inline bool runTool(std::vector<std::string> command, std::string* output = nullptr) {
  const std::string name = command.front();
  int status = 0;
  std::string errors;
  const bool ran = spawnAndWait(std::move(command), status, output, &errors) &&
                   g_spawn_check_wait_status(status, nullptr);
  if (!ran) std::cerr << name << ": " << errors << '\n';
  return ran;
}

// The visible windows whose title is exactly `title`. Titles are compared here, not by
// xdotool's pattern, which does not read UTF-8.
inline int visibleWindowsTitled(const std::string& title) {
  std::string output;
  int status = 0;
  if (!spawnAndWait({"xdotool", "search", "--onlyvisible", "--name", ".", "getwindowname", "%@"},
                    status, &output)) {
    return 0;
  }
  int count = 0;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    if (line == title) ++count;
  }
  return count;
}

inline std::string readFile(const std::filesystem::path& file) {
  std::ifstream input(file);
  std::ostringstream contents;
  contents << input.rdbuf();
  return contents.str();
}

template <typename Predicate>
inline bool waitUntil(Predicate done) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!done()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
  return true;
}

inline std::size_t occurrences(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

// Focuses the visible window of process `pid` and types `keys` into it through the X server,
// as a person would. (xdotool cannot match a title that is not Latin-1, so the process.)
inline bool typeInto(GPid pid, const std::vector<std::string>& keys) {
  std::vector<std::string> command = {
      "xdotool",         "search", "--all",       "--onlyvisible", "--pid", std::to_string(pid),
      "--name",          ".",      "windowfocus", "--sync",        "%1",    "key",
      "--clearmodifiers"};
  command.insert(command.end(), keys.begin(), keys.end());
  const bool ran = runTool(std::move(command));
  // A key whose window went while it was down (Ctrl+W closing it) never gets its release, and
  // the X server repeats it into whatever has the focus next, for the rest of the run.
  std::vector<std::string> release = {"xdotool", "keyup"};
  release.insert(release.end(), keys.begin(), keys.end());
  int status = 0;
  spawnAndWait(std::move(release), status);
  return ran;
}

// The X window of the first visible window of process `pid`; empty when there is none.
inline std::string visibleWindowOf(GPid pid) {
  std::string output;
  runTool(
      {"xdotool", "search", "--all", "--onlyvisible", "--pid", std::to_string(pid), "--name", "."},
      &output);
  return output.substr(0, output.find('\n'));
}

// Activates the window action `action` of the application's window number `windowNumber` (in
// the order the running application made its windows, from 1) over the session bus, as the
// desktop does; `parameter` is a GVariant text or empty for none.
inline bool activateWindowAction(int windowNumber, const std::string& action,
                                 const std::string& parameter = "") {
  return runTool({"gdbus", "call", "--session", "--dest", "org.tomekeeper.Tomekeeper",
                  "--object-path",
                  "/org/tomekeeper/Tomekeeper/window/" + std::to_string(windowNumber), "--method",
                  "org.gtk.Actions.Activate", action,
                  parameter.empty() ? "[]" : "[<" + parameter + ">]", "{}"});
}

struct WindowSize {
  int width = 0;
  int height = 0;
};

// The size of X window `window`; absent when xdotool cannot tell it.
inline std::optional<WindowSize> sizeOfWindow(const std::string& window) {
  std::string geometry;
  if (window.empty() || !runTool({"xdotool", "getwindowgeometry", "--shell", window}, &geometry))
    return std::nullopt;
  WindowSize size;
  std::istringstream lines(geometry);
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("WIDTH=", 0) == 0) size.width = std::atoi(line.c_str() + 6);
    if (line.rfind("HEIGHT=", 0) == 0) size.height = std::atoi(line.c_str() + 7);
  }
  if (size.width == 0 || size.height == 0) return std::nullopt;
  return size;
}

// Clicks `count` times in the middle of X window `window` (three clicks select a paragraph).
inline bool clickMiddleOf(const std::string& window, int count = 1) {
  const std::optional<WindowSize> size = sizeOfWindow(window);
  return size && runTool({"xdotool", "mousemove", "--window", window, "--sync",
                          std::to_string(size->width / 2), std::to_string(size->height / 2),
                          "click", "--repeat", std::to_string(count), "--delay", "120", "1"});
}

// A picture of X window `window` as it is on screen (ImageMagick's import).
inline bool captureWindow(const std::string& window, const std::filesystem::path& picture) {
  return runTool({"import", "-window", window, picture.string()});
}

// How many pixels of two pictures of the same size differ (ImageMagick's compare); absent when
// the pictures cannot be compared.
inline std::optional<long> differingPixels(const std::filesystem::path& first,
                                           const std::filesystem::path& second) {
  int status = 0;
  std::string count;
  // compare ends with 1 when the pictures differ, and writes the count on standard error.
  if (!spawnAndWait({"compare", "-metric", "AE", first.string(), second.string(), "null:"}, status,
                    nullptr, &count) ||
      !WIFEXITED(status) || WEXITSTATUS(status) > 1) {
    return std::nullopt;
  }
  try {
    return static_cast<long>(std::stod(count));
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

// Why an application display test cannot run here (no display, no session bus, or one of
// `tools` missing); empty when it can.
inline std::string missingForApplicationDisplay(std::initializer_list<const char*> tools) {
  if (!hasDisplay()) return "needs a display (run under xvfb-run)";
  if (g_getenv("DBUS_SESSION_BUS_ADDRESS") == nullptr) {
    return "needs a session bus (run under dbus-run-session)";
  }
  for (const char* tool : tools) {
    if (!hasProgram(tool)) return std::string("needs ") + tool;
  }
  return "";
}

// Waits until the process `pid` presents an element of this role and name, and answers it.
inline std::optional<AccessibleElement> waitForElement(AccessibilityBus& bus, GPid pid,
                                                       const std::string& role,
                                                       const std::string& name) {
  std::optional<AccessibleElement> found;
  waitUntil([&] {
    found = find(bus.elementsOf(pid), role, name);
    return found.has_value();
  });
  return found;
}

// The elements that the process `pid` presents, one line each, for a failure's message.
inline std::string describeElements(AccessibilityBus& bus, GPid pid) {
  std::string text;
  for (const AccessibleElement& element : bus.elementsOf(pid)) {
    text += element.role + " \"" + element.name.substr(0, 60) + "\" " +
            std::to_string(element.states) + "\n";
  }
  return text;
}

// What the application display tests share: a home of their own with a books folder, and the
// application's log, which tells what its windows and readers did.
class ApplicationDisplayFixture : public ::testing::Test {
 protected:
  ApplicationDisplayFixture() { std::filesystem::create_directories(home / "books"); }

  std::string log() const { return readFile(logFile); }

  // Waits until the log holds `line` at least `count` times.
  bool waitForLog(const std::string& line, std::size_t count = 1) const {
    return waitUntil([&] { return occurrences(log(), line) >= count; });
  }

  // The fingerprint in the first log line "<prefix><fingerprint> ...", once there is one; empty
  // when none came within the patience.
  std::string waitForFingerprintAfter(const std::string& prefix = "Reader of ") const {
    std::string fingerprint;
    waitUntil([&] {
      const std::string text = log();
      const std::size_t at = text.find(prefix);
      if (at != std::string::npos) fingerprint = text.substr(at + prefix.size(), 64);
      return !fingerprint.empty();
    });
    return fingerprint;
  }

  // The saved reading positions of every book, as the stores hold them.
  std::string savedPositions() const {
    const std::filesystem::path publications = home / "data" / "tomekeeper" / "Publications";
    std::string positions;
    if (!std::filesystem::is_directory(publications)) return positions;
    for (const auto& entry : std::filesystem::directory_iterator(publications)) {
      positions += readFile(entry.path() / "reading-position.json");
    }
    return positions;
  }

  bool waitForSavedPosition(const std::string& part) const {
    return waitUntil([&] { return savedPositions().find(part) != std::string::npos; });
  }

  TemporaryDirectory home;
  std::filesystem::path logFile = home / "application.log";
};

// A chapter titled `title` (with that heading unless `heading` is off) of `paragraphs`
// paragraphs of `text`, and then `closing`.
enum class ChapterHeading { shown, none };
inline std::string proseChapter(const std::string& title, int paragraphs, const std::string& text,
                                ChapterHeading heading = ChapterHeading::shown,
                                const std::string& closing = "") {
  std::string body = heading == ChapterHeading::shown ? "<h1>" + title + "</h1>\n" : "";
  for (int paragraph = 0; paragraph < paragraphs; ++paragraph) body += "<p>" + text + "</p>\n";
  return R"(<?xml version="1.0" encoding="UTF-8"?>
<html xmlns="http://www.w3.org/1999/xhtml"><head><title>)" +
         title + "</title></head>\n<body>" + body + closing + "</body></html>\n";
}

}  // namespace tomekeeper::testing
