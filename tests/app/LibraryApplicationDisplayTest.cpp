// The library of the real application under Xvfb: books opened and closed come back in the
// window that takes the place of the empty open window, read from the accessibility bus as a
// screen reader reads them, and typed into as a person types.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "AccessibilityBus.h"
#include "ApplicationDisplaySupport.h"
#include "support/EpubBuilder.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper::testing {
namespace {

struct Book {
  std::string title;
  std::string author;
  std::filesystem::path file;
  std::string windowTitle() const { return title + " \u2014 " + author; }
};

class LibraryApplicationDisplayTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!hasDisplay()) GTEST_SKIP() << "needs a display (run under xvfb-run)";
    if (!hasProgram("xdotool")) GTEST_SKIP() << "needs xdotool";
    accessibility = AccessibilityBus::connect();
    if (!accessibility) GTEST_SKIP() << "needs the accessibility bus (at-spi-bus-launcher)";
    std::filesystem::create_directories(home / "books");
    int number = 0;
    for (Book* book : {&first, &second}) {
      EpubBuilder()
          .withPackageDocument(PackageDescription{
              .identifier =
                  "urn:uuid:7d0c1b7e-0000-4000-8000-00000000000" + std::to_string(++number),
              .title = book->title,
              .creators = {book->author}}
                                   .withChapters(1))
          .writeTo(book->file);
    }
  }

  std::string log() const { return readFile(logFile); }

  // Opens `book` in the running application (or starts it), waits until its library record is
  // written, and closes its window; the application stays, with no window.
  void openAndClose(const Book& book, std::optional<ApplicationProcess>& running) {
    const std::size_t recorded = occurrences(log(), "Library record of ");
    if (!running) {
      running.emplace(home, std::vector<std::string>{book.file.string()}, logFile);
    } else {
      ApplicationProcess handOver(home, {book.file.string()}, logFile);
      ASSERT_TRUE(handOver.waitForExit().has_value());
    }
    ASSERT_TRUE(waitUntil([&] { return visibleWindowsTitled(book.windowTitle()) == 1; })) << log();
    ASSERT_TRUE(waitUntil([&] { return occurrences(log(), "Library record of ") > recorded; }))
        << log();
    // The window goes while xdotool still talks to it, which it reports as a failure.
    typeInto(running->pid(), {"ctrl+w"});
    ASSERT_TRUE(waitUntil([&] { return visibleWindowsTitled(book.windowTitle()) == 0; }));
  }

  // Asks the running application for its window with no file, as the desktop does: the library.
  void showLibrary(std::size_t books) {
    const std::string shown = "Library shows " + std::to_string(books) + " books";
    const std::size_t before = occurrences(log(), shown);
    ApplicationProcess handOver(home, {}, logFile);
    ASSERT_TRUE(handOver.waitForExit().has_value());
    ASSERT_TRUE(waitUntil([&] { return occurrences(log(), shown) > before; })) << log();
  }

  // Whether the names of the elements of process `pid`'s tree come to satisfy `holds` within
  // the patience.
  bool treeShows(GPid pid, const std::function<bool(const std::vector<std::string>&)>& holds) {
    return waitUntil([&] {
      std::vector<std::string> names;
      for (const AccessibleElement& element : accessibility->elementsOf(pid)) {
        names.push_back(element.name);
      }
      return holds(names);
    });
  }

  static bool has(const std::vector<std::string>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
  }

  TemporaryDirectory home;
  std::filesystem::path logFile = home / "application.log";
  std::unique_ptr<AccessibilityBus> accessibility;
  Book first{"First Book", "Ada Author", home / "books" / "first.epub"};
  Book second{"Second Book", "Bob Writer", home / "books" / "second.epub"};
};

TEST_F(LibraryApplicationDisplayTest, BooksOpenedAndClosedAppearAndTheSearchOpensTheOneItFinds) {
  std::optional<ApplicationProcess> application;
  openAndClose(first, application);
  openAndClose(second, application);
  showLibrary(2);
  const GPid pid = application->pid();
  ASSERT_TRUE(treeShows(pid, [](const std::vector<std::string>& names) {
    return has(names, "First Book") && has(names, "Second Book") && has(names, "Ada Author");
  }));

  // Typing anywhere in the library goes to its search field.
  ASSERT_TRUE(typeInto(pid, {"b", "o", "b"}));
  EXPECT_TRUE(treeShows(pid, [](const std::vector<std::string>& names) {
    return has(names, "Second Book") && !has(names, "First Book");
  }));
  // Enter in the search field opens the book it found, through the open road.
  ASSERT_TRUE(typeInto(pid, {"Return"}));
  EXPECT_TRUE(waitUntil([&] { return visibleWindowsTitled(second.windowTitle()) == 1; })) << log();
}

TEST_F(LibraryApplicationDisplayTest, ABookWhoseFileWasRemovedShowsAsUnavailable) {
  std::optional<ApplicationProcess> application;
  openAndClose(first, application);
  openAndClose(second, application);
  std::filesystem::remove(first.file);
  showLibrary(2);
  EXPECT_TRUE(treeShows(application->pid(), [](const std::vector<std::string>& names) {
    bool firstIsUnavailable = false;
    bool secondIsAvailable = false;
    for (const std::string& name : names) {
      if (name.starts_with("First Book, by Ada Author, 0% read, Last read ")) {
        firstIsUnavailable = name.ends_with(", unavailable");
      }
      if (name.starts_with("Second Book, by Bob Writer, ")) {
        secondIsAvailable = !name.ends_with(", unavailable");
      }
    }
    return firstIsUnavailable && secondIsAvailable && has(names, "Locate\u2026");
  }));
}

}  // namespace
}  // namespace tomekeeper::testing
