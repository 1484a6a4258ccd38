// The real reader runtime page in a real WebKitGTK web view, driven through the bridge as the
// session drives it. These tests need a display (label display).
#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "FakeReaderBridgeTransport.h"
#include "async/RunUntilDone.h"
#include "intake/EPUBArchiveExtractor.h"
#include "intake/EPUBArchiveInspector.h"
#include "runtime/ReaderWebViewHost.h"
#include "support/EpubBuilder.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper {
namespace {

using namespace std::chrono_literals;
using json = nlohmann::json;
using testing::iterateFor;
using testing::iterateUntil;

constexpr int kWindowWidth = 900;
constexpr int kWindowHeight = 700;

// ---- A book of a few long sections -----------------------------------------------------------

// A paragraph whose words say where it stands, so that any excerpt names one place.
std::string paragraphText(int chapter, int paragraph) {
  std::string text = "Chapter " + std::to_string(chapter) + " paragraph " +
                     std::to_string(paragraph) + " begins here.";
  for (int sentence = 0; sentence < 6; ++sentence) {
    text += " The keeper of tomes walked the long corridor number " +
            std::to_string(chapter * 1000 + paragraph * 10 + sentence) +
            " and counted the shelves one by one.";
  }
  return text;
}

std::string chapterDocument(int chapter, int paragraphs, const std::string& extraHead = "",
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

constexpr const char* kPackageDocument = R"(<?xml version="1.0" encoding="UTF-8"?>
<package xmlns="http://www.idpf.org/2007/opf" version="3.0" unique-identifier="id">
  <metadata xmlns:dc="http://purl.org/dc/elements/1.1/">
    <dc:identifier id="id">urn:uuid:2b0b8c1e-3f43-4a5e-9e55-0c3c1c8f2d10</dc:identifier>
    <dc:title>The Keeper of Tomes</dc:title>
    <dc:creator>Ada Shelfwright</dc:creator>
    <dc:language>en</dc:language>
    <meta property="dcterms:modified">2025-01-01T00:00:00Z</meta>
  </metadata>
  <manifest>
    <item id="nav" href="nav.xhtml" media-type="application/xhtml+xml" properties="nav"/>
    <item id="chapter1" href="text/chapter1.xhtml" media-type="application/xhtml+xml"/>
    <item id="chapter2" href="text/chapter2.xhtml" media-type="application/xhtml+xml" properties="scripted"/>
    <item id="chapter3" href="text/chapter3.xhtml" media-type="application/xhtml+xml"/>
  </manifest>
  <spine>
    <itemref idref="chapter1"/>
    <itemref idref="chapter2"/>
    <itemref idref="chapter3"/>
  </spine>
</package>
)";

constexpr const char* kNavigationDocument = R"(<?xml version="1.0" encoding="UTF-8"?>
<html xmlns="http://www.w3.org/1999/xhtml" xmlns:epub="http://www.idpf.org/2007/ops">
<head><title>Contents</title></head>
<body><nav epub:type="toc"><ol>
  <li><a href="text/chapter1.xhtml">The First Chapter</a></li>
  <li><a href="text/chapter2.xhtml">The Second Chapter</a>
    <ol><li><a href="text/chapter2.xhtml#c2p20">Deep in the second</a></li></ol></li>
  <li><a href="text/chapter3.xhtml">The Third Chapter</a></li>
</ol></nav></body></html>
)";

// The marker that a section's script would leave if it ran.
constexpr const char* kScriptMarker = "script-ran-in-the-book";

std::string keeperBook() {
  testing::EpubBuilder builder;
  builder.replaceFile(testing::EpubBuilder::kPackageDocumentPath, kPackageDocument);
  builder.addFile("OEBPS/nav.xhtml", kNavigationDocument);
  builder.addFile("OEBPS/text/chapter1.xhtml", chapterDocument(1, 30));
  builder.addFile(
      "OEBPS/text/chapter2.xhtml",
      chapterDocument(
          2, 30,
          std::string("<script>document.documentElement.setAttribute('data-marker', '") +
              kScriptMarker + "');</script>",
          std::string("<p id=\"needle\">A zebra marmalade stood on the last shelf.</p>\n"
                      "<script>document.title = '") +
              kScriptMarker + "';</script>\n"));
  builder.addFile("OEBPS/text/chapter3.xhtml", chapterDocument(3, 30));
  return builder.build();
}

// ---- The fixture
// ---------------------------------------------------------------------------------

// Unpacks an EPUB with the intake's own inspector and extractor, as the application does.
std::filesystem::path extractBook(const std::filesystem::path& archive,
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
    gtk_window_set_default_size(GTK_WINDOW(window_), kWindowWidth, kWindowHeight);
    gtk_window_set_child(GTK_WINDOW(window_), GTK_WIDGET(host_->webView()));
    gtk_window_present(GTK_WINDOW(window_));
  }

  void TearDown() override {
    host_.reset();
    gtk_window_destroy(GTK_WINDOW(window_));
    iterateFor(20ms);
  }

  // Registers the book, loads the runtime and opens the book through the bridge.
  OpenPublicationResult openArchive(const std::filesystem::path& archive) {
    const std::filesystem::path root = extractBook(archive, directory_ / "Extracted");
    const Uuid publicationID = Uuid::random();
    host_->registerPublication(publicationID, root);
    async::runUntilDone(host_->prepareRuntime(TOMEKEEPER_RUNTIME_PAGE_DIRECTORY, 10s), 20s);
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

  OpenPublicationResult openBook(const std::string& epub) {
    const std::filesystem::path archive = directory_ / "book.epub";
    std::ofstream(archive, std::ios::binary) << epub;
    return openArchive(archive);
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
  json evaluate(const std::string& body) {
    struct Outcome {
      bool finished = false;
      std::string text;
      std::string error;
    } outcome;
    const std::string wrapped = "return JSON.stringify(await (async () => {" + body + "})());";
    webkit_web_view_call_async_javascript_function(
        host_->webView(), wrapped.c_str(), -1, nullptr, nullptr, nullptr, nullptr,
        [](GObject* source, GAsyncResult* result, gpointer data) {
          auto* outcome = static_cast<Outcome*>(data);
          GError* error = nullptr;
          JSCValue* value = webkit_web_view_call_async_javascript_function_finish(
              WEBKIT_WEB_VIEW(source), result, &error);
          if (value == nullptr) {
            outcome->error = error != nullptr ? error->message : "no value";
            g_clear_error(&error);
          } else {
            char* text = jsc_value_is_undefined(value) ? nullptr : jsc_value_to_string(value);
            outcome->text = text != nullptr ? text : "null";
            g_free(text);
            g_object_unref(value);
          }
          outcome->finished = true;
        },
        &outcome);
    if (!iterateUntil([&] { return outcome.finished; }, 20s)) {
      ADD_FAILURE() << "the script did not finish: " << body;
      // The callback still holds the outcome; wait for it before it goes away.
      iterateUntil([&] { return outcome.finished; }, 60s);
      return nullptr;
    }
    if (!outcome.error.empty()) {
      ADD_FAILURE() << "the script failed: " << outcome.error << "\n" << body;
      return nullptr;
    }
    return json::parse(outcome.text);
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

  testing::TemporaryDirectory directory_;
  std::shared_ptr<ReaderWebViewHost> host_;
  GtkWidget* window_ = nullptr;
};

TEST_F(ReaderRuntimeDisplayTest, OpensABookAndShowsItsFirstPage) {
  const OpenPublicationResult opened = openBook(keeperBook());
  EXPECT_EQ(opened.title, "The Keeper of Tomes");
  EXPECT_EQ(opened.authors, std::vector<std::string>{"Ada Shelfwright"});
  EXPECT_EQ(opened.spineItemCount, 3);
  EXPECT_NE(opened.initialResourceURL.find("text/chapter1.xhtml"), std::string::npos);

  const Locator locator = run(bridge().currentLocator());
  EXPECT_EQ(locator.spineIndex, 0);
  EXPECT_EQ(locator.spineHref, "text/chapter1.xhtml");
  // Only the white space before the heading lies before the first visible character.
  EXPECT_LT(locator.sectionProgression.value_or(1), 0.001);
  ASSERT_TRUE(locator.excerpt);
  EXPECT_EQ(locator.excerpt->exact.rfind("Chapter 1", 0), 0u) << locator.excerpt->exact;

  const json shown = visibleSection();
  ASSERT_FALSE(shown["visible"].empty()) << shown.dump();
  EXPECT_EQ(shown["visible"][0], "top");
}

TEST_F(ReaderRuntimeDisplayTest, NextTurnsToTheFollowingPageOfTheSection) {
  openBook(keeperBook());
  const json before = visibleSection();
  const ReaderPositionResult position = run(bridge().next());
  EXPECT_EQ(position.spineIndex, 0);
  EXPECT_EQ(position.page, 2);
  EXPECT_GT(position.pageCount, 2);
  EXPECT_FALSE(position.atStart);
  EXPECT_FALSE(position.atEnd);

  const json after = visibleSection();
  ASSERT_FALSE(after["visible"].empty()) << after.dump();
  EXPECT_NE(after["visible"], before["visible"]);
  const Locator locator = run(bridge().currentLocator());
  EXPECT_GT(locator.sectionProgression.value_or(0), 0.0);
}

}  // namespace
}  // namespace tomekeeper
