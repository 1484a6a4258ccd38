// A book that tries every way out that a page has: script elements and attributes, remote
// resources of every kind, frames, objects, forms, meta refresh, `<base>`, links that leave, and
// SVG and XML spine items with scripts. Each attempt names its own path under `webAddress` (a
// loopback listener's), so a test that hears a request knows which way got out.
#pragma once

#include <string>

#include "support/EpubBuilder.h"

namespace tomekeeper::testing {

// `leadingBody` goes first in the hostile chapter's body and `extraBody` last, for a test's own
// elements ("@web" in them stands for `webAddress` too).
inline std::string hostileBook(const std::string& webAddress, const std::string& leadingBody = "",
                               const std::string& extraBody = "") {
  const auto withListener = [&](std::string text) {
    for (std::size_t found = text.find("@web"); found != std::string::npos;
         found = text.find("@web", found + webAddress.size())) {
      text.replace(found, 4, webAddress);
    }
    return text;
  };
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
)xml" + leadingBody + R"xml(
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
)xml" + extraBody + R"xml(</body></html>
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
  std::string chapter2 = R"xml(<?xml version="1.0" encoding="UTF-8"?>
<html xmlns="http://www.w3.org/1999/xhtml"><head><title>Chapter 2</title>
<script>document.title = 'script ran';</script></head>
<body>
<h1>Chapter 2</h1>
)xml";
  for (int paragraph = 0; paragraph < 3; ++paragraph) {
    chapter2 += "<p>Chapter 2 paragraph " + std::to_string(paragraph) +
                " begins here. The keeper of tomes counted the shelves one by one.</p>\n";
  }
  chapter2 += "<script>document.body.textContent = 'script ran';</script></body></html>\n";
  return EpubBuilder()
      .withPackageDocument(package)
      .replaceFile("OEBPS/chapter1.xhtml", withListener(chapter))
      .addFile("OEBPS/chapter2.xhtml", chapter2)
      .addFile("OEBPS/chapter.svg", withListener(svg("svg-chapter")))
      .addFile("OEBPS/picture.svg", withListener(svg("svg-picture")))
      .addFile("OEBPS/data.xml", withListener(xml))
      .build();
}

}  // namespace tomekeeper::testing
