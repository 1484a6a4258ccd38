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

TEST_F(LibraryApplicationDisplayTest, TheLayoutAndSortOrderChosenComeBackAtTheNextStart) {
  std::optional<ApplicationProcess> application;
  openAndClose(first, application);
  openAndClose(second, application);
  application.reset();
  const auto startAndShowLibrary = [&] {
    const std::size_t before = occurrences(log(), "Library shows 2 books");
    application.emplace(home, std::vector<std::string>{}, logFile, SettingsStorage::keyFile);
    return waitUntil([&] { return occurrences(log(), "Library shows 2 books") > before; });
  };
  // Whether the books are a list by title (the first book before the second) or, as by
  // default, a grid by last read (the second book, read last, before the first).
  const auto listedByTitle = [&](bool expected) {
    return treeShows(application->pid(), [&](const std::vector<std::string>& names) {
      const auto firstAt = std::find(names.begin(), names.end(), "First Book");
      const auto secondAt = std::find(names.begin(), names.end(), "Second Book");
      const std::vector<AccessibleElement> elements = accessibility->elementsOf(application->pid());
      // The hidden layout's view stays in the tree, but only the shown one holds items.
      const bool list = std::none_of(elements.begin(), elements.end(), [](const auto& element) {
        return element.role == "grid cell";
      });
      return firstAt != names.end() && secondAt != names.end() && list == expected &&
             (firstAt < secondAt) == expected;
    });
  };
  ASSERT_TRUE(startAndShowLibrary()) << log();
  EXPECT_TRUE(listedByTitle(false));
  // The choices as a person makes them: the list button, then the sort menu's Title (a menu
  // button is two elements of that name, of which its inner button clicks).
  for (const char* control : {"Show as List", "Sort", "Title"}) {
    SCOPED_TRACE(control);
    ASSERT_TRUE(waitUntil([&] {
      for (const AccessibleElement& element : accessibility->elementsOf(application->pid())) {
        if (element.name == control && accessibility->performAction(element.reference)) {
          return true;
        }
      }
      return false;
    }));
  }
  const std::filesystem::path keyFile = home / "config/glib-2.0/settings/keyfile";
  ASSERT_TRUE(waitUntil([&] {
    const std::string stored = readFile(keyFile);
    return occurrences(stored, "library-layout='list'") == 1 &&
           occurrences(stored, "library-sort='title'") == 1;
  })) << readFile(keyFile);
  application.reset();
  ASSERT_TRUE(startAndShowLibrary()) << log();
  EXPECT_TRUE(listedByTitle(true));
}

}  // namespace
}  // namespace tomekeeper::testing
