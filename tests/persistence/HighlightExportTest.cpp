// The export of highlights, through the tomekeeper-export program run as a child process on books
// made by the builder; each export is read back and compared with what was stored.
#include <glib.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <sstream>

#include "PersistenceTestSupport.h"
#include "opening/PublicationFingerprintService.h"
#include "persistence/HighlightExport.h"
#include "persistence/JSONAnnotationRepository.h"
#include "support/EpubBuilder.h"

namespace tomekeeper {
namespace {

namespace fs = std::filesystem;
using testing::EpubBuilder;
using testing::readFile;
using testing::writeFile;

// An export read back as lines: "title|authors|sha256", then per highlight
// "chapter|text|note|colour|date|cfi" (an absent value is "-"); the same for both formats.
using Facts = std::vector<std::string>;

std::string joined(const std::vector<std::string>& parts, const std::string& separator = "|") {
  std::string line;
  for (const std::string& part : parts) line += (line.empty() ? "" : separator) + part;
  return line;
}

Facts readJSONExport(const std::string& text) {
  const nlohmann::json document = nlohmann::json::parse(text);
  Facts facts{
      joined({document.at("title"), joined(document.at("authors"), ", "), document.at("sha256")})};
  for (const nlohmann::json& entry : document.at("highlights")) {
    std::vector<std::string> parts;
    for (const char* key : {"chapter", "text", "note", "color", "date", "cfi"}) {
      parts.push_back(entry.at(key).is_null() ? "-" : entry.at(key).get<std::string>());
    }
    facts.push_back(joined(parts));
  }
  return facts;
}

// Reads the Markdown back by its structure: headings, the quoted text (one "> " line each), and
// the list of facts, of which a note goes on over lines indented by two spaces.
Facts readMarkdownExport(const std::string& text) {
  std::string title, authors, sha256, chapter;
  std::vector<std::vector<std::string>> highlights;  // chapter, text, note, colour, date, cfi
  std::istringstream lines(text);
  std::size_t continuing = 0;  // the field that an indented line goes on with
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("# ")) title = line.substr(2);
    if (line.starts_with("By ")) authors = line.substr(3);
    if (line.starts_with("SHA-256: `")) sha256 = line.substr(10, line.size() - 11);
    if (line.starts_with("## ")) chapter = line.substr(3);
    if (line.starts_with("> ") && continuing != 1) highlights.push_back({chapter, "", "-"});
    if (line.starts_with("> ") && continuing == 1) highlights.back()[1] += "\n";
    if (line.starts_with("> ")) highlights.back()[1] += line.substr(2), continuing = 1;
    if (line.starts_with("  ")) highlights.back()[continuing] += "\n" + line.substr(2);
    if (line.starts_with("- Note: ")) highlights.back()[2] = line.substr(8), continuing = 2;
    if (line.starts_with("- Colour: ")) highlights.back().push_back(line.substr(10));
    if (line.starts_with("- Date: ")) highlights.back().push_back(line.substr(8));
    if (line.starts_with("- CFI: `")) highlights.back().push_back(line.substr(8, line.size() - 9));
    if (line.empty() && continuing == 1) continuing = 0;
  }
  Facts facts{joined({title, authors, sha256})};
  for (auto& parts : highlights) {
    if (parts.size() < 6) parts.resize(6, "-");
    facts.push_back(joined(parts));
  }
  return facts;
}

Annotation highlight(std::int64_t spineIndex, std::string cfi, std::string text,
                     std::optional<std::string> note, double createdAt,
                     std::string fingerprint = testing::kFingerprint) {
  Annotation annotation =
      testing::makeAnnotation(Uuid::random(), createdAt, std::move(fingerprint));
  annotation.locator.spineIndex = spineIndex;
  annotation.locator.spineHref = "chapter" + std::to_string(spineIndex + 1) + ".xhtml";
  annotation.locator.cfi = std::move(cfi);
  annotation.selectedText = std::move(text);
  annotation.note = std::move(note);
  return annotation;
}

class HighlightExportTest : public ::testing::Test {
 protected:
  struct Result {
    int exitStatus = -1;
    std::string output;
  };

  // Runs the program with a private data directory and TMPDIR.
  Result run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), TOMEKEEPER_EXPORT_PROGRAM);
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    gchar** environment = g_get_environ();
    environment = g_environ_setenv(environment, "XDG_DATA_HOME", (home_ / "data").c_str(), TRUE);
    environment = g_environ_setenv(environment, "TMPDIR", (home_ / "tmp").c_str(), TRUE);
    fs::create_directories(home_ / "tmp");
    gchar* output = nullptr;
    gint waitStatus = 0;
    GError* error = nullptr;
    const gboolean spawned =
        g_spawn_sync(nullptr, argv.data(), environment, G_SPAWN_STDERR_TO_DEV_NULL, nullptr,
                     nullptr, &output, nullptr, &waitStatus, &error);
    g_strfreev(environment);
    if (!spawned) {
      ADD_FAILURE() << error->message;
      g_error_free(error);
      return {};
    }
    Result result{WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : -1, output};
    g_free(output);
    EXPECT_TRUE(fs::is_empty(home_ / "tmp"));
    return result;
  }

  // A book of three chapters whose navigation document names the first and the third; the
  // second belongs to the first.
  static EpubBuilder threeChapterBook() {
    testing::PackageDescription package;
    package.title = "Moby-Dick; or, The Whale";
    package.creators = {"Herman Melville", "A. Editor"};
    package.withChapters(3);
    package.manifest.push_back({"nav", "nav.xhtml", "application/xhtml+xml", "nav"});
    EpubBuilder book;
    book.withPackageDocument(package);
    for (int chapter = 2; chapter <= 3; ++chapter) {
      book.addFile("OEBPS/chapter" + std::to_string(chapter) + ".xhtml",
                   "<html xmlns=\"http://www.w3.org/1999/xhtml\"><body><p>Text.</p></body></html>");
    }
    book.addFile("OEBPS/nav.xhtml", R"(<?xml version="1.0" encoding="UTF-8"?>
<html xmlns="http://www.w3.org/1999/xhtml" xmlns:epub="http://www.idpf.org/2007/ops"><body>
<nav epub:type="landmarks"><ol><li><a href="chapter3.xhtml">Not a chapter</a></li></ol></nav>
<nav epub:type="toc"><ol>
  <li><a href="chapter1.xhtml#start">Chapter 1.
      <em>Loomings</em></a></li>
  <li><a href="./chapter3.xhtml">Chapter 3. The Spouter-Inn</a></li>
</ol></nav></body></html>)");
    return book;
  }

  fs::path writeBook(const EpubBuilder& book) {
    const fs::path path = home_ / "moby-dick.epub";
    book.writeTo(path);
    return path;
  }

  fs::path storeOf(const std::string& fingerprint) const {
    return home_ / "data" / "tomekeeper" / "Publications" / fingerprint / "annotations.json";
  }

  testing::TemporaryDirectory home_;
};

TEST_F(HighlightExportTest, ReadingOrderComparesSpineItemsThenCFIStepsAsNumbers) {
  const auto at = [](std::int64_t spineIndex, std::optional<std::string> cfi,
                     std::optional<double> progression = {}) {
    Locator locator;
    locator.spineIndex = spineIndex;
    locator.cfi = std::move(cfi);
    locator.sectionProgression = progression;
    return locator;
  };
  const struct {
    const char* name;
    Locator earlier;
    Locator later;
  } cases[] = {
      {"SpineItemFirst", at(1, "epubcfi(/6/4!/4/90/1:0)"), at(2, "epubcfi(/6/6!/4/2/1:0)")},
      {"StepsAsNumbers", at(1, "epubcfi(/6/4!/4/9/1:0)"), at(1, "epubcfi(/6/4!/4/10/1:0)")},
      {"OffsetsAsNumbers", at(1, "epubcfi(/6/4!/4/2/1:9)"), at(1, "epubcfi(/6/4!/4/2/1:10)")},
      {"ARangeByItsStart", at(1, "epubcfi(/6/4!/4/2,/1:5,/1:90)"), at(1, "epubcfi(/6/4!/4/2/1:6)")},
      {"AssertionsIgnored", at(1, "epubcfi(/6/4[c9]!/4/2[p9]/1:1)"),
       at(1, "epubcfi(/6/4!/4/2/1:2)")},
      {"NoCFIFirst", at(1, {}, 0.9), at(1, "epubcfi(/6/4!/4/2/1:0)", 0.1)},
      {"ThenProgression", at(1, {}, 0.2), at(1, {}, 0.3)},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    EXPECT_TRUE(precedesInReadingOrder(testCase.earlier, testCase.later));
    EXPECT_FALSE(precedesInReadingOrder(testCase.later, testCase.earlier));
  }
}

TEST_F(HighlightExportTest, AnExportReadsBackAsTheStoredHighlightsInReadingOrder) {
  const fs::path book = writeBook(threeChapterBook());
  const std::string fingerprint = PublicationFingerprintService::fingerprintFile(book, {});
  JSONAnnotationRepository::Store store;
  // Stored out of order; one of another book stays out of the export.
  store.annotationsByFingerprint[fingerprint] = {
      highlight(2, "epubcfi(/6/6!/4/2/1:0)", "By one Ishmael.", "Two lines\nof note", 8e8,
                fingerprint),
      highlight(0, "epubcfi(/6/2!/4/10/1:4)", "Some years ago", {}, 8e8 + 100, fingerprint),
      highlight(0, "epubcfi(/6/2!/4/2/1:0)", "Call me Ishmael.\nIt is", "Opening", 8e8 + 200,
                fingerprint)};
  store.annotationsByFingerprint[testing::kOtherFingerprint] = {
      highlight(0, "epubcfi(/6/2!/4/2/1:0)", "elsewhere", {}, 1, testing::kOtherFingerprint)};
  // One is in a conflict copy only: it is exported, and the copy stays as it is.
  JSONAnnotationRepository::Store copy;
  copy.annotationsByFingerprint[fingerprint] = {highlight(
      1, "epubcfi(/6/4!/4/2/1:0)", "drizzly November", "`ticked`", 8e8 + 300, fingerprint)};
  writeFile(storeOf(fingerprint), JSONAnnotationRepository::encodeStore(store));
  const fs::path copyFile =
      storeOf(fingerprint).parent_path() / "annotations (conflicted copy).json";
  writeFile(copyFile, JSONAnnotationRepository::encodeStore(copy));

  // Dates are those the stored numbers name (seconds since 2001-01-01T00:00:00Z).
  const Facts expected{
      "Moby-Dick; or, The Whale|Herman Melville, A. Editor|" + fingerprint,
      "Chapter 1. Loomings|Call me Ishmael.\nIt is|Opening|yellow|2026-05-09T06:16:40Z|"
      "epubcfi(/6/2!/4/2/1:0)",
      "Chapter 1. Loomings|Some years ago|-|yellow|2026-05-09T06:15:00Z|epubcfi(/6/2!/4/10/1:4)",
      "Chapter 1. Loomings|drizzly November|`ticked`|yellow|2026-05-09T06:18:20Z|"
      "epubcfi(/6/4!/4/2/1:0)",
      "Chapter 3. The Spouter-Inn|By one Ishmael.|Two lines\nof note|yellow|2026-05-09T06:13:20Z|"
      "epubcfi(/6/6!/4/2/1:0)"};
  const Result markdown = run({book.string()});
  EXPECT_EQ(markdown.exitStatus, 0);
  EXPECT_EQ(readMarkdownExport(markdown.output), expected) << markdown.output;
  const Result json = run({book.string(), "--format", "json"});
  EXPECT_EQ(json.exitStatus, 0);
  EXPECT_EQ(readJSONExport(json.output), expected) << json.output;
  EXPECT_EQ(readFile(copyFile), JSONAnnotationRepository::encodeStore(copy));
}

// Bad input is refused with a status of its own, and the store is left as it was.
TEST_F(HighlightExportTest, RefusesWhatItCannotExport) {
  const struct {
    const char* name;
    std::string book;  // written as moby-dick.epub; empty: none
    std::string store;
    std::vector<std::string> arguments;
    int exitStatus;
  } cases[] = {
      {"NoBook", "", "", {}, 1},
      {"UnknownFormat", threeChapterBook().build(), "", {"--format", "html"}, 1},
      {"NotAnEPUB", "plain text", "", {}, 2},
      {"ABrokenStore", threeChapterBook().build(), R"({"schemaVersion":1,"annot)", {}, 2},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    std::vector<std::string> arguments;
    std::optional<fs::path> store;
    if (!testCase.book.empty()) {
      writeFile(home_ / "moby-dick.epub", testCase.book);
      arguments.push_back((home_ / "moby-dick.epub").string());
      store = storeOf(PublicationFingerprintService::fingerprintFile(arguments.back(), {}));
      if (!testCase.store.empty()) writeFile(*store, testCase.store);
    }
    arguments.insert(arguments.end(), testCase.arguments.begin(), testCase.arguments.end());
    const Result result = run(arguments);
    EXPECT_EQ(result.exitStatus, testCase.exitStatus);
    EXPECT_EQ(result.output, "");
    if (store && !testCase.store.empty()) EXPECT_EQ(readFile(*store), testCase.store);
  }
}

// The Markdown stays well formed whatever a highlight holds, and the JSON keeps it exact: each
// highlight's block reads back as one highlight with the quote trimmed and the CFI on one line.
TEST_F(HighlightExportTest, EachHighlightIsOneWellFormedMarkdownBlock) {
  const struct {
    const char* name;
    std::string text, cfi;
    std::string markdownText, markdownCFI;  // as the Markdown reads back
  } cases[] = {
      {"QuoteWithBlankLinesAround", "\n \nCall me Ishmael.\n\nSome years ago\n\n",
       "epubcfi(/6/2!/4/2/1:0)", "Call me Ishmael.\n\nSome years ago", "epubcfi(/6/2!/4/2/1:0)"},
      {"CFIWithNewlines", "Call me", "epubcfi(/6/2!/4/2,/1:0[\n\n    Call me,Ishmael.\n],/1:7)",
       "Call me", "epubcfi(/6/2!/4/2,/1:0[ Call me,Ishmael. ],/1:7)"},
      // Read back without its outer fence, whose backticks are one more than those inside.
      {"CFIWithBackticks", "ticked", "epubcfi(/6/2!/4/2/1:0[a `ticked`])", "ticked",
       "`epubcfi(/6/2!/4/2/1:0[a `ticked`])`"},
  };
  const HighlightExportBook book{"Moby-Dick", {}, testing::kFingerprint, {{"ch1.xhtml", "I"}}};
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    const std::vector<Annotation> stored{
        highlight(0, testCase.cfi, testCase.text, "Note", 8e8),
        highlight(0, "epubcfi(/6/2!/4/4/1:0)", "Loomings.", {}, 8e8)};
    const auto facts = [&](const std::string& text, const std::string& cfi) {
      return Facts{"Moby-Dick||" + testing::kFingerprint,
                   "I|" + text + "|Note|yellow|2026-05-09T06:13:20Z|" + cfi,
                   "I|Loomings.|-|yellow|2026-05-09T06:13:20Z|epubcfi(/6/2!/4/4/1:0)"};
    };
    const std::string markdown = exportHighlights(book, stored, HighlightExportFormat::markdown);
    EXPECT_EQ(readMarkdownExport(markdown), facts(testCase.markdownText, testCase.markdownCFI))
        << markdown;
    EXPECT_EQ(readJSONExport(exportHighlights(book, stored, HighlightExportFormat::json)),
              facts(testCase.text, testCase.cfi));
  }
}

}  // namespace
}  // namespace tomekeeper
