// A highlight and its note in the real application under Xvfb: text selected in the page with
// the mouse, the "Highlight" callout, the sidebar's list and the note editor with its limit.
// The widgets are read as the desktop's accessibility tools read them, from the application's
// tree on the accessibility bus; the mouse and the keys go through the X server.
#include <gio/gio.h>
#include <glib.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "AccessibilityBus.h"
#include "ApplicationDisplaySupport.h"
#include "support/EpubBuilder.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper::testing {
namespace {

// The only annotation of the book in a parsed annotations.json; null while there is none.
const nlohmann::json* storedAnnotation(const nlohmann::json& store) {
  if (!store.is_object() || !store.contains("annotationsByFingerprint")) return nullptr;
  for (const auto& [fingerprint, annotations] : store["annotationsByFingerprint"].items()) {
    if (annotations.is_array() && annotations.size() == 1) return &annotations[0];
  }
  return nullptr;
}

enum class AnnotationNoteLength { atLimit, overLimit };

// A note of 4000 or 4001 characters, each one grapheme cluster a key types; neither length
// ends in white space, which the save would trim.
std::string noteText(AnnotationNoteLength length) {
  std::string text;
  while (text.size() < 4001) text += "a calm sea and a fair wind. ";
  text.resize(length == AnnotationNoteLength::atLimit ? 4000 : 4001);
  return text;
}

class HighlightNoteApplicationDisplayTest : public ApplicationDisplayFixture {
 protected:
  void SetUp() override {
    if (const auto missing = missingForApplicationDisplay({"xdotool", "gdbus"}); !missing.empty()) {
      GTEST_SKIP() << missing;
    }
    accessibility = AccessibilityBus::connect();
    if (!accessibility) GTEST_SKIP() << "needs the accessibility bus (at-spi-bus-launcher)";
    // One chapter of long paragraphs that fill the page, so that a click in its middle is on
    // text.
    std::string paragraph;
    for (int sentence = 0; sentence < 8; ++sentence) {
      paragraph +=
          "The watch on deck kept the ship to the wind while the long swell rolled under her "
          "keel. ";
    }
    EpubBuilder()
        .withPackageDocument(
            PackageDescription{.identifier = "urn:uuid:3c9a51e0-7d2b-4b8e-a6f4-5e1d0c2b9a84",
                               .title = "Title",
                               .creators = {"Author"}}
                .withChapters(1))
        .replaceFile("OEBPS/chapter1.xhtml",
                     proseChapter("One", 12, paragraph, ChapterHeading::none))
        .writeTo(book);
  }

  std::vector<AccessibleElement> elements() {
    return accessibility->elementsOf(application->pid());
  }

  // Waits until an element of this role and name is presented and answers it.
  std::optional<AccessibleElement> waitForElement(const std::string& role,
                                                  const std::string& name) {
    return tomekeeper::testing::waitForElement(*accessibility, application->pid(), role, name);
  }

  // The X window of the note editor's dialog; empty when it is not shown.
  static std::string noteEditorWindow() {
    std::string output;
    runTool({"xdotool", "search", "--onlyvisible", "--name", "^Note$"}, &output);
    return output.substr(0, output.find('\n'));
  }

  // Focuses the note editor's window and runs the xdotool command `keys` ("type ..." or
  // "key ...") in it, through the X server as a person's keys.
  static bool typeIntoNoteEditor(std::vector<std::string> keys) {
    std::vector<std::string> command = {"xdotool", "search",      "--onlyvisible", "--name",
                                        "^Note$",  "windowfocus", "--sync",        "%1"};
    command.insert(command.end(), keys.begin(), keys.end());
    return runTool(std::move(command));
  }

  // Saves a picture of what the screen shows over X window `window` (the reader window with the
  // note editor's dialog on it) as <name>.png in $TOMEKEEPER_SCREENSHOT_DIRECTORY, when that is
  // set; otherwise does nothing. For the documentation, never for assertions.
  static void saveScreenshot(const std::string& window, const std::string& name) {
    const char* directory = std::getenv("TOMEKEEPER_SCREENSHOT_DIRECTORY");
    if (directory == nullptr || *directory == '\0') return;
    const std::optional<WindowSize> size = sizeOfWindow(window);
    if (!size) return;
    std::filesystem::create_directories(directory);
    // Without a window manager every window stands at the screen's corner.
    runTool({"import", "-window", "root", "-crop",
             std::to_string(size->width) + "x" + std::to_string(size->height) + "+0+0",
             (std::filesystem::path(directory) / (name + ".png")).string()});
  }

  // The presented elements, one a line, for the message of a failed expectation.
  std::string dump() { return describeElements(*accessibility, application->pid()); }

  std::filesystem::path book = home / "books" / "book.epub";
  std::unique_ptr<AccessibilityBus> accessibility;
  std::unique_ptr<ApplicationProcess> application;
};

TEST_F(HighlightNoteApplicationDisplayTest,
       SelectedTextIsHighlightedAndItsNoteIsRefusedAboveTheLimitAndSavedAtIt) {
  application =
      std::make_unique<ApplicationProcess>(home, std::vector<std::string>{book.string()}, logFile);
  const std::string fingerprint = waitForFingerprintAfter();
  ASSERT_FALSE(fingerprint.empty()) << log();
  // One column across the page, so that the middle of the window is on a line of text.
  ASSERT_TRUE(activateWindowAction(1, "page-layout", "'singlePage'"));
  ASSERT_TRUE(waitForLog("Page layout of " + fingerprint + " is singlePage")) << log();
  EXPECT_FALSE(find(elements(), "button", "Highlight").has_value()) << dump();

  // A triple click selects the paragraph under the pointer; the runtime reports the selection
  // and the callout comes up at it.
  const std::string window = visibleWindowOf(application->pid());
  ASSERT_FALSE(window.empty());
  ASSERT_TRUE(clickMiddleOf(window, 3));
  const std::optional<AccessibleElement> callout = waitForElement("button", "Highlight");
  ASSERT_TRUE(callout.has_value()) << dump();
  ASSERT_TRUE(accessibility->performAction(callout->reference));

  ASSERT_TRUE(waitForLog("Highlights of " + fingerprint + ": 1")) << log();
  const std::filesystem::path annotationsFile =
      home / "data" / "tomekeeper" / "Publications" / fingerprint / "annotations.json";
  nlohmann::json stored;
  ASSERT_TRUE(waitUntil([&] {
    stored = nlohmann::json::parse(readFile(annotationsFile), nullptr, false);
    return storedAnnotation(stored) != nullptr;
  })) << readFile(annotationsFile);
  const std::string annotationID = storedAnnotation(stored)->at("id").get<std::string>();
  const std::string selectedText = storedAnnotation(stored)->at("selectedText").get<std::string>();
  EXPECT_NE(selectedText.find("The watch on deck kept the ship to the wind"), std::string::npos)
      << selectedText;
  // The drawn highlight takes the selection away, and the callout with it.
  EXPECT_TRUE(waitUntil([&] { return !find(elements(), "button", "Highlight").has_value(); }))
      << dump();

  ASSERT_TRUE(activateWindowAction(1, "show-sidebar-section", "'highlights'"));
  EXPECT_TRUE(waitForElement("label", selectedText).has_value()) << dump();

  // The note editor of that highlight, its count and its Done button.
  ASSERT_TRUE(activateWindowAction(1, "edit-note", "'" + annotationID + "'"));
  ASSERT_TRUE(waitForElement("label", "0 / 4000").has_value()) << dump();
  // A small sheet over the book, however long the highlighted passage it quotes.
  const std::optional<WindowSize> readerSize = sizeOfWindow(window);
  const std::optional<WindowSize> editorSize = sizeOfWindow(noteEditorWindow());
  ASSERT_TRUE(readerSize && editorSize);
  EXPECT_LT(editorSize->width, readerSize->width);
  const std::string tooLong = noteText(AnnotationNoteLength::overLimit);
  ASSERT_TRUE(typeIntoNoteEditor({"type", "--delay", "2", tooLong}));
  ASSERT_TRUE(waitForElement("label", "4001 / 4000").has_value()) << dump();
  std::optional<AccessibleElement> done = find(elements(), "button", "Done");
  ASSERT_TRUE(done.has_value()) << dump();
  EXPECT_FALSE(done->has(kStateSensitive));
  saveScreenshot(window, "note-editor-over-book");

  // One character less: at the limit, Done is offered again and saves the note.
  ASSERT_TRUE(typeIntoNoteEditor({"key", "BackSpace"}));
  ASSERT_TRUE(waitForElement("label", "4000 / 4000").has_value()) << dump();
  done = find(elements(), "button", "Done");
  ASSERT_TRUE(done.has_value()) << dump();
  EXPECT_TRUE(done->has(kStateSensitive));
  ASSERT_TRUE(accessibility->performAction(done->reference));

  const std::string note = noteText(AnnotationNoteLength::atLimit);
  EXPECT_TRUE(waitUntil([&] {
    stored = nlohmann::json::parse(readFile(annotationsFile), nullptr, false);
    const nlohmann::json* annotation = storedAnnotation(stored);
    return annotation != nullptr && annotation->value("note", "") == note;
  })) << readFile(annotationsFile);
  EXPECT_TRUE(waitUntil([&] { return !find(elements(), "label", "4000 / 4000").has_value(); }))
      << "the note editor stayed open";
  // The sidebar's row shows the note under the excerpt, and the editor opens on it again.
  EXPECT_TRUE(waitForElement("label", note).has_value()) << dump();
  ASSERT_TRUE(activateWindowAction(1, "edit-note", "'" + annotationID + "'"));
  EXPECT_TRUE(waitForElement("label", "4000 / 4000").has_value()) << dump();
}

}  // namespace
}  // namespace tomekeeper::testing
