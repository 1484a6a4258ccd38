// Times the real reader runtime page in a real web view, driven through the bridge as the session
// drives it:
//   - a page turn within a section: `next` over 500 turns, median and 95th percentile, beside the
//     no-op round trip (`cancelSearch`) of the same page, so that the layout's share shows;
//   - the open of a generated book of 2000 sections up to its first page shown.
// Needs a display: xvfb-run -a dbus-run-session -- build/<dir>/bench/runtime/bench_reader_runtime
#include <gtk/gtk.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "async/RunUntilDone.h"
#include "intake/EPUBArchiveExtractor.h"
#include "intake/EPUBArchiveInspector.h"
#include "runtime/ReaderWebViewHost.h"
#include "support/EpubBuilder.h"

namespace {

using namespace tomekeeper;
using Clock = std::chrono::steady_clock;

constexpr int kPageTurns = 500;
constexpr int kRoundTrips = 500;
constexpr int kLargeBookSections = 2000;
constexpr int kLargeBookOpens = 5;

double millisecondsSince(Clock::time_point started) {
  return std::chrono::duration<double, std::milli>(Clock::now() - started).count();
}

double percentile(std::vector<double> values, double fraction) {
  std::sort(values.begin(), values.end());
  const auto index = static_cast<std::size_t>(fraction * static_cast<double>(values.size() - 1));
  return values[index];
}

std::string sectionDocument(int section, int paragraphs) {
  std::string body;
  for (int paragraph = 0; paragraph < paragraphs; ++paragraph) {
    body +=
        "<p>Section " + std::to_string(section) + " paragraph " + std::to_string(paragraph) + ".";
    for (int sentence = 0; sentence < 6; ++sentence) {
      body += " The keeper of tomes walked corridor " + std::to_string(sentence) +
              " and counted the shelves one by one.";
    }
    body += "</p>\n";
  }
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
         "<html xmlns=\"http://www.w3.org/1999/xhtml\" xml:lang=\"en\"><head><title>Section " +
         std::to_string(section) + "</title></head>\n<body>\n<h1>Section " +
         std::to_string(section) + "</h1>\n" + body + "</body></html>\n";
}

// A book of `sections` sections of `paragraphs` paragraphs each.
testing::EpubBuilder generatedBook(int sections, int paragraphs) {
  testing::EpubBuilder builder;
  std::string manifest;
  std::string spine;
  for (int section = 0; section < sections; ++section) {
    const std::string name = "s" + std::to_string(section);
    manifest += "<item id=\"" + name + "\" href=\"text/" + name +
                ".xhtml\" media-type=\"application/xhtml+xml\"/>\n";
    spine += "<itemref idref=\"" + name + "\"/>\n";
    builder.addFile("OEBPS/text/" + name + ".xhtml", sectionDocument(section, paragraphs));
  }
  builder.replaceFile(testing::EpubBuilder::kPackageDocumentPath,
                      R"(<?xml version="1.0" encoding="UTF-8"?>
<package xmlns="http://www.idpf.org/2007/opf" version="3.0" unique-identifier="id">
  <metadata xmlns:dc="http://purl.org/dc/elements/1.1/">
    <dc:identifier id="id">urn:uuid:7c9e6679-7425-40de-944b-e07fc1f90ae7</dc:identifier>
    <dc:title>Benchmark</dc:title>
    <dc:language>en</dc:language>
    <meta property="dcterms:modified">2025-01-01T00:00:00Z</meta>
  </metadata>
  <manifest>
)" + manifest + "</manifest>\n<spine>\n" +
                          spine + "</spine>\n</package>\n");
  return builder;
}

// A book registered with the host, and the request that opens it.
struct Registered {
  OpenPublicationRequest request;
};

// Writes and extracts the book as the application does, and registers it with the host.
Registered registerBook(ReaderWebViewHost& host, const testing::EpubBuilder& epub,
                        const std::filesystem::path& directory, const std::string& name) {
  const std::filesystem::path archive = directory / (name + ".epub");
  epub.writeTo(archive);
  const EPUBArchiveInspection inspection = EPUBArchiveInspector().inspectBlocking(archive);
  const std::filesystem::path root =
      EPUBArchiveExtractor().extract(archive, inspection, directory / name).rootURL;
  const Uuid publicationID = Uuid::random();
  host.registerPublication(publicationID, root);
  const std::string base = "tomekeeper://publication/" + publicationID.string() + "/";
  Registered registered;
  registered.request.publication.publicationID = publicationID;
  registered.request.publication.packageURL = base + testing::EpubBuilder::kPackageDocumentPath;
  registered.request.publication.resourceBaseURL = base + "OEBPS/";
  return registered;
}

struct Figures {
  std::vector<double> pageTurns;
  std::vector<double> roundTrips;
  std::vector<double> largeOpens;
  std::int64_t pagesPerSection = 0;
};

async::Task<Figures> measure(std::shared_ptr<ReaderWebViewHost> host, Registered pageBook,
                             Registered largeBook) {
  co_await host->prepareRuntime(TOMEKEEPER_RUNTIME_PAGE_DIRECTORY, std::chrono::seconds(10));
  ReaderBridge& bridge = *host->bridge();
  Figures figures;

  co_await bridge.open(pageBook.request);
  for (int warmUp = 0; warmUp < 20; ++warmUp) co_await bridge.next();
  co_await bridge.goTo(GoToRequest{"text/s0.xhtml"});
  while (static_cast<int>(figures.pageTurns.size()) < kPageTurns) {
    const auto started = Clock::now();
    const ReaderPositionResult position = co_await bridge.next();
    figures.pageTurns.push_back(millisecondsSince(started));
    figures.pagesPerSection = position.pageCount;
    // Only turns within the section count: from its last page the reader starts it again.
    if (position.page == position.pageCount) {
      co_await bridge.goTo(GoToRequest{"text/s0.xhtml"});
    }
  }

  for (int warmUp = 0; warmUp < 50; ++warmUp) {
    co_await bridge.cancelSearch(CancelSearchRequest{Uuid::random()});
  }
  for (int index = 0; index < kRoundTrips; ++index) {
    const auto started = Clock::now();
    co_await bridge.cancelSearch(CancelSearchRequest{Uuid::random()});
    figures.roundTrips.push_back(millisecondsSince(started));
  }

  for (int open = 0; open < kLargeBookOpens; ++open) {
    const auto started = Clock::now();
    co_await bridge.open(largeBook.request);
    figures.largeOpens.push_back(millisecondsSince(started));
    // Between opens, back to the small book, so that each open starts from another publication.
    co_await bridge.open(pageBook.request);
  }
  co_return figures;
}

}  // namespace

int main() {
  gtk_init();
  char pattern[] = "/tmp/tomekeeper-bench-XXXXXX";
  if (mkdtemp(pattern) == nullptr) return 1;
  const std::filesystem::path directory = pattern;

  auto host = ReaderWebViewHost::create();
  GtkWidget* window = gtk_window_new();
  gtk_window_set_default_size(GTK_WINDOW(window), 900, 700);
  gtk_window_set_child(GTK_WINDOW(window), GTK_WIDGET(host->webView()));
  gtk_window_present(GTK_WINDOW(window));

  // Page turns: one long section, a few of them; the large book: many short sections.
  const Registered pageBook = registerBook(*host, generatedBook(3, 150), directory, "pages");
  const Registered largeBook =
      registerBook(*host, generatedBook(kLargeBookSections, 3), directory, "large");
  const Figures figures =
      async::runUntilDone(measure(host, pageBook, largeBook), std::chrono::minutes(10));

  std::printf(
      "page turn (next) within a section of %lld pages, %d turns: median %.3f ms, "
      "p95 %.3f ms\n",
      static_cast<long long>(figures.pagesPerSection), kPageTurns,
      percentile(figures.pageTurns, 0.5), percentile(figures.pageTurns, 0.95));
  std::printf("no-op bridge round trip (cancelSearch), %d requests: median %.3f ms, p95 %.3f ms\n",
              kRoundTrips, percentile(figures.roundTrips, 0.5),
              percentile(figures.roundTrips, 0.95));
  std::printf(
      "open of a book of %d sections to its first page, %d opens: median %.1f ms, "
      "max %.1f ms\n",
      kLargeBookSections, kLargeBookOpens, percentile(figures.largeOpens, 0.5),
      percentile(figures.largeOpens, 1.0));

  host.reset();
  gtk_window_destroy(GTK_WINDOW(window));
  std::error_code error;
  std::filesystem::remove_all(directory, error);
  return 0;
}
