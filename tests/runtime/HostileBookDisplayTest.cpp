// A book that tries every way out that a page has, shown in the real runtime page: a web server
// on the loopback address must hear nothing of it, and none of its scripts may change a word.
#include <string>
#include <vector>

#include "ReaderRuntimeDisplayFixture.h"
#include "runtime/PublicationSafetyScan.h"
#include "support/LoopbackListener.h"

namespace tomekeeper::testing {
namespace {

class HostileBookDisplayTest : public ReaderRuntimeDisplayTest {
 protected:
  // Every way of running script or reaching the web that the book tries, each naming its own
  // path on the listener ("@web" stands for the listener's address).
  std::string hostileBook() const {
    const std::string chapter = R"xml(<?xml version="1.0" encoding="UTF-8"?>
<html xmlns="http://www.w3.org/1999/xhtml" xmlns:svg="http://www.w3.org/2000/svg"><head>
<title>Hostile</title>
<base href="@web/base/"/>
<meta http-equiv="refresh" content="0;url=@web/refresh"/>
<link rel="stylesheet" href="@web/stylesheet"/>
<link rel="prefetch" href="@web/prefetch"/>
<link rel="preload" as="image" href="@web/preload"/>
<link rel="preconnect" href="@web/preconnect"/>
<link rel="icon" href="@web/icon"/>
<style>@import url("@web/import");
@font-face { font-family: Remote; src: url("@web/font"); }
p.remote { font-family: Remote; background-image: url("@web/background"); }</style>
<script>document.title = 'script ran'; fetch('@web/script');</script>
<script src="@web/script-source"></script>
</head><body onload="fetch('@web/onload')">
<p id="intact" class="remote">The untouched words of the hostile chapter.</p>
<p style="background-image: url('@web/style-attribute')">Styled.</p>
<img src="@web/image" onerror="fetch('@web/onerror')" alt=""/>
<img src="missing.png" srcset="@web/srcset 1x, @web/srcset-2x 2x" alt=""/>
<img src="relative-to-base.png" alt=""/>
<img src="picture.svg" alt=""/>
<object data="picture.svg" type="image/svg+xml"></object>
<object data="@web/object"></object>
<embed src="@web/embed"/>
<iframe src="@web/iframe"></iframe>
<iframe src="chapter.svg"></iframe>
<video poster="@web/poster" src="@web/video"></video>
<audio autoplay="autoplay" src="@web/audio"></audio>
<svg:svg width="10" height="10"><svg:image href="@web/inline-svg-image" width="10" height="10"/></svg:svg>
<form action="@web/form" method="get"><input id="submit" type="submit"/></form>
<a id="javascript" href="javascript:fetch('@web/javascript-url')">js</a>
<a id="top" href="@web/top" target="_top">top</a>
<a id="blank" href="@web/blank" target="_blank">blank</a>
</body></html>
)xml";
    // An SVG document with a script, an event attribute and a remote image.
    const auto svg = [](const std::string& name) {
      std::string text = R"xml(<svg xmlns="http://www.w3.org/2000/svg" width="10" height="10"
onload="fetch('@web/@name-onload')"><script>fetch('@web/@name-script');</script>
<image href="@web/@name-image" width="10" height="10"/><text y="10">SVG</text></svg>)xml";
      for (std::size_t found = text.find("@name"); found != std::string::npos;
           found = text.find("@name", found)) {
        text.replace(found, 5, name);
      }
      return text;
    };
    const std::string xml = R"xml(<?xml version="1.0"?>
<data xmlns:h="http://www.w3.org/1999/xhtml"><h:script>fetch('@web/xml-chapter-script');</h:script>
<h:img src="@web/xml-chapter-image"/></data>)xml";
    PackageDescription package;
    package.manifest = {{"svg-chapter", "chapter.svg", "image/svg+xml"},
                        {"chapter1", "chapter1.xhtml"},
                        {"xml-chapter", "data.xml", "application/xml"},
                        {"chapter2", "chapter2.xhtml"},
                        {"picture", "picture.svg", "image/svg+xml"}};
    package.spine = {"svg-chapter", "chapter1", "xml-chapter", "chapter2"};
    return EpubBuilder()
        .withPackageDocument(package)
        .replaceFile("OEBPS/chapter1.xhtml", withListener(chapter))
        .addFile("OEBPS/chapter2.xhtml",
                 chapterDocument(2, 3, "<script>document.title = 'script ran';</script>",
                                 "<script>document.body.textContent = 'script ran';</script>"))
        .addFile("OEBPS/chapter.svg", withListener(svg("svg-chapter")))
        .addFile("OEBPS/picture.svg", withListener(svg("svg-picture")))
        .addFile("OEBPS/data.xml", withListener(xml))
        .build();
  }

  // `text` with every "@web" replaced by the listener's address.
  std::string withListener(std::string text) const {
    const std::string address = listener_.url("");
    for (std::size_t found = text.find("@web"); found != std::string::npos;
         found = text.find("@web", found + address.size())) {
      text.replace(found, 4, address);
    }
    return text;
  }

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
  EXPECT_NE(second["text"].dump().find(paragraphText(2, 0)), std::string::npos);
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
