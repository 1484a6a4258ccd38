// The reading window of the real application under Xvfb as a GNOME user meets it: the names
// that a screen reader speaks, read from the accessibility bus; the bookmark button following
// the page; hidden reading controls that the pointer and Escape bring back; and the window of
// a book asked for again coming forward.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "AccessibilityBus.h"
#include "ApplicationDisplaySupport.h"
#include "support/EpubBuilder.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper::testing {
namespace {

void writeBook(const std::filesystem::path& file, const std::string& identifier,
               const std::string& title) {
  const std::string chapter = proseChapter(
      "One", 40,
      "The long watch on deck went on through the night while the ship held her course and the "
      "wind kept steady from the west.");
  EpubBuilder()
      .withPackageDocument(PackageDescription{
          .identifier = "urn:uuid:" + identifier, .title = title, .creators = {"Author"}}
                               .withChapters(2))
      .replaceFile("OEBPS/chapter1.xhtml", chapter)
      .addFile("OEBPS/chapter2.xhtml", chapter)
      .writeTo(file);
}

// The roles of the elements a person operates.
bool isControl(const AccessibleElement& element) {
  static const std::vector<std::string> roles = {
      "button", "toggle button", "check box",          "radio",           "switch",
      "slider", "spin button",   "text box",           "search box",      "combo box",
      "link",   "menu item",     "menu item checkbox", "menu item radio", "tab"};
  return std::find(roles.begin(), roles.end(), element.role) != roles.end();
}

// What is wrong with a control's name, or empty: none at all, a class name in its place, or
// the same words twice ("Next Chapter Next Chapter", a label and the text of the content).
std::string fault(const AccessibleElement& element) {
  const std::string& name = element.name;
  if (name.empty()) return "has no name";
  static const std::regex className("(Gtk|Adw|WebKit)[A-Za-z]+");
  if (std::regex_match(name, className)) return "is named by its class";
  // The same words at its start and at its end: a label followed by the text of the content.
  std::vector<std::string> words;
  for (std::size_t start = 0; start < name.size();) {
    const std::size_t end = std::min(name.find(' ', start), name.size());
    words.push_back(name.substr(start, end - start));
    start = end + 1;
  }
  for (std::size_t count = 1; count < words.size(); ++count) {
    if (std::equal(words.begin(), words.begin() + static_cast<long>(count),
                   words.end() - static_cast<long>(count))) {
      return "says its name twice";
    }
  }
  return "";
}

std::string describe(const std::vector<AccessibleElement>& elements) {
  std::string text;
  for (const AccessibleElement& element : elements) {
    text += element.role + " \"" + element.name + "\"\n";
  }
  return text;
}

class ReadingWindowApplicationDisplayTest : public ApplicationDisplayFixture {
 protected:
  void SetUp() override {
    if (const auto missing = missingForApplicationDisplay({"xdotool", "gdbus"}); !missing.empty()) {
      GTEST_SKIP() << missing;
    }
  }

  std::filesystem::path book(const std::string& title) {
    static const char* identifiers[] = {"5d0c8e4a-1b7f-4a2e-9c3d-6e8f0a1b2c3d",
                                        "7a2e4c6b-3d5f-4b8a-8e1c-0f2a4b6c8d0e",
                                        "9c4e6a8d-5f7b-4d0c-a2e3-1b4d6f8a0c2e"};
    const std::filesystem::path file = home / "books" / (title + ".epub");
    if (!std::filesystem::exists(file)) writeBook(file, identifiers[bookCount++ % 3], title);
    return file;
  }

  // The controls of process `pid` whose names are at fault, once its tree shows `expected`.
  std::vector<std::string> faultyControls(GPid pid, const std::string& expected) {
    std::vector<AccessibleElement> elements;
    waitUntil([&] {
      elements = accessibility->elementsOf(pid);
      for (const AccessibleElement& element : elements) {
        if (element.name == expected) return true;
      }
      return false;
    });
    std::vector<std::string> faults;
    for (const AccessibleElement& element : elements) {
      if (!isControl(element)) continue;
      const std::string why = fault(element);
      if (!why.empty()) faults.push_back(element.role + " \"" + element.name + "\" " + why);
    }
    if (!faults.empty()) ADD_FAILURE() << describe(elements);
    return faults;
  }

  std::unique_ptr<AccessibilityBus> accessibility;
  int bookCount = 0;
};

TEST_F(ReadingWindowApplicationDisplayTest, EveryControlHasOneNameThatSaysWhatItDoes) {
  accessibility = AccessibilityBus::connect();
  if (!accessibility) GTEST_SKIP() << "needs the accessibility bus (at-spi-bus-launcher)";
  {
    SCOPED_TRACE("the empty window");
    ApplicationProcess application(home, {}, logFile);
    EXPECT_EQ(faultyControls(application.pid(), "Main Menu"), std::vector<std::string>{});
  }
  ApplicationProcess application(home, {book("Alpha").string()}, logFile);
  ASSERT_FALSE(waitForFingerprintAfter().empty()) << log();
  ASSERT_TRUE(activateWindowAction(1, "show-sidebar-section", "'contents'"));
  struct Panel {
    const char* action;
    const char* shownControl;  // a control of the panel, named once it is up
  };
  for (const Panel& panel :
       {Panel{"search", "Search"}, Panel{"toggle-fonts", "Restore All Book Typography"}}) {
    SCOPED_TRACE(panel.action);
    ASSERT_TRUE(activateWindowAction(1, panel.action));
    EXPECT_EQ(faultyControls(application.pid(), panel.shownControl), std::vector<std::string>{});
    ASSERT_TRUE(activateWindowAction(1, panel.action));
  }
}

// One launch for two behaviours of the page's chrome: the bookmark button follows the page, and
// hidden reading controls come back by the pointer, a panel and Escape.
TEST_F(ReadingWindowApplicationDisplayTest,
       TheBookmarkButtonFollowsThePageAndHiddenControlsComeBack) {
  ApplicationProcess application(home, {book("Alpha").string()}, logFile);
  const std::string fingerprint = waitForFingerprintAfter();
  ASSERT_FALSE(fingerprint.empty()) << log();
  {
    SCOPED_TRACE("TheBookmarkButtonFollowsThePage");
    const std::string says = "Bookmark button of " + fingerprint + " says ";
    ASSERT_TRUE(activateWindowAction(1, "toggle-bookmark"));
    ASSERT_TRUE(waitForLog(says + "Remove Bookmark")) << log();
    ASSERT_TRUE(activateWindowAction(1, "next-page"));
    ASSERT_TRUE(waitForLog(says + "Add Bookmark")) << log();
    ASSERT_TRUE(activateWindowAction(1, "previous-page"));
    EXPECT_TRUE(waitForLog(says + "Remove Bookmark", 2)) << log();
  }
  SCOPED_TRACE("HiddenControlsComeBackByPointerPanelAndEscape");
  const std::string window = visibleWindowOf(application.pid());
  ASSERT_FALSE(window.empty());
  const std::string controls = "Reading controls of " + fingerprint + " are ";

  ASSERT_TRUE(typeInto(application.pid(), {"ctrl+shift+f"}));
  ASSERT_TRUE(waitForLog(controls + "hidden\n")) << log();
  // Up to the top edge of the page, as a hand moves. (The top 5 pixels of the window are the
  // frame that GTK keeps around its content without a window manager: 7 is the page's 2.)
  for (const int y : {300, 40, 12, 7}) {
    ASSERT_TRUE(
        runTool({"xdotool", "mousemove", "--window", window, "--sync", "300", std::to_string(y)}));
  }
  ASSERT_TRUE(waitForLog(controls + "hidden, header revealed")) << log();
  ASSERT_TRUE(runTool({"xdotool", "mousemove", "--window", window, "--sync", "300", "400"}));
  ASSERT_TRUE(waitForLog(controls + "hidden\n", 2)) << log();

  // The search panel brings the header bar it hangs from.
  ASSERT_TRUE(typeInto(application.pid(), {"ctrl+f"}));
  ASSERT_TRUE(waitForLog(controls + "hidden, header revealed", 2)) << log();
  // Closing it takes the header bar away again (Escape in its field would clear the field).
  ASSERT_TRUE(activateWindowAction(1, "search"));
  ASSERT_TRUE(waitForLog(controls + "hidden\n", 3)) << log();
  // The keys go to the process's first visible X window: not to the closing panel's.
  ASSERT_TRUE(waitUntil([&] {
    std::string windows;
    runTool({"xdotool", "search", "--all", "--onlyvisible", "--pid",
             std::to_string(application.pid()), "--name", "."},
            &windows);
    return occurrences(windows, "\n") == 1;
  }));
  // On a loaded machine the X server may hand the keyboard focus back to the window some time
  // after the panel's window went, and a key sent before then is lost: Escape is sent again,
  // a few seconds apart, until the log says the controls came back.
  bool shown = false;
  for (int attempt = 0; attempt < 10 && !shown; ++attempt) {
    ASSERT_TRUE(typeInto(application.pid(), {"Escape"}));
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    while (!shown && std::chrono::steady_clock::now() < deadline) {
      shown = occurrences(log(), controls + "shown") >= 1;
      if (!shown) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
  }
  EXPECT_TRUE(shown) << log();
}

// The book asked for again, from the file manager or Open Recent, while another of the three
// open books is in use: one launch, one request after the other.
TEST_F(ReadingWindowApplicationDisplayTest, TheRequestedBooksWindowComesForward) {
  const std::vector<std::string> titles = {"Alpha", "Beta", "Gamma"};
  const struct {
    const char* name;
    int inUse;
    int requested;
    bool fromOpenRecent;
  } requests[] = {
      {"FirstFromTheFileManager", 2, 0, false},
      {"SecondFromTheFileManager", 0, 1, false},
      {"FirstFromOpenRecent", 2, 0, true},
  };
  auto focusedTitle = [] {
    std::string title;
    runTool({"xdotool", "getwindowfocus", "getwindowname"}, &title);
    return title.substr(0, title.find('\n'));
  };
  // As the file manager asks for a book: org.freedesktop.Application.Open.
  auto openFromFileManager = [](const std::filesystem::path& file) {
    char* uri = g_filename_to_uri(file.c_str(), nullptr, nullptr);
    const std::string files = std::string("['") + uri + "']";
    g_free(uri);
    return runTool({"gdbus", "call", "--session", "--dest", "org.tomekeeper.Tomekeeper",
                    "--object-path", "/org/tomekeeper/Tomekeeper", "--method",
                    "org.freedesktop.Application.Open", files, "{}"});
  };
  // The X window of process `pid` titled `title`, given the focus as a click would give it.
  auto focusWindowTitled = [](GPid pid, const std::string& title) {
    std::string windows;
    runTool({"xdotool", "search", "--all", "--onlyvisible", "--pid", std::to_string(pid), "--name",
             "."},
            &windows);
    std::istringstream lines(windows);
    for (std::string window; std::getline(lines, window);) {
      std::string name;
      runTool({"xdotool", "getwindowname", window}, &name);
      if (name.substr(0, name.find('\n')) == title) {
        return runTool({"xdotool", "windowfocus", "--sync", window});
      }
    }
    return false;
  };
  ApplicationProcess application(home, {book(titles[0]).string()}, logFile);
  for (int index = 0; index < 3; ++index) {
    if (index > 0) ASSERT_TRUE(openFromFileManager(book(titles[index])));
    ASSERT_TRUE(waitForLog("Reader of ", index + 1)) << log();
  }
  for (const auto& request : requests) {
    SCOPED_TRACE(request.name);
    const std::string inUse = titles[request.inUse] + " \u2014 Author";
    ASSERT_TRUE(waitUntil([&] { return focusWindowTitled(application.pid(), inUse); }));
    ASSERT_EQ(focusedTitle(), inUse);
    const std::filesystem::path requested = book(titles[request.requested]);
    if (request.fromOpenRecent) {
      ASSERT_TRUE(runTool({"gdbus", "call", "--session", "--dest", "org.tomekeeper.Tomekeeper",
                           "--object-path", "/org/tomekeeper/Tomekeeper", "--method",
                           "org.gtk.Actions.Activate", "open-recent",
                           "[<'" + requested.string() + "'>]", "{}"}));
    } else {
      ASSERT_TRUE(openFromFileManager(requested));
    }
    const std::string expected = titles[request.requested] + " \u2014 Author";
    // A window presented after it, in the same turn of the main loop, would take the focus
    // back before this could see it.
    EXPECT_TRUE(waitUntil([&] { return focusedTitle() == expected; })) << focusedTitle();
  }
  // No request opened a window of its own.
  EXPECT_EQ(occurrences(log(), "Opened the window of"), 3u) << log();
}

}  // namespace
}  // namespace tomekeeper::testing
