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

namespace tomekeeper::testing {
namespace {

// Three chapters of a few paragraphs, enough text for the page to show a change of size or
// layout; the word "Quixotically" is written once, in the third.
void writeBook(const std::filesystem::path& file, const std::string& identifier,
               const std::string& title) {
  auto chapter = [](const std::string& name, const std::string& closing = "") {
    return proseChapter(name, 12,
                        "The chapter called " + name +
                            " goes on with plain words about the sea, the ship and the long watch.",
                        ChapterHeading::shown, closing);
  };
  EpubBuilder()
      .withPackageDocument(PackageDescription{
          .identifier = "urn:uuid:" + identifier, .title = title, .creators = {"Author"}}
                               .withChapters(3))
      .replaceFile("OEBPS/chapter1.xhtml", chapter("One"))
      .addFile("OEBPS/chapter2.xhtml", chapter("Two"))
      .addFile("OEBPS/chapter3.xhtml",
               chapter("Three", "<p>Here the word Quixotically is written once.</p>\n"))
      .writeTo(file);
}

class ReaderScreenApplicationDisplayTest : public ApplicationDisplayFixture {
 protected:
  void SetUp() override {
    const auto missing = missingForApplicationDisplay({"xdotool", "gdbus", "import", "compare"});
    if (!missing.empty()) GTEST_SKIP() << missing;
    writeBook(book, "0f5d1c62-52a4-4f0c-8d4b-3c2d9e7a6b10", "Title");
  }

  std::filesystem::path publicationFile(const std::string& fingerprint, const char* name) const {
    return home / "data" / "tomekeeper" / "Publications" / fingerprint / name;
  }

  bool waitForFileWith(const std::filesystem::path& file, const std::string& part,
                       bool present = true) const {
    return waitUntil([&] { return (readFile(file).find(part) != std::string::npos) == present; });
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

  std::filesystem::path book = home / "books" / "book.epub";
  int pictureCount = 0;
};

TEST_F(ReaderScreenApplicationDisplayTest, SidebarStateIsRememberedForThatBookOnly) {
  const std::filesystem::path otherBook = home / "books" / "other.epub";
  writeBook(otherBook, "6b1f0a2e-93c4-4d5e-8f71-2a0c9b3d4e58", "Other");
  std::string fingerprint;
  {
    ApplicationProcess application(home, {book.string()}, logFile, SettingsStorage::keyFile);
    fingerprint = waitForFingerprintAfter();
    ASSERT_FALSE(fingerprint.empty()) << log();
    EXPECT_NE(log().find("Reader window of " + fingerprint + " opens with the sidebar hidden"),
              std::string::npos)
        << log();
    ASSERT_TRUE(typeInto(application.pid(), {"F9"}));
    ASSERT_TRUE(waitForLog("Reader window of " + fingerprint + " has the sidebar shown")) << log();
    EXPECT_NE(readFile(home / "config" / "glib-2.0" / "settings" / "keyfile")
                  .find("'" + fingerprint + "': true"),
              std::string::npos);
    application.terminate();
    ASSERT_TRUE(application.waitForExit().has_value());
  }
  // Both books: the first comes back with its sidebar, the other has never shown one.
  ApplicationProcess relaunched(home, {book.string(), otherBook.string()}, logFile,
                                SettingsStorage::keyFile);
  ASSERT_TRUE(waitForLog("opens with the sidebar", 3)) << log();
  EXPECT_EQ(occurrences(log(), "Reader window of " + fingerprint + " opens with the sidebar shown"),
            1u)
      << log();
  EXPECT_EQ(occurrences(log(), "opens with the sidebar hidden"), 2u) << log();
}

// One launch, one step after the other: a bookmark added and removed at the place; the theme,
// the text size, the layout and the mode each changing the page; a search whose result goes to
// the third chapter.
TEST_F(ReaderScreenApplicationDisplayTest, BookmarksReadingOptionsAndSearchEachDoTheirPart) {
  ApplicationProcess application(home, {book.string()}, logFile);
  const std::string fingerprint = waitForFingerprintAfter();
  ASSERT_FALSE(fingerprint.empty()) << log();
  {
    SCOPED_TRACE("BookmarkIsAddedAndRemovedAtThePlace");
    const std::filesystem::path bookmarks = publicationFile(fingerprint, "bookmarks.json");
    ASSERT_TRUE(activateWindowAction(1, "toggle-bookmark"));
    ASSERT_TRUE(waitForLog("Bookmarks of " + fingerprint + ": 1")) << log();
    EXPECT_TRUE(waitForFileWith(bookmarks, "chapter1.xhtml")) << readFile(bookmarks);
    // The same place again: the bookmark there goes.
    ASSERT_TRUE(activateWindowAction(1, "toggle-bookmark"));
    ASSERT_TRUE(waitForLog("Bookmarks of " + fingerprint + ": 0")) << log();
    EXPECT_TRUE(waitForFileWith(bookmarks, "chapter1.xhtml", false)) << readFile(bookmarks);
  }
  {
    SCOPED_TRACE("ThemeTextSizeLayoutAndModeEachChangeThePage");
    const std::string window = visibleWindowOf(application.pid());
    ASSERT_FALSE(window.empty());
    // One page first, so that the double page is a change whatever the window's width.
    ASSERT_TRUE(activateWindowAction(1, "page-layout", "'singlePage'"));
    ASSERT_TRUE(waitForLog("Page layout of " + fingerprint + " is singlePage")) << log();
    const struct {
      const char* name;
      const char* action;  // a window action with its parameter, or a key when null
      const char* parameterOrKey;
      const char* logged;  // what the log says of the change, after "<fingerprint> is "
    } changes[] = {
        {"the dark theme", "reading-theme", "'dark'", "Reading theme of "},
        {"a larger text", nullptr, "ctrl+plus", nullptr},
        {"the double page", "page-layout", "'doublePage'", "Page layout of "},
        {"scrolling", "reading-mode", "'scrolled'", "Reading mode of "},
    };
    for (const auto& change : changes) {
      SCOPED_TRACE(change.name);
      const std::filesystem::path before = capture(window);
      if (change.action == nullptr) {
        ASSERT_TRUE(typeInto(application.pid(), {change.parameterOrKey}));
      } else {
        ASSERT_TRUE(activateWindowAction(1, change.action, change.parameterOrKey));
        const std::string value = std::string(change.parameterOrKey + 1);
        ASSERT_TRUE(
            waitForLog(change.logged + fingerprint + " is " + value.substr(0, value.size() - 1)))
            << log();
      }
      ASSERT_TRUE(waitForChangeFrom(window, before)) << "the page stayed as it was";
    }
    EXPECT_NE(readFile(home / "data" / "tomekeeper" / "Global" / "appearance.json").find("dark"),
              std::string::npos);
  }
  SCOPED_TRACE("SearchFindsTheWordAndItsResultGoesThere");
  // Ctrl+F opens the search panel with the focus in its field.
  ASSERT_TRUE(typeInto(application.pid(), {"ctrl+f"}));
  ASSERT_TRUE(typeInto(application.pid(), {"q", "u", "i", "x", "o", "t", "i", "c", "Return"}));
  ASSERT_TRUE(waitForLog("Search in " + fingerprint + " ended with 1 results")) << log();
  // From the field, past the Search button, to the one result, which Return chooses.
  ASSERT_TRUE(typeInto(application.pid(), {"Tab", "Tab", "Return"}));
  const std::filesystem::path position = publicationFile(fingerprint, "reading-position.json");
  EXPECT_TRUE(waitForFileWith(position, "chapter3.xhtml")) << readFile(position);
}

}  // namespace
}  // namespace tomekeeper::testing
