// The fixture of the display tests that drive the real reader runtime page in a real WebKitGTK
// web view through the bridge, as the session drives it. Each test gets a fresh web view in a
// window under the display, and its own temporary directory for the book.
#pragma once

#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "FakeReaderBridgeTransport.h"
#include "PageScript.h"
#include "async/RunUntilDone.h"
#include "intake/EPUBArchiveExtractor.h"
#include "intake/EPUBArchiveInspector.h"
#include "runtime/ReaderWebViewHost.h"
#include "support/EpubBuilder.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper {

// Locators print as their JSON in failure messages.
inline void PrintTo(const Locator& locator, std::ostream* stream) {
  *stream << nlohmann::json(locator).dump();
}

namespace testing {

using namespace std::chrono_literals;
using json = nlohmann::json;

inline constexpr int kDisplayWindowWidth = 900;
inline constexpr int kDisplayWindowHeight = 700;

// ---- A book of a few long sections -----------------------------------------------------------

// A paragraph whose words say where it stands, so that any excerpt names one place.
inline std::string paragraphText(int chapter, int paragraph) {
  std::string text = "Chapter " + std::to_string(chapter) + " paragraph " +
                     std::to_string(paragraph) + " begins here.";
  for (int sentence = 0; sentence < 6; ++sentence) {
    text += " The keeper of tomes walked the long corridor number " +
            std::to_string(chapter * 1000 + paragraph * 10 + sentence) +
            " and counted the shelves one by one.";
  }
  return text;
}

inline std::string chapterDocument(int chapter, int paragraphs, const std::string& extraHead = "",
                                   const std::string& extraBody = "") {
  std::string body;
  body += "<h1 id=\"top\">Chapter " + std::to_string(chapter) + "</h1>\n";
  for (int paragraph = 0; paragraph < paragraphs; ++paragraph) {
    body += "<p id=\"c" + std::to_string(chapter) + "p" + std::to_string(paragraph) + "\">" +
            paragraphText(chapter, paragraph) + "</p>\n";
  }
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<html xmlns=\"http://www.w3.org/1999/xhtml\" xml:lang=\"en\"><head><title>Chapter " +
         std::to_string(chapter) + "</title>" + extraHead + "</head>\n<body>\n" + body + extraBody +
         "</body></html>\n";
}

// A script for the runtime page that answers whether the first character of `context.exact`
// (white space collapsed) lies inside the viewport in the section on screen; the prefix and
// suffix tell repeated words apart, and where even they repeat (a code sample given twice), any
// of the places will do. Measured in the page, independently of the runtime. The section's
// collapsed text and the map back to its nodes are kept in its window, for the many checks of one
// long section.
inline std::string textOnScreenScript(const TextContext& context) {
  return "const exact = " + json(context.exact).dump() +
         ", prefix = " + json(context.prefix.value_or("")).dump() +
         ", suffix = " + json(context.suffix.value_or("")).dump() + ";" + R"(
      const frame = document.querySelector('iframe.section-frame:not(.preparing)');
      if (!frame) return false;
      const doc = frame.contentDocument;
      let kept = frame.contentWindow.textKeptForTests;
      // Built again when the document's text has changed (a notice or a note put in by the runtime).
      const length = doc.body.textContent.length;
      if (!kept || kept.doc !== doc || kept.length !== length) {
        const walker = doc.createTreeWalker(doc.body, NodeFilter.SHOW_TEXT);
        const pieces = [], nodes = [], offsets = [];
        let inSpace = false;
        for (let node = walker.nextNode(); node; node = walker.nextNode()) {
          for (let offset = 0; offset < node.data.length; offset += 1) {
            const space = /\s/.test(node.data[offset]);
            if (space && inSpace) continue;
            inSpace = space;
            pieces.push(space ? ' ' : node.data[offset]);
            nodes.push(node);
            offsets.push(offset);
          }
        }
        kept = { doc, length, text: pieces.join(''), nodes, offsets };
        frame.contentWindow.textKeptForTests = kept;
      }
      const collapse = (words) => words.replace(/\s+/g, ' ');
      const frameBox = frame.getBoundingClientRect();
      const viewport = document.getElementById('reader-viewport').getBoundingClientRect();
      const shown = (found) => {
        found += collapse(prefix).length;
        while (kept.text[found] === ' ') found += 1;
        const range = doc.createRange();
        range.setStart(kept.nodes[found], kept.offsets[found]);
        range.setEnd(kept.nodes[found], kept.offsets[found] + 1);
        const box = range.getClientRects()[0];
        if (!box) return false;
        const x = frameBox.left + box.left + box.width / 2;
        const y = frameBox.top + box.top + box.height / 2;
        return x >= viewport.left && x <= viewport.right && y >= viewport.top && y <= viewport.bottom;
      };
      const context = collapse(prefix + exact + suffix);
      for (let found = kept.text.indexOf(context); found >= 0;
           found = kept.text.indexOf(context, found + 1)) {
        if (shown(found)) return true;
      }
      return false;
    )";
}

inline std::filesystem::path sampleCorpusDirectory() {
  if (const char* directory = std::getenv("TOMEKEEPER_SAMPLE_CORPUS_DIRECTORY")) return directory;
  return TOMEKEEPER_SAMPLE_CORPUS_DIRECTORY;
}

inline std::vector<std::filesystem::path> sampleBooks() {
  std::vector<std::filesystem::path> books;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(sampleCorpusDirectory(), error)) {
    if (entry.path().extension() == ".epub") books.push_back(entry.path());
  }
  std::sort(books.begin(), books.end());
  return books;
}

// ---- The fixture
// ---------------------------------------------------------------------------------

// Unpacks an EPUB with the intake's own inspector and extractor, as the application does.
inline std::filesystem::path extractBook(const std::filesystem::path& archive,
                                         const std::filesystem::path& destination) {
  const EPUBArchiveInspection inspection = EPUBArchiveInspector().inspectBlocking(archive);
  return EPUBArchiveExtractor().extract(archive, inspection, destination).rootURL;
}

class ReaderRuntimeDisplayTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { gtk_init(); }

  void SetUp() override {
    host_ = ReaderWebViewHost::create();
    window_ = gtk_window_new();
    gtk_window_set_default_size(GTK_WINDOW(window_), kDisplayWindowWidth, kDisplayWindowHeight);
    gtk_window_set_child(GTK_WINDOW(window_), GTK_WIDGET(host_->webView()));
    gtk_window_present(GTK_WINDOW(window_));
  }

  void TearDown() override {
    host_.reset();
    gtk_window_destroy(GTK_WINDOW(window_));
    // What the destroyed window and web view still had queued, without waiting for more.
    for (int turn = 0; turn < 1000 && g_main_context_iteration(nullptr, FALSE); ++turn) {
    }
  }

  // Unpacks the book, then opens it as openExtracted does.
  // Whether a book is opened in a freshly loaded runtime page, as a new window opens it, or in the
  // page that showed the last book.
  enum class RuntimePage { load, keep };

  OpenPublicationResult openArchive(const std::filesystem::path& archive,
                                    RuntimePage page = RuntimePage::load) {
    // Each book of a test unpacks to a folder of its own: a test may open several.
    const std::string folder =
        openedArchives_++ == 0 ? "Extracted" : "Extracted" + std::to_string(openedArchives_);
    return openExtracted(extractBook(archive, directory_ / folder), page);
  }

  // Registers a book already unpacked at `root`, loads the runtime and opens the book through
  // the bridge, as the application opens a book again from its cache.
  OpenPublicationResult openExtracted(const std::filesystem::path& root,
                                      RuntimePage page = RuntimePage::load) {
    const Uuid publicationID = Uuid::random();
    host_->registerPublication(publicationID, root);
    if (page == RuntimePage::load) {
      async::runUntilDone(host_->prepareRuntime(TOMEKEEPER_RUNTIME_PAGE_DIRECTORY, 10s), 20s);
    }
    const std::string base = "tomekeeper://publication/" + publicationID.string() + "/";
    const std::string packagePath = packageDocumentPath(root);
    const std::string packageDirectory = packagePath.find('/') == std::string::npos
                                             ? std::string()
                                             : packagePath.substr(0, packagePath.rfind('/') + 1);
    OpenPublicationRequest request;
    request.publication.publicationID = publicationID;
    request.publication.packageURL = base + packagePath;
    request.publication.resourceBaseURL = base + packageDirectory;
    return run(bridge().open(request));
  }

  OpenPublicationResult openBook(const std::string& epub, RuntimePage page = RuntimePage::load) {
    const std::filesystem::path archive = directory_ / "book.epub";
    std::ofstream(archive, std::ios::binary) << epub;
    return openArchive(archive, page);
  }

  // The rootfile path of container.xml; a test book has one rootfile.
  static std::string packageDocumentPath(const std::filesystem::path& root) {
    std::ifstream input(root / "META-INF/container.xml", std::ios::binary);
    const std::string container((std::istreambuf_iterator<char>(input)),
                                std::istreambuf_iterator<char>());
    const std::string attribute = "full-path=\"";
    const std::size_t start = container.find(attribute);
    if (start == std::string::npos) return testing::EpubBuilder::kPackageDocumentPath;
    const std::size_t end = container.find('"', start + attribute.size());
    return container.substr(start + attribute.size(), end - start - attribute.size());
  }

  ReaderBridge& bridge() { return *host_->bridge(); }

  template <typename Result>
  Result run(async::Task<Result> task) {
    return async::runUntilDone(std::move(task), 20s);
  }

  // Runs `body` as an async function in the runtime page and gives its JSON-able result. The
  // page's DOM (and the section frames in it) is what the reader sees; the runtime's own state
  // is reached through the bridge only.
  json evaluate(const std::string& body, std::chrono::milliseconds limit = 20s) {
    return evaluateInPage(host_->webView(), body, limit);
  }

  // The words of the section on screen that lie inside the viewport.
  json visibleSection() {
    return evaluate(R"(
      const frame = document.querySelector('iframe.section-frame:not(.preparing)');
      if (!frame) return { frames: 0 };
      const viewport = document.getElementById('reader-viewport').getBoundingClientRect();
      const frameBox = frame.getBoundingClientRect();
      const doc = frame.contentDocument;
      const visible = [];
      for (const paragraph of doc.querySelectorAll('p[id], h1[id]')) {
        for (const box of paragraph.getClientRects()) {
          const left = frameBox.left + box.left, right = frameBox.left + box.right;
          const top = frameBox.top + box.top, bottom = frameBox.top + box.bottom;
          if (right > viewport.left + 1 && left < viewport.right - 1 &&
              bottom > viewport.top + 1 && top < viewport.bottom - 1) {
            visible.push(paragraph.id);
            break;
          }
        }
      }
      return { frames: document.querySelectorAll('iframe.section-frame').length,
               src: frame.src, visible };
    )");
  }

  // Every result of a search for `query`, once its last batch has come within `limit`.
  std::vector<PublicationSearchResult> searchAll(const std::string& query,
                                                 std::chrono::seconds limit = 10s) {
    std::vector<PublicationSearchResult> results;
    bool complete = false;
    const Uuid searchID = Uuid::random();
    bridge().onSearchResults = [&](Uuid id, std::vector<PublicationSearchResult> batch,
                                   bool isComplete) {
      if (id != searchID) return;
      results.insert(results.end(), batch.begin(), batch.end());
      complete = complete || isComplete;
    };
    run(bridge().startSearch(StartSearchRequest{searchID, query}));
    EXPECT_TRUE(iterateUntil([&] { return complete; }, limit)) << query;
    bridge().onSearchResults = nullptr;
    return results;
  }

  // The words of the drawn highlights in the section on screen.
  json highlightedWordsOnScreen() {
    return evaluate(R"(
      const frame = document.querySelector('iframe.section-frame:not(.preparing)');
      const highlight = frame.contentWindow.CSS.highlights.get('tomekeeper-annotation');
      return highlight ? [...highlight].map((range) => range.toString()) : [];
    )");
  }

  // Whether the first character of the excerpt's `exact` (white space collapsed) lies inside the
  // viewport in the section on screen; `prefix` and `suffix` tell repeated words apart. Measured
  // in the page, independently of the runtime.
  bool isTextOnScreen(const TextContext& context) {
    return evaluate(textOnScreenScript(context)) == true;
  }

  // Reads pages forward until `predicate` holds for the position, at most `limit` turns.
  std::optional<ReaderPositionResult> nextUntil(
      const std::function<bool(const ReaderPositionResult&)>& predicate, int limit = 100) {
    for (int turn = 0; turn < limit; ++turn) {
      const ReaderPositionResult position = run(bridge().next());
      if (predicate(position)) return position;
    }
    return std::nullopt;
  }

  // Opens a book of three long sections and stands on the third page of its second section.
  Locator standInTheMiddleOfTheBook(const std::string& epub) {
    openBook(epub);
    run(bridge().nextSection());
    run(bridge().next());
    const ReaderPositionResult position = run(bridge().next());
    EXPECT_EQ(position.spineIndex, 1);
    EXPECT_EQ(position.page, 3);
    return run(bridge().currentLocator());
  }

  // Asserts that what stood first on the page is still on screen, and that going to the stored
  // locator keeps it there.
  void expectStillShown(const Locator& before, const std::string& what) {
    ASSERT_TRUE(before.excerpt) << what;
    EXPECT_TRUE(isTextOnScreen(*before.excerpt))
        << what << ": \"" << before.excerpt->exact << "\" left the screen; now shown "
        << visibleSection().dump()
        << evaluate(R"(
      const frame = document.querySelector('iframe.section-frame:not(.preparing)');
      const viewport = document.getElementById('reader-viewport');
      return { top: viewport.scrollTop, left: viewport.scrollLeft, frameX: frame.contentWindow.scrollX,
               frameY: frame.contentWindow.scrollY, transform: frame.contentDocument.documentElement.style.transform,
               frameStyle: frame.getAttribute('style'), rootStyle: frame.contentDocument.documentElement.getAttribute('style'),
               scrollWidth: frame.contentDocument.documentElement.scrollWidth };
    )")
               .dump()
        << " from \"" << run(bridge().currentLocator()).excerpt.value_or(TextContext{}).exact
        << "\"";
    const ReaderPositionResult position = run(bridge().goTo(GoToLocatorRequest{before}));
    EXPECT_EQ(position.spineIndex, before.spineIndex) << what;
    EXPECT_EQ(position.locatorResolution, "cfi") << what;
    EXPECT_TRUE(isTextOnScreen(*before.excerpt))
        << what << ": \"" << before.excerpt->exact << "\" not on screen after goTo";
  }

  // Saves what the web view shows as <name>.png in $TOMEKEEPER_SCREENSHOT_DIRECTORY, when that is
  // set; otherwise does nothing. For notes and reviews, never for assertions.
  void saveScreenshot(const std::string& name) {
    const char* directory = std::getenv("TOMEKEEPER_SCREENSHOT_DIRECTORY");
    if (directory == nullptr || *directory == '\0') return;
    std::filesystem::create_directories(directory);
    struct Outcome {
      bool finished = false;
      GdkTexture* texture = nullptr;
    } outcome;
    webkit_web_view_get_snapshot(
        host_->webView(), WEBKIT_SNAPSHOT_REGION_VISIBLE, WEBKIT_SNAPSHOT_OPTIONS_NONE, nullptr,
        [](GObject* source, GAsyncResult* result, gpointer data) {
          auto* outcome = static_cast<Outcome*>(data);
          outcome->texture =
              webkit_web_view_get_snapshot_finish(WEBKIT_WEB_VIEW(source), result, nullptr);
          outcome->finished = true;
        },
        &outcome);
    iterateUntil([&] { return outcome.finished; }, 60s);
    if (outcome.texture == nullptr) return;
    const std::string path = (std::filesystem::path(directory) / (name + ".png")).string();
    gdk_texture_save_to_png(outcome.texture, path.c_str());
    g_object_unref(outcome.texture);
  }

  testing::TemporaryDirectory directory_;
  int openedArchives_ = 0;
  std::shared_ptr<ReaderWebViewHost> host_;
  GtkWidget* window_ = nullptr;
};

}  // namespace testing
}  // namespace tomekeeper

// ---- Highlights drawn on screen --------------------------------------------------------------

namespace tomekeeper::testing {

// The display fixture with what the highlight tests share: opening an unpacked book again in a
// fresh web view, selecting words on screen as a reader does, and measuring drawn highlights.
class ReaderRuntimeHighlightDisplayTest : public ReaderRuntimeDisplayTest {
 protected:
  // Selects `wordCount` words of one text node that stand wholly inside the viewport, passing
  // over the first `skippedRuns` such runs so that the words sit well inside the page. Gives the
  // selected text, or null when the page has no such words.
  json selectWordsOnScreen(int wordCount, int skippedRuns) {
    return evaluate("const wordCount = " + std::to_string(wordCount) +
                    ", skippedRuns = " + std::to_string(skippedRuns) + ";" + R"(
      const frame = document.querySelector('iframe.section-frame:not(.preparing)');
      if (!frame) return null;
      const doc = frame.contentDocument;
      const frameBox = frame.getBoundingClientRect();
      const viewport = document.getElementById('reader-viewport').getBoundingClientRect();
      const inside = (box) => {
        const x = frameBox.left + box.left + box.width / 2;
        const y = frameBox.top + box.top + box.height / 2;
        return x >= viewport.left && x <= viewport.right && y >= viewport.top && y <= viewport.bottom;
      };
      const rangeOf = (node, start, end) => {
        const range = doc.createRange();
        range.setStart(node, start);
        range.setEnd(node, end);
        return range;
      };
      const whollyInside = (range) => {
        const boxes = [...range.getClientRects()].filter((box) => box.width > 0 && box.height > 0);
        return boxes.length > 0 && boxes.every(inside);
      };
      let runs = 0;
      const walker = doc.createTreeWalker(doc.body, NodeFilter.SHOW_TEXT);
      for (let node = walker.nextNode(); node; node = walker.nextNode()) {
        const words = [...node.data.matchAll(/\p{L}+/gu)];
        if (words.length < wordCount) continue;
        if (![...rangeOf(node, 0, node.data.length).getClientRects()].some(inside)) continue;
        for (let first = 0; first + wordCount <= words.length; first += 1) {
          const last = words[first + wordCount - 1];
          const range = rangeOf(node, words[first].index, last.index + last[0].length);
          if (!whollyInside(range)) continue;
          runs += 1;
          if (runs <= skippedRuns) continue;
          doc.getSelection().removeAllRanges();
          doc.getSelection().addRange(range);
          return range.toString();
        }
      }
      return null;
    )");
  }

  // The drawn highlights of the section on screen: for each, its words, its boxes in the web
  // view's coordinates, and whether every box stands inside the viewport. Measured in the page.
  json drawnHighlights() {
    return evaluate(R"(
      const frame = document.querySelector('iframe.section-frame:not(.preparing)');
      if (!frame) return [];
      const highlight = frame.contentWindow.CSS.highlights.get('tomekeeper-annotation');
      if (!highlight) return [];
      const frameBox = frame.getBoundingClientRect();
      const viewport = document.getElementById('reader-viewport').getBoundingClientRect();
      return [...highlight].map((range) => {
        const boxes = [...range.getClientRects()]
          .filter((box) => box.width > 0 && box.height > 0)
          .map((box) => ({ x: frameBox.left + box.left, y: frameBox.top + box.top,
                           width: box.width, height: box.height }));
        const onScreen = boxes.length > 0 && boxes.every((box) => {
          const x = box.x + box.width / 2, y = box.y + box.height / 2;
          return x >= viewport.left && x <= viewport.right && y >= viewport.top && y <= viewport.bottom;
        });
        return { words: range.toString(), boxes, onScreen };
      });
    )");
  }

  // Highlights the reader's selection once it has been offered, as the reader would; gives the
  // annotation, or nothing when there was no selection.
  std::optional<RuntimeAnnotation> highlightSelection() {
    const CurrentSelectionResult selection = run(bridge().currentSelection());
    if (!selection.selection) return std::nullopt;
    RuntimeAnnotation annotation;
    annotation.id = Uuid::random();
    annotation.locator = selection.selection->locator;
    annotation.selectedText = selection.selection->selectedText;
    const AnnotationRenderResult rendered =
        run(bridge().addAnnotation(AnnotationRequest{annotation}));
    EXPECT_TRUE(rendered.rendered) << rendered.resolution;
    return annotation;
  }
};

}  // namespace tomekeeper::testing
