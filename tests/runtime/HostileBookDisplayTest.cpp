// A book that tries every way out that a page has, shown in the real runtime page: a web server
// on the loopback address must hear nothing of it, and none of its scripts may change a word.
#include <string>
#include <vector>

#include "ReaderRuntimeDisplayFixture.h"
#include "runtime/PublicationSafetyScan.h"
#include "support/HostileBook.h"
#include "support/LoopbackListener.h"

namespace tomekeeper::testing {
namespace {

class HostileBookDisplayTest : public ReaderRuntimeDisplayTest {
 protected:
  std::string hostileBook() const { return testing::hostileBook(listener_.url("")); }

  // The title and text of the section on screen.
  json shownSection() {
    return evaluate(R"(
      const frame = document.querySelector('iframe.section-frame:not(.preparing)');
      const doc = frame.contentDocument;
      return { src: frame.src, title: doc.title, text: doc.documentElement.textContent };
    )");
  }

  LoopbackListener listener_;
};

TEST_F(HostileBookDisplayTest, NothingOfTheBookRunsOrReachesTheWeb) {
  std::vector<std::string> externalLinks;
  host_->onExternalLink = [&](std::string url) { externalLinks.push_back(std::move(url)); };

  // The SVG and XML items of the spine are not framed: two sections are left, each with a notice
  // of the item left out before it.
  const OpenPublicationResult opened = openBook(hostileBook());
  EXPECT_EQ(opened.spineItemCount, 2);

  const json first = shownSection();
  EXPECT_NE(first["src"].dump().find("chapter1.xhtml"), std::string::npos);
  EXPECT_EQ(first["title"], "Hostile");
  EXPECT_NE(first["text"].dump().find("The untouched words of the hostile chapter."),
            std::string::npos);
  EXPECT_NE(first["text"].dump().find("“chapter.svg” (image/svg+xml)"), std::string::npos);

  // What a reader could click: a javascript: link, links out of the book and a form.
  evaluate(R"(
    const doc = document.querySelector('iframe.section-frame:not(.preparing)').contentDocument;
    for (const id of ['javascript', 'top', 'blank', 'submit']) doc.getElementById(id)?.click();
    return true;
  )");

  run(bridge().nextSection());
  const json second = shownSection();
  EXPECT_NE(second["src"].dump().find("chapter2.xhtml"), std::string::npos);
  EXPECT_EQ(second["title"], "Chapter 2");
  EXPECT_NE(second["text"].dump().find("Chapter 2 paragraph 0 begins here."), std::string::npos);
  EXPECT_NE(second["text"].dump().find("“data.xml” (application/xml)"), std::string::npos);
  run(bridge().previousSection());
  EXPECT_EQ(shownSection()["title"], "Hostile");

  // The sentinel: a request of the runtime page itself, made after every section settled,
  // which the listener answers in its turn after anything the book had sent.
  evaluate("await fetch(" + json(listener_.url("/sentinel")).dump() +
           ", { mode: 'no-cors' }); return true;");
  ASSERT_TRUE(iterateUntil(
      [&] { return !listener_.paths().empty() && listener_.paths().back() == "/sentinel"; }, 10s));
  EXPECT_EQ(listener_.paths(), std::vector<std::string>{"/sentinel"});

  // The book's safety report counts every attempt of its documents, the two that the runtime
  // never framed among them.
  const PublicationSafetyReport report = scanPublicationSafety(directory_ / "Extracted");
  EXPECT_EQ(report.scriptElements, 7u);
  EXPECT_EQ(report.eventHandlerAttributes, 4u);
  EXPECT_EQ(report.javascriptURLs, 1u);
  EXPECT_EQ(report.webReferences, 25u);
  EXPECT_EQ(report.webLinks, 2u);
  EXPECT_EQ(report.forms, 1u);
  EXPECT_EQ(report.metaRefreshes, 1u);
  EXPECT_EQ(report.frames, 2u);
  EXPECT_EQ(report.objectsAndEmbeds, 3u);
  EXPECT_EQ(report.unreadableDocuments, 0u);
  EXPECT_TRUE(report.webAddresses.contains(listener_.url("/srcset-2x")));
  EXPECT_TRUE(report.webAddresses.contains(listener_.url("/xml-chapter-image")));

  // The links out of the book went to the host, which asks the reader, and nowhere else.
  for (const std::string& url : externalLinks) {
    EXPECT_TRUE(url == listener_.url("/top") || url == listener_.url("/blank")) << url;
  }
}

TEST(PublicationSafetyScanOfASampleBookTest, TheLongSampleBookTriesNothing) {
  TemporaryDirectory directory;
  const std::filesystem::path root =
      extractBook(sampleCorpusDirectory() / "moby-dick.epub", directory / "Extracted");
  const auto started = std::chrono::steady_clock::now();
  const PublicationSafetyReport report = scanPublicationSafety(root);
  const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::steady_clock::now() - started);
  RecordProperty("scanMilliseconds", static_cast<int>(elapsed.count()));
  EXPECT_FALSE(report.triedScript());
  EXPECT_FALSE(report.triedTheWeb());
  EXPECT_EQ(report.forms + report.metaRefreshes + report.frames + report.objectsAndEmbeds +
                report.unreadableDocuments,
            0u);
  EXPECT_TRUE(report.webAddresses.empty());
}

}  // namespace
}  // namespace tomekeeper::testing
