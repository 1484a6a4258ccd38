// Highlights carried to a new edition in the real application under Xvfb: edition 1 is opened
// (which records its identifier and title) and given three highlights in its store; edition 2,
// with the same identifier and title, a section and a paragraph inserted and one paragraph
// removed, asks "Carry Over Your Highlights?". The question and the sidebar are read from the
// application's tree on the accessibility bus; the stores from disk. The same book's "Restore
// Reading Data…" and "Export Highlights…" are read here too.
#include <gio/gio.h>
#include <glib.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "AccessibilityBus.h"
#include "ApplicationDisplaySupport.h"
#include "support/EpubBuilder.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper::testing {
namespace {

const std::string kWorld =
    "Call me Ishmael. Some years ago, never mind how long precisely, having little or no money "
    "in my purse, I thought I would sail about and see the watery part of the world.";
const std::string kBattery =
    "Its extreme downtown is the battery, where that noble mole is washed by waves, and cooled "
    "by breezes, which a few hours previous were out of sight of land.";
const std::string kSpleen =
    "It is a way I have of driving off the spleen and regulating the circulation, whenever I "
    "find myself growing grim about the mouth.";
const std::string kPool =
    "Take almost any path you please, and ten to one it carries you down in a dale, and leaves "
    "you there by a pool in the stream.";

constexpr const char* kQuestion = "Carry Over Your Highlights?";

std::string section(const std::vector<std::string>& paragraphs) {
  std::string body;
  for (const std::string& paragraph : paragraphs) body += "<p>" + paragraph + "</p>\n";
  return R"(<?xml version="1.0" encoding="UTF-8"?>
<html xmlns="http://www.w3.org/1999/xhtml"><head><title>Loomings</title></head>
<body>
)" + body +
         "</body></html>\n";
}

// One edition of the book: its sections in reading order, chapter1.xhtml first.
void writeEdition(const std::filesystem::path& file,
                  const std::vector<std::vector<std::string>>& sections) {
  PackageDescription package{.identifier = "urn:uuid:0f5e2a7c-3b1d-4c9e-8a6f-2d7b9e1c4a53",
                             .title = "Loomings",
                             .creators = {"Author"}};
  package.withChapters(static_cast<int>(sections.size()));
  EpubBuilder builder;
  builder.withPackageDocument(package).replaceFile("OEBPS/chapter1.xhtml", section(sections[0]));
  for (std::size_t index = 1; index < sections.size(); ++index) {
    builder.addFile("OEBPS/chapter" + std::to_string(index + 1) + ".xhtml",
                    section(sections[index]));
  }
  builder.writeTo(file);
}

// A stored highlight of `selected` in `paragraph` of section `spineIndex`, with the excerpt the
// reader runtime records: up to 32 characters before, 48 from its start, 32 after those.
nlohmann::json storedHighlight(const std::string& id, const std::string& fingerprint,
                               int spineIndex, const std::string& paragraph,
                               const std::string& selected, const std::string& note) {
  const std::size_t at = paragraph.find(selected);
  EXPECT_NE(at, std::string::npos) << selected;
  const std::size_t prefixStart = at < 32 ? 0 : at - 32;
  nlohmann::json excerpt = {{"exact", paragraph.substr(at, 48)}};
  if (at > prefixStart) excerpt["prefix"] = paragraph.substr(prefixStart, at - prefixStart);
  if (at + 48 < paragraph.size()) excerpt["suffix"] = paragraph.substr(at + 48, 32);
  nlohmann::json highlight = {
      {"id", id},
      {"bookFingerprint", fingerprint},
      {"locator",
       {{"cfi", "epubcfi(/6/" + std::to_string(2 * spineIndex + 2) + "!/4/2/1:0)"},
        {"spineHref", "chapter" + std::to_string(spineIndex + 1) + ".xhtml"},
        {"spineIndex", spineIndex},
        {"sectionProgression", 0.25},
        {"excerpt", excerpt}}},
      {"selectedText", selected},
      {"color", "yellow"},
      {"createdAt", 786000000.0},
      {"modifiedAt", 786000000.0}};
  if (!note.empty()) highlight["note"] = note;
  return highlight;
}

// The highlights of `fingerprint` in a per-book annotations.json; empty when there is none.
nlohmann::json highlightsIn(const std::filesystem::path& store, const std::string& fingerprint) {
  const nlohmann::json parsed = nlohmann::json::parse(readFile(store), nullptr, false);
  if (!parsed.is_object() || !parsed.contains("annotationsByFingerprint")) {
    return nlohmann::json::array();
  }
  return parsed["annotationsByFingerprint"].value(fingerprint, nlohmann::json::array());
}

class EditionCarryOverApplicationDisplayTest : public ::testing::Test {
 protected:
  struct Highlight {
    const char* id;
    int spineIndex;
    const std::string& paragraph;
    std::string selected;
    std::string note;
  };

  void SetUp() override {
    if (!hasDisplay()) GTEST_SKIP() << "needs a display (run under xvfb-run)";
    if (!hasProgram("gdbus")) GTEST_SKIP() << "needs gdbus";
    if (g_getenv("DBUS_SESSION_BUS_ADDRESS") == nullptr) {
      GTEST_SKIP() << "needs a session bus (run under dbus-run-session)";
    }
    accessibility = AccessibilityBus::connect();
    if (!accessibility) GTEST_SKIP() << "needs the accessibility bus (at-spi-bus-launcher)";
    std::filesystem::create_directories(home / "books");
    writeEdition(firstEdition, {{kWorld, kBattery, kSpleen}, {kPool}});
    // A new first section and a new paragraph; the battery's paragraph is gone.
    writeEdition(secondEdition, {{"A note on this edition, which is new."},
                                 {kWorld, "An inserted paragraph, new in this edition.", kSpleen},
                                 {kPool}});
  }

  // Starts the application on `book` with a log of its own and waits until the book is ready;
  // gives its fingerprint.
  std::string openBook(const std::filesystem::path& book) {
    application.reset();
    logFile = home / ("application-" + std::to_string(++launches) + ".log");
    application = std::make_unique<ApplicationProcess>(
        home, std::vector<std::string>{book.string()}, logFile);
    std::string fingerprint;
    const std::string prefix = "Reader of ";
    EXPECT_TRUE(waitUntil([&] {
      const std::string text = log();
      const std::size_t at = text.find(prefix);
      if (at == std::string::npos || text.find(" is ready", at) == std::string::npos) return false;
      fingerprint = text.substr(at + prefix.size(), 64);
      return true;
    })) << log();
    return fingerprint;
  }

  // Opens edition 1, so that its identifier and title are recorded, and, with the application
  // ended, gives it `seeded` in its store. Gives its fingerprint.
  std::string readFirstEdition(const std::vector<Highlight>& seeded) {
    const std::string fingerprint = openBook(firstEdition);
    EXPECT_TRUE(waitUntil(
        [&] { return std::filesystem::exists(publications / fingerprint / "publication.json"); }));
    application.reset();
    nlohmann::json stored = nlohmann::json::array();
    for (const Highlight& highlight : seeded) {
      stored.push_back(storedHighlight(highlight.id, fingerprint, highlight.spineIndex,
                                       highlight.paragraph, highlight.selected, highlight.note));
    }
    std::ofstream(publications / fingerprint / "annotations.json") << nlohmann::json{
        {"schemaVersion", 1},
        {"annotationsByFingerprint", {{fingerprint, stored}}}}.dump();
    return fingerprint;
  }

  // Waits for the carry-over question and answers it with the button `answer`. The dialog
  // holds each response twice, side by side and stacked, both giving the response; a response
  // button's accessible name repeats its label.
  void answerQuestion(const std::string& answer) {
    ASSERT_TRUE(waitForElement("label", kQuestion).has_value()) << dump();
    const std::optional<AccessibleElement> button =
        find(elements(), "button", answer + " " + answer);
    ASSERT_TRUE(button.has_value()) << dump();
    ASSERT_TRUE(accessibility->performAction(button->reference));
  }

  std::string log() const { return readFile(logFile); }
  bool logged(const std::string& line) { return log().find(line) != std::string::npos; }

  std::vector<AccessibleElement> elements() {
    return accessibility->elementsOf(application->pid());
  }

  std::optional<AccessibleElement> waitForElement(const std::string& role,
                                                  const std::string& name) {
    return tomekeeper::testing::waitForElement(*accessibility, application->pid(), role, name);
  }

  std::string dump() { return describeElements(*accessibility, application->pid()); }

  // Saves a picture of the reader window as <name>.png in $TOMEKEEPER_SCREENSHOT_DIRECTORY when
  // that is set. For the documentation, never for assertions.
  void saveScreenshot(const std::string& name) {
    const char* directory = std::getenv("TOMEKEEPER_SCREENSHOT_DIRECTORY");
    if (directory == nullptr || *directory == '\0') return;
    const std::string window = visibleWindowOf(application->pid());
    if (window.empty()) return;
    std::filesystem::create_directories(directory);
    captureWindow(window, std::filesystem::path(directory) / (name + ".png"));
  }

  const std::vector<Highlight> highlights = {
      {"5B1A6C0E-2F4D-4A8B-9C3E-7D1F0A2B3C4D", 0, kWorld, "little or no money", ""},
      {"6C2B7D1F-3A5E-4B9C-8D4F-8E2A1B3C4D5E", 0, kBattery, "that noble mole",
       "The battery, gone from the second edition."},
      {"7D3C8E2A-4B6F-4CAD-9E5A-9F3B2C4D5E6F", 1, kPool, "a pool in the stream", "Water."},
  };
  TemporaryDirectory home;
  std::filesystem::path firstEdition = home / "books" / "loomings-1.epub";
  std::filesystem::path secondEdition = home / "books" / "loomings-2.epub";
  std::filesystem::path publications = home / "data" / "tomekeeper" / "Publications";
  std::filesystem::path logFile;
  int launches = 0;
  std::unique_ptr<AccessibilityBus> accessibility;
  std::unique_ptr<ApplicationProcess> application;
};

TEST_F(EditionCarryOverApplicationDisplayTest,
       CarryOverPlacesFoundHighlightsAndListsTheRestInTheSidebar) {
  const std::string first = readFirstEdition(highlights);
  const std::string second = openBook(secondEdition);
  ASSERT_NE(first, second);
  answerQuestion("Carry Over");

  ASSERT_TRUE(waitUntil([&] {
    return logged("Toast of " + second +
                  ": 2 highlights carried over, 1 not found in this edition");
  })) << log();
  EXPECT_TRUE(logged("Highlights of " + second + ": 2")) << log();
  // Each found highlight stands at its text in edition 2, whose first section is new.
  const struct {
    const char* name;
    const Highlight& highlight;
    std::optional<int> spineIndex;  // absent: not found
  } cases[] = {
      {"MovedWithItsSection", highlights[0], 1},
      {"InTheRemovedParagraph", highlights[1], std::nullopt},
      {"InTheLastSection", highlights[2], 2},
  };
  const nlohmann::json carried = highlightsIn(publications / second / "annotations.json", second);
  EXPECT_EQ(carried.size(), 2U) << carried.dump(2);
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    const nlohmann::json* found = nullptr;
    for (const nlohmann::json& each : carried) {
      if (each.value("id", "") == testCase.highlight.id) found = &each;
    }
    ASSERT_EQ(found != nullptr, testCase.spineIndex.has_value()) << carried.dump(2);
    if (found == nullptr) continue;
    EXPECT_EQ(found->value("selectedText", ""), testCase.highlight.selected);
    EXPECT_EQ(found->value("note", ""), testCase.highlight.note);
    EXPECT_EQ(found->value("bookFingerprint", ""), second);
    const nlohmann::json& locator = found->at("locator");
    EXPECT_EQ(locator.value("spineIndex", -1), *testCase.spineIndex);
    EXPECT_EQ(locator.value("spineHref", ""),
              "chapter" + std::to_string(*testCase.spineIndex + 1) + ".xhtml");
    EXPECT_FALSE(locator.contains("cfi")) << "edition 1's CFI points elsewhere in edition 2";
  }
  // Edition 1 keeps all three.
  EXPECT_EQ(highlightsIn(publications / first / "annotations.json", first).size(), 3U);

  // The one not found is listed with its note under its own heading, beside the two placed.
  ASSERT_TRUE(activateWindowAction(1, "show-sidebar-section", "'highlights'"));
  for (const std::string& label :
       {std::string("Not found in this edition"), highlights[1].selected, highlights[1].note,
        highlights[0].selected, highlights[2].selected}) {
    SCOPED_TRACE(label);
    EXPECT_TRUE(waitForElement("label", label).has_value()) << dump();
  }
  // The page drew both carried highlights by their quote: the session had tried each before
  // the toast, and marks in the sidebar one it could not place.
  EXPECT_FALSE(find(elements(), "label", "Original location unavailable").has_value()) << dump();
  saveScreenshot("carry-over-not-found");
}

TEST_F(EditionCarryOverApplicationDisplayTest, NotNowCarriesNothingAndAsksAgainAtTheNextOpen) {
  readFirstEdition(highlights);
  const std::string second = openBook(secondEdition);
  answerQuestion("Not Now");
  EXPECT_TRUE(waitUntil([&] { return !find(elements(), "label", kQuestion).has_value(); }))
      << dump();
  // Asked again: this edition still has no highlights of its own, which is what the question
  // depends on; the store agrees.
  openBook(secondEdition);
  EXPECT_TRUE(waitForElement("label", kQuestion).has_value()) << dump();
  EXPECT_TRUE(highlightsIn(publications / second / "annotations.json", second).empty());
}

TEST_F(EditionCarryOverApplicationDisplayTest, AFailedCarryOverIsToldAndTheEarlierEditionKeepsAll) {
  const std::string first = readFirstEdition(highlights);
  const std::string second = openBook(secondEdition);
  // Once the question is asked (the look for an earlier edition reads edition 2's store), a
  // directory where that store would be written: the carried highlights cannot be saved.
  ASSERT_TRUE(waitForElement("label", kQuestion).has_value()) << dump();
  std::filesystem::create_directories(publications / second / "annotations.json" / "in-the-way");
  answerQuestion("Carry Over");

  EXPECT_TRUE(waitForElement("label", "Highlights Not Carried Over").has_value()) << dump();
  EXPECT_FALSE(logged("Toast of " + second)) << log();
  EXPECT_EQ(highlightsIn(publications / first / "annotations.json", first).size(), 3U);
}

// "Restore Reading Data…" says what it does per store; a restore or an export that fails is
// told in an alert of its own and logged, while the book stays open with all its highlights.
TEST_F(EditionCarryOverApplicationDisplayTest, ReadingDataCommandsSayWhatTheyDoAndTellFailures) {
  const std::string first = readFirstEdition(highlights);
  const std::filesystem::path directory = publications / first;
  for (int generation = 1; generation <= 3; ++generation) {
    std::filesystem::remove(directory / ("bookmarks.json." + std::to_string(generation)));
  }
  const nlohmann::json stored = nlohmann::json::parse(readFile(directory / "annotations.json"));
  nlohmann::json backup = stored;
  backup["annotationsByFingerprint"][first].erase(0);
  std::ofstream(directory / "annotations.json.1") << backup.dump();
  openBook(firstEdition);
  const auto press = [&](const std::string& button) {
    const std::optional<AccessibleElement> found = waitForElement("button", button);
    ASSERT_TRUE(found.has_value()) << dump();
    ASSERT_TRUE(accessibility->performAction(found->reference));
  };

  ASSERT_TRUE(activateWindowAction(1, "restore-reading-data"));
  const std::string says =
      " holds 2 highlights. Bookmarks have no backup and stay as they are. What it replaces is "
      "kept as a backup.";
  EXPECT_TRUE(waitUntil([&] {
    for (const AccessibleElement& element : elements()) {
      if (element.role == "label" && element.name.starts_with("The backup from ") &&
          element.name.ends_with(says)) {
        return true;
      }
    }
    return false;
  })) << dump();
  // The backup goes before the reader agrees, so that the restore cannot read it again.
  std::filesystem::remove(directory / "annotations.json.1");
  press("Restore Restore");
  EXPECT_TRUE(waitForElement("label", "Reading Data Not Restored").has_value()) << dump();
  EXPECT_TRUE(logged("Reading data not restored: ")) << log();
  press("OK OK");

  // The export reads the book's package document again, which has gone from the cache; the save
  // panel offers the working directory, where nothing is written.
  for (const auto& entry : std::filesystem::recursive_directory_iterator(home / "cache")) {
    if (entry.path().extension() == ".opf") std::filesystem::remove(entry.path());
  }
  ASSERT_TRUE(activateWindowAction(1, "export-highlights"));
  press("_Export Export");
  EXPECT_TRUE(waitForElement("label", "Highlights Not Exported").has_value()) << dump();
  EXPECT_TRUE(logged("Highlights not exported to ")) << log();

  for (const char* banner : {"Your local reading data could not be saved or restored.",
                             "This book could not be opened by the reader."}) {
    EXPECT_FALSE(find(elements(), "label", banner).has_value()) << dump();
  }
  EXPECT_EQ(nlohmann::json::parse(readFile(directory / "annotations.json")), stored);
}

}  // namespace
}  // namespace tomekeeper::testing
