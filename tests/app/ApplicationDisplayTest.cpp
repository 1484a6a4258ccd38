// The real application under Xvfb: the executable that the build made, started as a user would
// start it, with its own data, cache and configuration directories, watched through its window
// titles (xdotool) and its log.
#include <sys/wait.h>

#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <string>

#include "ApplicationDisplaySupport.h"
#include "support/EpubBuilder.h"

namespace tomekeeper::testing {
namespace {

constexpr const char* kWindowTitle = "Title \u2014 Author";

class ApplicationDisplayTest : public ApplicationDisplayFixture {
 protected:
  void SetUp() override {
    if (const auto missing = missingForApplicationDisplay({"xdotool"}); !missing.empty()) {
      GTEST_SKIP() << missing;
    }
    // The title's spaces are the book's; the window title has none.
    EpubBuilder()
        .withPackageDocument({.identifier = "urn:uuid:0f5d1c62-52a4-4f0c-8d4b-3c2d9e7a6b10",
                              .title = " Title ",
                              .creators = {"Author"},
                              .manifest = {{"chapter", "chapter1.xhtml"}},
                              .spine = {"chapter"}})
        .writeTo(book);
  }

  // The window takes the book's title as soon as its package document is read; the book is open
  // once the log says so, for the `opens`-th time.
  bool waitForBookWindow(std::size_t opens = 1) const {
    return waitUntil([] { return visibleWindowsTitled(kWindowTitle) == 1; }) &&
           waitForLog("Opened the window of", opens);
  }

  std::filesystem::path book = home / "books" / "book.epub";
  std::filesystem::path restorationFile =
      home / "data" / "tomekeeper" / "DocumentAccess" / "window-restoration.json";
};

// One launch: the book opens in its window, a second launch of the same book brings that window
// forward, and once the window is closed the application stays for a third launch without a
// file, which shows the open window.
TEST_F(ApplicationDisplayTest, OpensBookInWindowTitledWithItsTitleAndAuthorAndBringsItForward) {
  ApplicationProcess application(home, {book.string()}, logFile);
  ASSERT_TRUE(waitForBookWindow()) << log();
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
  ASSERT_TRUE(waitForLog("forward")) << log();
  EXPECT_EQ(occurrences(log(), "Opened the window of"), 1u);
  EXPECT_EQ(visibleWindowsTitled(kWindowTitle), 1);

  SCOPED_TRACE("ClosingTheLastWindowKeepsTheApplicationAndALaterLaunchShowsTheOpenWindow");
  // The window goes while xdotool still talks to it, which it reports as a failure.
  typeInto(application.pid(), {"ctrl+w"});
  ASSERT_TRUE(waitUntil([] { return visibleWindowsTitled(kWindowTitle) == 0; }));
  EXPECT_EQ(readFile(restorationFile), "{\n  \"fingerprints\": []\n}");
  // The running application takes the new launch, which has no file: the open window comes.
  ApplicationProcess third(home, {}, logFile);
  ASSERT_TRUE(third.waitForExit().has_value());
  EXPECT_TRUE(waitUntil([] { return visibleWindowsTitled("Tomekeeper") == 1; })) << log();
}

// Quitting ends the process cleanly with the book in the restoration file; the relaunch brings
// its window back (not the open window) at the place it was left, found by paging back.
TEST_F(ApplicationDisplayTest, PageKeysTurnPagesAndTheRelaunchRestoresTheBookAtItsPlace) {
  auto chapter = [](const std::string& name) {
    return proseChapter(name, 1, "The chapter called " + name + ".", ChapterHeading::none);
  };
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
  {
    ApplicationProcess application(home, {book.string()}, logFile);
    ASSERT_TRUE(waitForBookWindow()) << log();
    // Each chapter is one page: Page Down and Ctrl+] each go on to the next chapter.
    ASSERT_TRUE(typeInto(application.pid(), {"Next"}));
    ASSERT_TRUE(waitForSavedPosition("chapter2.xhtml")) << savedPositions();
    ASSERT_TRUE(typeInto(application.pid(), {"ctrl+bracketright"}));
    ASSERT_TRUE(waitForSavedPosition("chapter3.xhtml")) << savedPositions();
    application.terminate();
    const std::optional<int> status = application.waitForExit();
    ASSERT_TRUE(status.has_value());
    EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) == 0) << log();
  }
  const std::string restoration = readFile(restorationFile);
  EXPECT_NE(restoration.find("\"fingerprints\""), std::string::npos) << restoration;
  ASSERT_EQ(visibleWindowsTitled(kWindowTitle), 0);

  ApplicationProcess relaunched(home, {}, logFile);
  ASSERT_TRUE(waitForBookWindow(2)) << log();
  EXPECT_EQ(visibleWindowsTitled("Tomekeeper"), 0);
  ASSERT_TRUE(typeInto(relaunched.pid(), {"Prior"}));
  // Back from the restored third chapter, not from the first.
  EXPECT_TRUE(waitForSavedPosition("chapter2.xhtml")) << savedPositions();
}

// A book read for the first time has its window, titled, while the rest of it is prepared: the
// title shows before the first page. Its stored, incompressible images make the preparation take
// long enough to look at.
TEST_F(ApplicationDisplayTest, ShowsTheTitledWindowBeforeTheFirstPage) {
  EpubBuilder builder;
  builder.withPackageDocument({.identifier = "urn:uuid:3b9f6c0e-2d41-4a7b-9e85-6f1c2a7d4e93",
                               .title = "Title",
                               .creators = {"Author"},
                               .manifest = {{"chapter", "chapter1.xhtml"}},
                               .spine = {"chapter"}});
  std::mt19937 generator(7);
  for (int image = 0; image < 40; ++image) {
    std::string bytes(1 << 20, '\0');
    for (char& byte : bytes) byte = static_cast<char>(generator());
    builder.addFile("OEBPS/Images/image" + std::to_string(image) + ".jpg", std::move(bytes),
                    ZipArchiveBuilder::kStored);
  }
  builder.writeTo(book);

  ApplicationProcess application(home, {book.string()}, logFile);
  ASSERT_TRUE(waitUntil([] { return visibleWindowsTitled(kWindowTitle) == 1; })) << log();
  const std::string whenTitled = log();
  // (The log has the title's dash in the locale's characters.)
  EXPECT_NE(whenTitled.find("Opening window of book.epub is titled Title"), std::string::npos)
      << whenTitled;
  EXPECT_EQ(whenTitled.find("Opened the window of"), std::string::npos) << whenTitled;
  ASSERT_TRUE(waitForLog("Opened the window of")) << log();
  // The same window, now the reader's, with the progress it showed on the way.
  EXPECT_EQ(visibleWindowsTitled(kWindowTitle), 1);
  EXPECT_NE(log().find("Opening window of book.epub shows"), std::string::npos) << log();
  EXPECT_EQ(log().find("Open failed"), std::string::npos) << log();
}

}  // namespace
}  // namespace tomekeeper::testing
