// The reader screen of the real application under Xvfb: its sidebar, bookmarks, search and
// reading options, driven through the window's keys and its actions on the session bus, and
// watched through the application's log, its stores and pictures of its window.
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "ApplicationDisplaySupport.h"
#include "support/EpubBuilder.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper::testing {
namespace {

// A chapter of a few paragraphs, enough text for the page to show a change of size or layout.
std::string chapter(const std::string& name, const std::string& extraWord = "") {
  std::string body;
  for (int paragraph = 0; paragraph < 12; ++paragraph) {
    body += "<p>The chapter called " + name +
            " goes on with plain words about the sea, the ship and the long watch.</p>\n";
  }
  if (!extraWord.empty()) body += "<p>Here the word " + extraWord + " is written once.</p>\n";
  return R"(<?xml version="1.0" encoding="UTF-8"?>
<html xmlns="http://www.w3.org/1999/xhtml"><head><title>)" +
         name + "</title></head>\n<body><h1>" + name + "</h1>\n" + body + "</body></html>\n";
}

void writeBook(const std::filesystem::path& file, const std::string& identifier,
               const std::string& title) {
  EpubBuilder()
      .withPackageDocument(PackageDescription{
          .identifier = "urn:uuid:" + identifier, .title = title, .creators = {"Author"}}
                               .withChapters(3))
      .replaceFile("OEBPS/chapter1.xhtml", chapter("One"))
      .addFile("OEBPS/chapter2.xhtml", chapter("Two"))
      .addFile("OEBPS/chapter3.xhtml", chapter("Three", "Quixotically"))
      .writeTo(file);
}

// The fingerprint in the log line "<prefix><fingerprint> ..." or empty.
std::string fingerprintAfter(const std::string& log, const std::string& prefix) {
  const std::size_t at = log.find(prefix);
  if (at == std::string::npos) return "";
  return log.substr(at + prefix.size(), 64);
}

class ReaderScreenApplicationDisplayTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!hasDisplay()) GTEST_SKIP() << "needs a display (run under xvfb-run)";
    for (const char* tool : {"xdotool", "gdbus", "import", "compare"}) {
      if (!hasProgram(tool)) GTEST_SKIP() << "needs " << tool;
    }
    if (g_getenv("DBUS_SESSION_BUS_ADDRESS") == nullptr) {
      GTEST_SKIP() << "needs a session bus (run under dbus-run-session)";
    }
    std::filesystem::create_directories(home / "books");
    writeBook(book, "0f5d1c62-52a4-4f0c-8d4b-3c2d9e7a6b10", "Title");
  }

  std::string log() const { return readFile(logFile); }

  // Waits for the first window's reader to be ready and answers its book's fingerprint.
  std::string waitForReadyReader() {
    std::string fingerprint;
    waitUntil([&] {
      fingerprint = fingerprintAfter(log(), "Reader of ");
      return !fingerprint.empty();
    });
    return fingerprint;
  }

  std::filesystem::path publicationFile(const std::string& fingerprint, const char* name) const {
    return home / "data" / "tomekeeper" / "Publications" / fingerprint / name;
  }

  // Takes a picture of `window` into a new file of the test's directory.
  std::filesystem::path capture(const std::string& window) {
    const std::filesystem::path picture =
        home / ("window-" + std::to_string(++pictureCount) + ".png");
    EXPECT_TRUE(captureWindow(window, picture));
    return picture;
  }

  // Waits until the window looks different from `before`: the page is drawn again after the
  // runtime applied a change, a moment after the session reported it.
  bool waitForChangeFrom(const std::string& window, const std::filesystem::path& before) {
    return waitUntil([&] {
      const std::optional<long> differing = differingPixels(before, capture(window));
      return differing && *differing > 0;
    });
  }

  TemporaryDirectory home;
  std::filesystem::path book = home / "books" / "book.epub";
  std::filesystem::path logFile = home / "application.log";
  int pictureCount = 0;
};

TEST_F(ReaderScreenApplicationDisplayTest, SidebarStateIsRememberedForThatBookOnly) {
  const std::filesystem::path otherBook = home / "books" / "other.epub";
  writeBook(otherBook, "6b1f0a2e-93c4-4d5e-8f71-2a0c9b3d4e58", "Other");
  std::string fingerprint;
  {
    ApplicationProcess application(home, {book.string()}, logFile, SettingsStorage::keyFile);
    fingerprint = waitForReadyReader();
    ASSERT_FALSE(fingerprint.empty()) << log();
    EXPECT_NE(log().find("Reader window of " + fingerprint + " opens with the sidebar hidden"),
              std::string::npos)
        << log();
    ASSERT_TRUE(typeInto(application.pid(), {"F9"}));
    ASSERT_TRUE(waitUntil([&] {
      return log().find("Reader window of " + fingerprint + " has the sidebar shown") !=
             std::string::npos;
    })) << log();
    EXPECT_NE(readFile(home / "config" / "glib-2.0" / "settings" / "keyfile")
                  .find("'" + fingerprint + "': true"),
              std::string::npos);
    application.terminate();
    ASSERT_TRUE(application.waitForExit().has_value());
  }
  // Both books: the first comes back with its sidebar, the other has never shown one.
  ApplicationProcess relaunched(home, {book.string(), otherBook.string()}, logFile,
                                SettingsStorage::keyFile);
  ASSERT_TRUE(waitUntil([&] { return occurrences(log(), "opens with the sidebar") == 3; }))
      << log();
  EXPECT_EQ(occurrences(log(), "Reader window of " + fingerprint + " opens with the sidebar shown"),
            1u)
      << log();
  EXPECT_EQ(occurrences(log(), "opens with the sidebar hidden"), 2u) << log();
}

TEST_F(ReaderScreenApplicationDisplayTest, BookmarkIsAddedAndRemovedAtThePlace) {
  ApplicationProcess application(home, {book.string()}, logFile);
  const std::string fingerprint = waitForReadyReader();
  ASSERT_FALSE(fingerprint.empty()) << log();
  const std::filesystem::path bookmarks = publicationFile(fingerprint, "bookmarks.json");

  ASSERT_TRUE(activateWindowAction(1, "toggle-bookmark"));
  ASSERT_TRUE(waitUntil([&] {
    return log().find("Bookmarks of " + fingerprint + ": 1") != std::string::npos;
  })) << log();
  EXPECT_TRUE(waitUntil([&] {
    return readFile(bookmarks).find("chapter1.xhtml") != std::string::npos;
  })) << readFile(bookmarks);

  // The same place again: the bookmark there goes.
  ASSERT_TRUE(activateWindowAction(1, "toggle-bookmark"));
  ASSERT_TRUE(waitUntil([&] {
    return log().find("Bookmarks of " + fingerprint + ": 0") != std::string::npos;
  })) << log();
  EXPECT_TRUE(waitUntil([&] {
    return readFile(bookmarks).find("chapter1.xhtml") == std::string::npos;
  })) << readFile(bookmarks);
}

TEST_F(ReaderScreenApplicationDisplayTest, SearchFindsTheWordAndItsResultGoesThere) {
  ApplicationProcess application(home, {book.string()}, logFile);
  const std::string fingerprint = waitForReadyReader();
  ASSERT_FALSE(fingerprint.empty()) << log();

  // Ctrl+F opens the search panel with the focus in its field.
  ASSERT_TRUE(typeInto(application.pid(), {"ctrl+f"}));
  ASSERT_TRUE(typeInto(application.pid(), {"q", "u", "i", "x", "o", "t", "i", "c", "Return"}));
  ASSERT_TRUE(waitUntil([&] {
    return log().find("Search in " + fingerprint + " ended with 1 results") != std::string::npos;
  })) << log();

  // From the field, past the Search button, to the one result, which Return chooses.
  ASSERT_TRUE(typeInto(application.pid(), {"Tab", "Tab", "Return"}));
  const std::filesystem::path position = publicationFile(fingerprint, "reading-position.json");
  EXPECT_TRUE(waitUntil([&] {
    return readFile(position).find("chapter3.xhtml") != std::string::npos;
  })) << readFile(position);
}

TEST_F(ReaderScreenApplicationDisplayTest, ThemeTextSizeLayoutAndModeEachChangeThePage) {
  ApplicationProcess application(home, {book.string()}, logFile);
  const std::string fingerprint = waitForReadyReader();
  ASSERT_FALSE(fingerprint.empty()) << log();
  const std::string window = visibleWindowOf(application.pid());
  ASSERT_FALSE(window.empty());

  // One page first, so that the double page is a change whatever the window's width.
  ASSERT_TRUE(activateWindowAction(1, "page-layout", "'singlePage'"));
  ASSERT_TRUE(waitUntil([&] {
    return log().find("Page layout of " + fingerprint + " is singlePage") != std::string::npos;
  })) << log();
  std::filesystem::path before = capture(window);

  ASSERT_TRUE(activateWindowAction(1, "reading-theme", "'dark'"));
  ASSERT_TRUE(waitUntil([&] {
    return log().find("Reading theme of " + fingerprint + " is dark") != std::string::npos;
  })) << log();
  ASSERT_TRUE(waitForChangeFrom(window, before)) << "the dark theme left the page as it was";
  EXPECT_NE(readFile(home / "data" / "tomekeeper" / "Global" / "appearance.json").find("dark"),
            std::string::npos);

  before = capture(window);
  ASSERT_TRUE(typeInto(application.pid(), {"ctrl+plus"}));
  ASSERT_TRUE(waitForChangeFrom(window, before)) << "a larger text left the page as it was";

  before = capture(window);
  ASSERT_TRUE(activateWindowAction(1, "page-layout", "'doublePage'"));
  ASSERT_TRUE(waitUntil([&] {
    return log().find("Page layout of " + fingerprint + " is doublePage") != std::string::npos;
  })) << log();
  ASSERT_TRUE(waitForChangeFrom(window, before)) << "the double page left the page as it was";

  before = capture(window);
  ASSERT_TRUE(activateWindowAction(1, "reading-mode", "'scrolled'"));
  ASSERT_TRUE(waitUntil([&] {
    return log().find("Reading mode of " + fingerprint + " is scrolled") != std::string::npos;
  })) << log();
  EXPECT_TRUE(waitForChangeFrom(window, before)) << "scrolling left the page as it was";
}

}  // namespace
}  // namespace tomekeeper::testing
