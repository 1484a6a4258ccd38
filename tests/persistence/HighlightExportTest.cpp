// The export of highlights, through the tomekeeper-export program run as a child process on books
// made by the builder; each export is read back and compared with what was stored.
#include <glib.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
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

// What an export says of one highlight, as read back from either format.
struct ExportedHighlight {
  std::string chapter;
  std::string text;
  std::optional<std::string> note;
  std::string color;
  std::string date;
  std::optional<std::string> cfi;
  bool operator==(const ExportedHighlight&) const = default;
};

struct ExportedBook {
  std::string title;
  std::vector<std::string> authors;
  std::string sha256;
  std::vector<ExportedHighlight> highlights;
  bool operator==(const ExportedBook&) const = default;
};

void PrintTo(const ExportedBook& book, std::ostream* out) {
  *out << book.title << " (" << book.highlights.size() << " highlights)";
  for (const ExportedHighlight& each : book.highlights) {
    *out << "\n  [" << each.chapter << "] " << each.text << " | " << each.note.value_or("-")
         << " | " << each.color << " | " << each.date << " | " << each.cfi.value_or("-");
  }
}

ExportedBook readJSONExport(const std::string& text) {
  const nlohmann::json document = nlohmann::json::parse(text);
  ExportedBook book{document.at("title"), document.at("authors"), document.at("sha256"), {}};
  for (const nlohmann::json& entry : document.at("highlights")) {
    const auto optional = [&](const char* key) {
      return entry.at(key).is_null() ? std::nullopt
                                     : std::optional<std::string>(entry.at(key).get<std::string>());
    };
    book.highlights.push_back({optional("chapter").value_or(""), entry.at("text"), optional("note"),
                               entry.at("color"), entry.at("date"), optional("cfi")});
  }
  return book;
}

// Reads the Markdown back by its structure: headings, quoted text, and the list of facts.
ExportedBook readMarkdownExport(const std::string& text) {
  ExportedBook book;
  std::istringstream lines(text);
  std::string chapter;
  std::string* continued = nullptr;  // a note that goes on over indented lines
  bool quoteEnded = true;
  for (std::string line; std::getline(lines, line);) {
    const auto after = [&](std::string_view prefix) { return line.substr(prefix.size()); };
    if (line.starts_with("# ")) {
      book.title = after("# ");
    } else if (line.starts_with("By ")) {
      std::istringstream names(after("By "));
      for (std::string name; std::getline(names, name, ',');) {
        book.authors.push_back(name.substr(name.find_first_not_of(' ')));
      }
    } else if (line.starts_with("SHA-256: `")) {
      book.sha256 = line.substr(10, line.size() - 11);
    } else if (line.starts_with("## ")) {
      chapter = after("## ");
    } else if (line.starts_with(">")) {
      const std::string quoted = line.size() > 2 ? line.substr(2) : "";
      if (quoteEnded) {
        book.highlights.push_back({chapter, quoted, {}, {}, {}, {}});
      } else {
        book.highlights.back().text += "\n" + quoted;
      }
      quoteEnded = false;
      continue;
    } else if (line.starts_with("- Note: ")) {
      book.highlights.back().note = after("- Note: ");
      continued = &*book.highlights.back().note;
      quoteEnded = true;
      continue;
    } else if (line.starts_with("  ") && continued) {
      *continued += "\n" + after("  ");
      continue;
    } else if (line.starts_with("- Colour: ")) {
      book.highlights.back().color = after("- Colour: ");
    } else if (line.starts_with("- Date: ")) {
      book.highlights.back().date = after("- Date: ");
    } else if (line.starts_with("- CFI: `")) {
      book.highlights.back().cfi = line.substr(8, line.size() - 9);
    }
    continued = nullptr;
    quoteEnded = true;
  }
  return book;
}

Annotation highlight(std::string fingerprint, std::int64_t spineIndex, std::string cfi,
                     std::string text, std::optional<std::string> note, double createdAt) {
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
      highlight(fingerprint, 2, "epubcfi(/6/6!/4/2/1:0)", "Whaling voyage by one Ishmael.",
                "Two lines\nof note", 800'000'000),
      highlight(fingerprint, 0, "epubcfi(/6/2!/4/10/1:4)", "Some years ago", std::nullopt,
                800'000'100),
      highlight(fingerprint, 0, "epubcfi(/6/2!/4/2/1:0)", "Call me Ishmael.\nIt is a way",
                "The opening", 800'000'200),
      highlight(fingerprint, 1, "epubcfi(/6/4!/4/2/1:0)", "a damp, drizzly November",
                "\"quoted\" and `ticked`", 800'000'300)};
  store.annotationsByFingerprint[testing::kOtherFingerprint] = {
      highlight(testing::kOtherFingerprint, 0, "epubcfi(/6/2!/4/2/1:0)", "elsewhere", {}, 1)};
  // The last highlight is in a conflict copy only: it is exported, and the copy stays.
  JSONAnnotationRepository::Store copy;
  copy.annotationsByFingerprint[fingerprint] = {store.annotationsByFingerprint[fingerprint].back()};
  store.annotationsByFingerprint[fingerprint].pop_back();
  writeFile(storeOf(fingerprint), JSONAnnotationRepository::encodeStore(store));
  const fs::path copyFile =
      storeOf(fingerprint).parent_path() / "annotations (conflicted copy 2026-11-24).json";
  writeFile(copyFile, JSONAnnotationRepository::encodeStore(copy));

  const ExportedBook expected{
      "Moby-Dick; or, The Whale",
      {"Herman Melville", "A. Editor"},
      fingerprint,
      {{"Chapter 1. Loomings", "Call me Ishmael.\nIt is a way", "The opening", "yellow",
        "2026-05-09T06:16:40Z", "epubcfi(/6/2!/4/2/1:0)"},
       {"Chapter 1. Loomings", "Some years ago", std::nullopt, "yellow", "2026-05-09T06:15:00Z",
        "epubcfi(/6/2!/4/10/1:4)"},
       {"Chapter 1. Loomings", "a damp, drizzly November", "\"quoted\" and `ticked`", "yellow",
        "2026-05-09T06:18:20Z", "epubcfi(/6/4!/4/2/1:0)"},
       {"Chapter 3. The Spouter-Inn", "Whaling voyage by one Ishmael.", "Two lines\nof note",
        "yellow", "2026-05-09T06:13:20Z", "epubcfi(/6/6!/4/2/1:0)"}}};
  const Result markdown = run({book.string()});
  EXPECT_EQ(markdown.exitStatus, 0) << markdown.output;
  EXPECT_EQ(readMarkdownExport(markdown.output), expected) << markdown.output;
  const Result json = run({book.string(), "--format", "json"});
  EXPECT_EQ(json.exitStatus, 0) << json.output;
  EXPECT_EQ(readJSONExport(json.output), expected) << json.output;
  EXPECT_EQ(readFile(copyFile), JSONAnnotationRepository::encodeStore(copy));
  EXPECT_EQ(readFile(storeOf(fingerprint)), JSONAnnotationRepository::encodeStore(store));
}

// Bad input is refused with a status of its own, and the store is left as it was.
TEST_F(HighlightExportTest, RefusesWhatItCannotExport) {
  EpubBuilder entityBook = threeChapterBook();
  entityBook.replaceFile(EpubBuilder::kPackageDocumentPath,
                         "<?xml version=\"1.0\"?><!DOCTYPE package [<!ENTITY x \"y\">]>"
                         "<package xmlns=\"http://www.idpf.org/2007/opf\"><spine/></package>");
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
      {"APackageWithEntities", entityBook.build(), "", {}, 2},
      {"ABrokenStore", threeChapterBook().build(), R"({"schemaVersion":1,"annot)", {}, 2},
  };
  for (const auto& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    std::vector<std::string> arguments;
    std::optional<fs::path> store;
    if (!testCase.book.empty()) {
      writeFile(home_ / "moby-dick.epub", testCase.book);
      arguments.push_back((home_ / "moby-dick.epub").string());
      store = storeOf(PublicationFingerprintService::fingerprintFile(home_ / "moby-dick.epub", {}));
      if (!testCase.store.empty()) writeFile(*store, testCase.store);
    }
    arguments.insert(arguments.end(), testCase.arguments.begin(), testCase.arguments.end());
    const Result result = run(arguments);
    EXPECT_EQ(result.exitStatus, testCase.exitStatus);
    EXPECT_EQ(result.output, "");
    if (store && !testCase.store.empty()) EXPECT_EQ(readFile(*store), testCase.store);
  }
}

}  // namespace
}  // namespace tomekeeper
