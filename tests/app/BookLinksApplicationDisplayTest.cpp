// A book's own links in the real application under Xvfb: a link to another chapter is followed in
// the reader and Alt+Left comes back; a link out of the book asks first, and a hostile book (every
// way out that a page has) reaches nothing. A web server on the loopback
// address hears every request; the desktop's handler for web addresses is, for the test, curl.
#include <gio/gio.h>
#include <glib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "AccessibilityBus.h"
#include "ApplicationDisplaySupport.h"
#include "support/EpubBuilder.h"
#include "support/HostileBook.h"
#include "support/LoopbackListener.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper::testing {
namespace {

// A chapter whose first element is a link that covers the page, so that a click in the middle of
// the window follows it, and whose paragraphs are numbered (`c<chapter>p<n>`).
std::string chapter(int number, const std::string& link = "") {
  std::string body;
  if (!link.empty()) {
    body += "<p><a href=\"" + link +
            "\" style=\"display: block; height: 90vh\">Onward, past the shelves</a></p>\n";
  }
  for (int paragraph = 0; paragraph < 12; ++paragraph) {
    body += "<p id=\"c" + std::to_string(number) + "p" + std::to_string(paragraph) +
            "\">The keeper of tomes counted the shelves of the long corridor.</p>\n";
  }
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<html xmlns=\"http://www.w3.org/1999/xhtml\"><head><title>Chapter</title></head>\n"
         "<body>\n" +
         body + "</body></html>\n";
}

class BookLinksApplicationDisplayTest : public ApplicationDisplayFixture {
 protected:
  void SetUp() override {
    const auto missing = missingForApplicationDisplay({"xdotool", "gdbus", "curl"});
    if (!missing.empty()) GTEST_SKIP() << missing;
    accessibility = AccessibilityBus::connect();
    if (!accessibility) GTEST_SKIP() << "needs the accessibility bus (at-spi-bus-launcher)";
    installWebHandler();
  }

  // The desktop's default handler for http addresses, in the application's own directories:
  // curl, so that an address the reader agreed to open reaches the listener.
  void installWebHandler() {
    std::filesystem::create_directories(home / "data" / "applications");
    std::filesystem::create_directories(home / "config");
    std::ofstream(home / "data" / "applications" / "fetch-link.desktop")
        << "[Desktop Entry]\nType=Application\nName=Fetch Link\nExec=curl --silent %u\n"
           "MimeType=x-scheme-handler/http;\nNoDisplay=true\n";
    std::ofstream(home / "config" / "mimeapps.list")
        << "[Default Applications]\nx-scheme-handler/http=fetch-link.desktop\n";
  }

  void start() {
    application = std::make_unique<ApplicationProcess>(
        home, std::vector<std::string>{book.string()}, logFile);
    ASSERT_TRUE(waitUntil([&] { return !visibleWindowOf(application->pid()).empty(); })) << log();
  }

  // Clicks the middle of the application's window, where each chapter's link lies.
  bool clickTheMiddle() { return clickMiddleOf(visibleWindowOf(application->pid())); }

  // The button of the consent dialog whose label is `label` (a response button's accessible name
  // repeats its label).
  std::optional<AccessibleElement> waitForDialogButton(const std::string& label) {
    std::optional<AccessibleElement> found;
    waitUntil([&] {
      for (const AccessibleElement& element : accessibility->elementsOf(application->pid())) {
        if (element.role == "button" && element.name.rfind(label, 0) == 0) {
          found = element;
          return true;
        }
      }
      return false;
    });
    return found;
  }

  // Turns pages with the window action `action` until the saved place is in `section`.
  bool turnPagesUntil(const std::string& action, const std::string& section) {
    for (int turn = 0; turn < 8; ++turn) {
      const std::string before = savedPositions();
      if (!activateWindowAction(1, action)) return false;
      waitUntil([&] { return savedPositions() != before; });
      if (savedPositions().find(section) != std::string::npos) return true;
    }
    return false;
  }

  bool dialogIsShown() {
    return find(accessibility->elementsOf(application->pid()), "dialog", "Open Link?").has_value();
  }

  // Whether the reader's window is the only one the X server shows of the application: a click
  // meant for the page would otherwise go to the middle of a dialog still on its way out.
  bool onlyTheReaderWindowIsShown() {
    std::string output;
    runTool({"xdotool", "search", "--all", "--onlyvisible", "--pid",
             std::to_string(application->pid()), "--name", "."},
            &output);
    return std::count(output.begin(), output.end(), '\n') == 1;
  }

  std::filesystem::path book = home / "books" / "book.epub";
  std::unique_ptr<AccessibilityBus> accessibility;
  std::unique_ptr<ApplicationProcess> application;
};

TEST_F(BookLinksApplicationDisplayTest, ALinkIsFollowedInTheReaderAndAltLeftComesBack) {
  EpubBuilder()
      .withPackageDocument(
          PackageDescription{.identifier = "urn:uuid:5e1c7a2d-8b3f-4c6e-9d0a-2f4b6c8e0a13",
                             .title = "Linked",
                             .creators = {"Author"}}
              .withChapters(2))
      .replaceFile("OEBPS/chapter1.xhtml", chapter(1, "chapter2.xhtml#c2p9"))
      .addFile("OEBPS/chapter2.xhtml", chapter(2))
      .writeTo(book);
  start();
  ASSERT_TRUE(waitForLog(" is ready")) << log();
  ASSERT_TRUE(clickTheMiddle());
  EXPECT_TRUE(waitForSavedPosition("chapter2.xhtml")) << savedPositions() << log();
  // Back is a window action with its key; the place before the link comes back and is saved.
  ASSERT_TRUE(typeInto(application->pid(), {"alt+Left"}));
  EXPECT_TRUE(waitForSavedPosition("chapter1.xhtml")) << savedPositions() << log();
  ASSERT_TRUE(typeInto(application->pid(), {"alt+Right"}));
  EXPECT_TRUE(waitForSavedPosition("chapter2.xhtml")) << savedPositions() << log();
}

TEST_F(BookLinksApplicationDisplayTest, AHostileBookReachesNothingAndAWebLinkOpensOnlyOnConsent) {
  LoopbackListener listener;
  // The hostile chapter ends with a web link that covers its last page.
  std::ofstream(book, std::ios::binary)
      << hostileBook(listener.url(""), "",
                     "<p style=\"break-before: column\"><a href=\"@web/link\" "
                     "style=\"display: block; height: 90vh\">Out to the web</a></p>");
  start();
  ASSERT_TRUE(waitForLog(" is ready")) << log();
  // The SVG and XML items are never framed: the book opens on its first chapter. Both chapters
  // are shown, each with all it tries.
  ASSERT_TRUE(turnPagesUntil("next-page", "chapter2.xhtml")) << savedPositions() << log();
  ASSERT_TRUE(turnPagesUntil("previous-page", "chapter1.xhtml")) << savedPositions() << log();

  // Back on the chapter's last page, a click on the web link asks first; Cancel opens nothing.
  ASSERT_TRUE(clickTheMiddle());
  std::optional<AccessibleElement> cancel = waitForDialogButton("Cancel");
  ASSERT_TRUE(cancel.has_value()) << log();
  ASSERT_TRUE(accessibility->performAction(cancel->reference));
  ASSERT_TRUE(waitUntil([&] { return !dialogIsShown() && onlyTheReaderWindowIsShown(); }));
  // Asked again, the reader agrees: the one request the listener hears is the link's, the
  // sentinel after which anything the book or the refused link sent would have arrived.
  ASSERT_TRUE(clickTheMiddle());
  std::optional<AccessibleElement> open = waitForDialogButton("Open Link");
  ASSERT_TRUE(open.has_value()) << log();
  ASSERT_TRUE(accessibility->performAction(open->reference));
  ASSERT_TRUE(waitUntil([&] {
    listener.serve();
    return std::find(listener.paths().begin(), listener.paths().end(), "/link") !=
           listener.paths().end();
  })) << log();
  EXPECT_EQ(listener.paths(), std::vector<std::string>{"/link"});
}

}  // namespace
}  // namespace tomekeeper::testing
