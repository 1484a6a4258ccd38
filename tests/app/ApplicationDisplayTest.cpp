// The real application under Xvfb: the executable that the build made, started as a user would
// start it, with its own data, cache and configuration directories, watched through its window
// titles (xdotool) and its log.
#include <fcntl.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/EpubBuilder.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper::testing {
namespace {

// How long the application may take to do what a test waits for: an ASan build hashes,
// extracts and lays out a book in a few seconds; this is a limit for a hang, not a measure.
constexpr std::chrono::seconds kPatience{90};
constexpr const char* kWindowTitle = "Title \u2014 Author";

constexpr const char* kPackageDocument = R"(<?xml version="1.0" encoding="UTF-8"?>
<package xmlns="http://www.idpf.org/2007/opf" version="3.0" unique-identifier="id">
  <metadata xmlns:dc="http://purl.org/dc/elements/1.1/">
    <dc:identifier id="id">urn:uuid:0f5d1c62-52a4-4f0c-8d4b-3c2d9e7a6b10</dc:identifier>
    <dc:title> Title </dc:title>
    <dc:creator>Author</dc:creator>
    <dc:language>en</dc:language>
    <meta property="dcterms:modified">2025-01-01T00:00:00Z</meta>
  </metadata>
  <manifest>
    <item id="chapter" href="chapter1.xhtml" media-type="application/xhtml+xml"/>
  </manifest>
  <spine>
    <itemref idref="chapter"/>
  </spine>
</package>
)";

bool hasDisplay() {
  const char* display = g_getenv("DISPLAY");
  return display != nullptr && *display != '\0';
}

bool hasProgram(const char* name) {
  char* found = g_find_program_in_path(name);
  g_free(found);
  return found != nullptr;
}

// One run of the tomekeeper executable with the test's directories and settings schema; its
// standard error goes to a file the test reads. Ended with SIGTERM when the test is done.
class ApplicationProcess {
 public:
  ApplicationProcess(const TemporaryDirectory& home, std::vector<std::string> arguments,
                     const std::filesystem::path& log) {
    std::vector<std::string> environment = {
        "XDG_DATA_HOME=" + (home / "data").string(),
        "XDG_CACHE_HOME=" + (home / "cache").string(),
        "XDG_CONFIG_HOME=" + (home / "config").string(),
        "GSETTINGS_SCHEMA_DIR=" TOMEKEEPER_TEST_SCHEMA_DIRECTORY,
        "GSETTINGS_BACKEND=memory",
        "GSK_RENDERER=cairo",
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
    if (pid_ != 0) {
      terminate();
      waitForExit();
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

// The visible windows whose title is exactly `title`. Titles are compared here, not by
// xdotool's pattern, which does not read UTF-8.
int visibleWindowsTitled(const std::string& title) {
  const char* argv[] = {"xdotool",       "search", "--onlyvisible", "--name", ".",
                        "getwindowname", "%@",     nullptr};
  char* output = nullptr;
  int status = 0;
  if (!g_spawn_sync(nullptr, const_cast<char**>(argv), nullptr,
                    static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | G_SPAWN_STDERR_TO_DEV_NULL),
                    nullptr, nullptr, &output, nullptr, &status, nullptr)) {
    return 0;
  }
  int count = 0;
  std::istringstream lines(output != nullptr ? output : "");
  for (std::string line; std::getline(lines, line);) {
    if (line == title) ++count;
  }
  g_free(output);
  return count;
}

std::string readFile(const std::filesystem::path& file) {
  std::ifstream input(file);
  std::ostringstream contents;
  contents << input.rdbuf();
  return contents.str();
}

template <typename Predicate>
bool waitUntil(Predicate done) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!done()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
  }
  return true;
}

std::size_t occurrences(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
    ++count;
  }
  return count;
}

// Focuses the visible window of process `pid` and types `keys` into it through the X server,
// as a person would. (xdotool cannot match a title that is not Latin-1, so the process.)
bool typeInto(GPid pid, const std::vector<std::string>& keys) {
  std::vector<std::string> command = {
      "xdotool",         "search", "--all",       "--onlyvisible", "--pid", std::to_string(pid),
      "--name",          ".",      "windowfocus", "--sync",        "%1",    "key",
      "--clearmodifiers"};
  command.insert(command.end(), keys.begin(), keys.end());
  std::vector<char*> argv;
  for (auto& argument : command) argv.push_back(argument.data());
  argv.push_back(nullptr);
  int status = 0;
  char* errors = nullptr;
  const bool ran =
      g_spawn_sync(nullptr, argv.data(), nullptr,
                   static_cast<GSpawnFlags>(G_SPAWN_SEARCH_PATH | G_SPAWN_STDOUT_TO_DEV_NULL),
                   nullptr, nullptr, nullptr, &errors, &status, nullptr) &&
      g_spawn_check_wait_status(status, nullptr);
  if (!ran) std::cerr << "xdotool: " << (errors != nullptr ? errors : "") << '\n';
  g_free(errors);
  return ran;
}

constexpr const char* kThreeChapterPackageDocument = R"(<?xml version="1.0" encoding="UTF-8"?>
<package xmlns="http://www.idpf.org/2007/opf" version="3.0" unique-identifier="id">
  <metadata xmlns:dc="http://purl.org/dc/elements/1.1/">
    <dc:identifier id="id">urn:uuid:7a3e2b14-9c0d-4f61-8e25-1b6c4d9f0a37</dc:identifier>
    <dc:title>Title</dc:title>
    <dc:creator>Author</dc:creator>
    <dc:language>en</dc:language>
    <meta property="dcterms:modified">2025-01-01T00:00:00Z</meta>
  </metadata>
  <manifest>
    <item id="chapter1" href="chapter1.xhtml" media-type="application/xhtml+xml"/>
    <item id="chapter2" href="chapter2.xhtml" media-type="application/xhtml+xml"/>
    <item id="chapter3" href="chapter3.xhtml" media-type="application/xhtml+xml"/>
  </manifest>
  <spine>
    <itemref idref="chapter1"/>
    <itemref idref="chapter2"/>
    <itemref idref="chapter3"/>
  </spine>
</package>
)";

std::string chapter(const std::string& name) {
  return R"(<?xml version="1.0" encoding="UTF-8"?>
<html xmlns="http://www.w3.org/1999/xhtml"><head><title>)" +
         name + "</title></head>\n<body><p>The chapter called " + name + ".</p></body></html>\n";
}

class ApplicationDisplayTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!hasDisplay()) GTEST_SKIP() << "needs a display (run under xvfb-run)";
    if (!hasProgram("xdotool")) GTEST_SKIP() << "needs xdotool";
    if (g_getenv("DBUS_SESSION_BUS_ADDRESS") == nullptr) {
      GTEST_SKIP() << "needs a session bus (run under dbus-run-session)";
    }
    std::filesystem::create_directories(home / "books");
    EpubBuilder().replaceFile(EpubBuilder::kPackageDocumentPath, kPackageDocument).writeTo(book);
  }

  std::string log() const { return readFile(logFile); }

  TemporaryDirectory home;
  std::filesystem::path book = home / "books" / "book.epub";
  std::filesystem::path logFile = home / "application.log";
};

TEST_F(ApplicationDisplayTest, OpensBookInWindowTitledWithItsTitleAndAuthor) {
  ApplicationProcess application(home, {book.string()}, logFile);
  ASSERT_TRUE(waitUntil([] { return visibleWindowsTitled(kWindowTitle) == 1; })) << log();
  EXPECT_EQ(log().find("Open failed"), std::string::npos) << log();
  // The book joins the desktop's recent documents as an EPUB of this application.
  const std::filesystem::path recent = home / "data" / "recently-used.xbel";
  EXPECT_TRUE(waitUntil([&] {
    const std::string entries = readFile(recent);
    return entries.find("book.epub") != std::string::npos &&
           entries.find("application/epub+zip") != std::string::npos &&
           entries.find("Tomekeeper") != std::string::npos;
  })) << readFile(recent);
}

TEST_F(ApplicationDisplayTest, OpeningTheSameBookAgainBringsItsOneWindowForward) {
  ApplicationProcess application(home, {book.string()}, logFile);
  ASSERT_TRUE(waitUntil([] { return visibleWindowsTitled(kWindowTitle) == 1; })) << log();

  // A second launch hands the file to the running application and ends.
  ApplicationProcess second(home, {book.string()}, logFile);
  const std::optional<int> status = second.waitForExit();
  ASSERT_TRUE(status.has_value());
  EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) == 0);
  ASSERT_TRUE(waitUntil([this] { return log().find("forward") != std::string::npos; })) << log();
  EXPECT_EQ(occurrences(log(), "Opened the window of"), 1u);
  EXPECT_EQ(visibleWindowsTitled(kWindowTitle), 1);
}

TEST_F(ApplicationDisplayTest, QuitAndRelaunchRestoresTheOpenBook) {
  {
    ApplicationProcess application(home, {book.string()}, logFile);
    ASSERT_TRUE(waitUntil([] { return visibleWindowsTitled(kWindowTitle) == 1; })) << log();
    application.terminate();
    const std::optional<int> status = application.waitForExit();
    ASSERT_TRUE(status.has_value());
    EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) == 0) << log();
  }
  const std::string restoration =
      readFile(home / "data" / "tomekeeper" / "DocumentAccess" / "window-restoration.json");
  EXPECT_NE(restoration.find("\"fingerprints\""), std::string::npos) << restoration;
  ASSERT_EQ(visibleWindowsTitled(kWindowTitle), 0);

  ApplicationProcess relaunched(home, {}, logFile);
  ASSERT_TRUE(waitUntil([] { return visibleWindowsTitled(kWindowTitle) == 1; })) << log();
  EXPECT_EQ(visibleWindowsTitled("Tomekeeper"), 0);
}

TEST_F(ApplicationDisplayTest, PageKeysTurnPagesAndTheRelaunchKeepsThePlace) {
  EpubBuilder()
      .replaceFile(EpubBuilder::kPackageDocumentPath, kThreeChapterPackageDocument)
      .replaceFile("OEBPS/chapter1.xhtml", chapter("One"))
      .addFile("OEBPS/chapter2.xhtml", chapter("Two"))
      .addFile("OEBPS/chapter3.xhtml", chapter("Three"))
      .writeTo(book);
  const std::filesystem::path publications = home / "data" / "tomekeeper" / "Publications";
  auto savedPosition = [&] {
    std::string positions;
    if (!std::filesystem::is_directory(publications)) return positions;
    for (const auto& entry : std::filesystem::directory_iterator(publications)) {
      positions += readFile(entry.path() / "reading-position.json");
    }
    return positions;
  };
  {
    ApplicationProcess application(home, {book.string()}, logFile);
    ASSERT_TRUE(waitUntil([] { return visibleWindowsTitled(kWindowTitle) == 1; })) << log();
    // Each chapter is one page: Page Down and Ctrl+] each go on to the next chapter.
    ASSERT_TRUE(typeInto(application.pid(), {"Next"}));
    ASSERT_TRUE(waitUntil([&] {
      return savedPosition().find("chapter2.xhtml") != std::string::npos;
    })) << savedPosition();
    ASSERT_TRUE(typeInto(application.pid(), {"ctrl+bracketright"}));
    ASSERT_TRUE(waitUntil([&] {
      return savedPosition().find("chapter3.xhtml") != std::string::npos;
    })) << savedPosition();
    application.terminate();
    ASSERT_TRUE(application.waitForExit().has_value());
  }
  ApplicationProcess relaunched(home, {}, logFile);
  ASSERT_TRUE(waitUntil([] { return visibleWindowsTitled(kWindowTitle) == 1; })) << log();
  ASSERT_TRUE(typeInto(relaunched.pid(), {"Prior"}));
  // Back from the restored third chapter, not from the first.
  EXPECT_TRUE(waitUntil([&] {
    return savedPosition().find("chapter2.xhtml") != std::string::npos;
  })) << savedPosition();
}

TEST_F(ApplicationDisplayTest,
       ClosingTheLastWindowKeepsTheApplicationAndALaterLaunchShowsTheOpenWindow) {
  ApplicationProcess application(home, {book.string()}, logFile);
  ASSERT_TRUE(waitUntil([] { return visibleWindowsTitled(kWindowTitle) == 1; })) << log();
  // The window goes while xdotool still talks to it, which it reports as a failure.
  typeInto(application.pid(), {"ctrl+w"});
  ASSERT_TRUE(waitUntil([] { return visibleWindowsTitled(kWindowTitle) == 0; }));
  EXPECT_EQ(readFile(home / "data" / "tomekeeper" / "DocumentAccess" / "window-restoration.json"),
            "{\n  \"fingerprints\": []\n}");

  // The running application takes the new launch, which has no file: the open window comes.
  ApplicationProcess second(home, {}, logFile);
  ASSERT_TRUE(second.waitForExit().has_value());
  EXPECT_TRUE(waitUntil([] { return visibleWindowsTitled("Tomekeeper") == 1; })) << log();
}

}  // namespace
}  // namespace tomekeeper::testing
