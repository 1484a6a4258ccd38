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

#include "ApplicationDisplaySupport.h"
#include "support/EpubBuilder.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper::testing {
namespace {

constexpr const char* kWindowTitle = "Title \u2014 Author";

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
    // The title's spaces are the book's; the window title has none.
    EpubBuilder()
        .withPackageDocument({.identifier = "urn:uuid:0f5d1c62-52a4-4f0c-8d4b-3c2d9e7a6b10",
                              .title = " Title ",
                              .creators = {"Author"},
                              .manifest = {{"chapter", "chapter1.xhtml"}},
                              .spine = {"chapter"}})
        .writeTo(book);
  }

  std::string log() const { return readFile(logFile); }

  TemporaryDirectory home;
  std::filesystem::path book = home / "books" / "book.epub";
  std::filesystem::path logFile = home / "application.log";
};

// One launch: the book opens in its window, and a second launch of the same book brings that
// window forward.
TEST_F(ApplicationDisplayTest, OpensBookInWindowTitledWithItsTitleAndAuthorAndBringsItForward) {
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

  SCOPED_TRACE("OpeningTheSameBookAgainBringsItsOneWindowForward");
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
      .withPackageDocument(
          PackageDescription{.identifier = "urn:uuid:7a3e2b14-9c0d-4f61-8e25-1b6c4d9f0a37",
                             .title = "Title",
                             .creators = {"Author"}}
              .withChapters(3))
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
