// Times the real reader runtime page in a real web view, driven through the bridge as the session
// drives it:
//   - a page turn within a section: `next` over 500 turns, median and 95th percentile, beside the
//     no-op round trip (`cancelSearch`) of the same page, so that the layout's share shows;
//   - the open of a generated book of 2000 sections up to its first page shown;
//   - a full-text search of that book, from `startSearch` to the batch that completes it, beside
//     grep over the same sections on disk, so that the search's cost shows against a plain scan;
//     the first search, right after the open, apart from the median of the later ones.
// Needs a display: xvfb-run -a dbus-run-session -- build/<dir>/bench/runtime/bench_reader_runtime
#include <glib.h>
#include <gtk/gtk.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "async/Completion.h"
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
constexpr int kSearches = 5;
// Three times in each section of the large book, once per paragraph, and never in its markup:
// grep's line count, grep's match count and the search's result count all come out the same.
constexpr const char* kSearchWord = "paragraph";

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
  testing::PackageDescription package{.identifier = "urn:uuid:7c9e6679-7425-40de-944b-e07fc1f90ae7",
                                      .title = "Benchmark"};
  for (int section = 0; section < sections; ++section) {
    const std::string name = "s" + std::to_string(section);
    package.manifest.push_back({name, "text/" + name + ".xhtml"});
    package.spine.push_back(name);
    builder.addFile("OEBPS/text/" + name + ".xhtml", sectionDocument(section, paragraphs));
  }
  builder.withPackageDocument(package);
  return builder;
}

// A book registered with the host, and the request that opens it.
struct Registered {
  OpenPublicationRequest request;
};

// Writes and extracts the book as the application does, and registers it with the host.
// `extractedSections` receives the directory of the extracted section files.
Registered registerBook(ReaderWebViewHost& host, const testing::EpubBuilder& epub,
                        const std::filesystem::path& directory, const std::string& name,
                        std::filesystem::path* extractedSections = nullptr) {
  const std::filesystem::path archive = directory / (name + ".epub");
  epub.writeTo(archive);
  const EPUBArchiveInspection inspection = EPUBArchiveInspector().inspectBlocking(archive);
  const std::filesystem::path root =
      EPUBArchiveExtractor().extract(archive, inspection, directory / name).rootURL;
  if (extractedSections != nullptr) *extractedSections = root / "OEBPS" / "text";
  const Uuid publicationID = Uuid::random();
  host.registerPublication(publicationID, root);
  const std::string base = "tomekeeper://publication/" + publicationID.string() + "/";
  Registered registered;
  registered.request.publication.publicationID = publicationID;
  registered.request.publication.packageURL = base + testing::EpubBuilder::kPackageDocumentPath;
  registered.request.publication.resourceBaseURL = base + "OEBPS/";
  return registered;
}

struct GrepRun {
  double milliseconds = 0;
  std::size_t count = 0;
};

enum class GrepCount {
  // grep -c: the lines that hold the word, summed over the files.
  lines,
  // grep -o: every occurrence on a line of its own, the lines counted as `| wc -l` would.
  occurrences,
};

// Runs grep for `word`, case-insensitively, over the files under `sections` as a child process,
// and times it from spawn to exit. Throws when grep cannot run or fails.
GrepRun timeGrep(const std::filesystem::path& sections, const std::string& word, GrepCount count) {
  std::vector<std::string> arguments{"grep", "--recursive", "--no-filename", "--ignore-case"};
  arguments.push_back(count == GrepCount::lines ? "--count" : "--only-matching");
  arguments.push_back(word);
  arguments.push_back(sections.string());
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  gchar* output = nullptr;
  gint status = 0;
  GError* error = nullptr;
  const auto started = Clock::now();
  const gboolean spawned = g_spawn_sync(nullptr, argv.data(), nullptr, G_SPAWN_SEARCH_PATH, nullptr,
                                        nullptr, &output, nullptr, &status, &error);
  GrepRun run;
  run.milliseconds = millisecondsSince(started);
  const std::unique_ptr<gchar, decltype(&g_free)> ownedOutput(output, g_free);
  // grep exits with 1 when nothing matched, which is a count of 0 and no failure.
  if (spawned && !g_spawn_check_wait_status(status, &error) &&
      g_error_matches(error, G_SPAWN_EXIT_ERROR, 1)) {
    g_clear_error(&error);
  }
  if (error != nullptr) {
    const std::string message = error->message;
    g_error_free(error);
    throw std::runtime_error("grep: " + message);
  }
  const std::string text = output == nullptr ? std::string() : std::string(output);
  if (count == GrepCount::lines) {
    for (std::size_t line = 0; line < text.size();) {
      std::size_t end = text.find('\n', line);
      if (end == std::string::npos) end = text.size();
      run.count += std::stoul(text.substr(line, end - line));
      line = end + 1;
    }
  } else {
    run.count = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
  }
  return run;
}

struct Figures {
  std::vector<double> pageTurns;
  std::vector<double> roundTrips;
  std::vector<double> largeOpens;
  std::vector<double> searches;
  std::vector<std::size_t> searchResultCounts;
  std::vector<std::size_t> searchBatchCounts;
  std::vector<GrepRun> grepLines;
  std::vector<GrepRun> grepOccurrences;
  std::int64_t pagesPerSection = 0;
};

struct SearchRun {
  double milliseconds = 0;
  std::size_t results = 0;
  std::size_t batches = 0;
};

// One search of the open book, as the session runs it: the time runs from the call of
// startSearch to the arrival of the batch marked complete, every batch decoded on the way.
async::Task<SearchRun> searchOnce(ReaderBridge& bridge, std::string query) {
  const Uuid searchID = Uuid::random();
  auto completed = std::make_shared<async::Completion<>>();
  SearchRun run;
  Clock::time_point finished;
  bridge.onSearchResults = [&, searchID, completed](Uuid id,
                                                    std::vector<PublicationSearchResult> batch,
                                                    bool isComplete) {
    if (id != searchID) return;
    run.results += batch.size();
    run.batches += 1;
    if (isComplete) {
      finished = Clock::now();
      completed->resolve();
    }
  };
  const auto started = Clock::now();
  co_await bridge.startSearch(StartSearchRequest{searchID, std::move(query)});
  co_await *completed;
  bridge.onSearchResults = nullptr;
  run.milliseconds = std::chrono::duration<double, std::milli>(finished - started).count();
  co_return run;
}

async::Task<Figures> measure(std::shared_ptr<ReaderWebViewHost> host, Registered pageBook,
                             Registered largeBook, std::filesystem::path largeBookSections) {
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

  co_await bridge.open(largeBook.request);
  for (int search = 0; search < kSearches; ++search) {
    const SearchRun run = co_await searchOnce(bridge, kSearchWord);
    figures.searches.push_back(run.milliseconds);
    figures.searchResultCounts.push_back(run.results);
    figures.searchBatchCounts.push_back(run.batches);
    // grep reads the extracted section files, the very bytes that the page fetches and parses. It
    // scans the markup too, which the search never looks at; the word does not occur there, so
    // both count the same matches, and grep is spared the parsing that gives the search its text,
    // its inline-split matches and its locators: it stands for the cost of merely reading the
    // book. It runs between the searches, so that both see the same load of the machine.
    figures.grepLines.push_back(timeGrep(largeBookSections, kSearchWord, GrepCount::lines));
    figures.grepOccurrences.push_back(
        timeGrep(largeBookSections, kSearchWord, GrepCount::occurrences));
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
  // With TOMEKEEPER_BENCH_PAGE_CONSOLE set, the page's console messages (timing marks of a
  // profiling build of the runtime, say) are written to standard output.
  if (g_getenv("TOMEKEEPER_BENCH_PAGE_CONSOLE") != nullptr) {
    webkit_settings_set_enable_write_console_messages_to_stdout(
        webkit_web_view_get_settings(host->webView()), TRUE);
  }
  GtkWidget* window = gtk_window_new();
  gtk_window_set_default_size(GTK_WINDOW(window), 900, 700);
  gtk_window_set_child(GTK_WINDOW(window), GTK_WIDGET(host->webView()));
  gtk_window_present(GTK_WINDOW(window));

  // Page turns: one long section, a few of them; the large book: many short sections.
  const Registered pageBook = registerBook(*host, generatedBook(3, 150), directory, "pages");
  std::filesystem::path largeBookSections;
  const Registered largeBook = registerBook(*host, generatedBook(kLargeBookSections, 3), directory,
                                            "large", &largeBookSections);
  const Figures figures = async::runUntilDone(measure(host, pageBook, largeBook, largeBookSections),
                                              std::chrono::minutes(10));

  const auto milliseconds = [](const std::vector<GrepRun>& runs) {
    std::vector<double> values;
    for (const GrepRun& run : runs) values.push_back(run.milliseconds);
    return values;
  };

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
  const double searchMedian = percentile(figures.searches, 0.5);
  const double grepMedian = percentile(milliseconds(figures.grepLines), 0.5);
  const double grepMatchesMedian = percentile(milliseconds(figures.grepOccurrences), 0.5);
  std::printf(
      "search of the book of %d sections for \"%s\", startSearch to the complete batch, %d "
      "searches: median %.1f ms, min %.1f ms, max %.1f ms, first (right after the open) %.1f ms; "
      "%zu results in %zu batches\n",
      kLargeBookSections, kSearchWord, kSearches, searchMedian, percentile(figures.searches, 0.0),
      percentile(figures.searches, 1.0), figures.searches.front(),
      figures.searchResultCounts.back(), figures.searchBatchCounts.back());
  std::printf(
      "grep -c -i %s over the same %d extracted sections, %d runs: median %.1f ms; %zu lines\n",
      kSearchWord, kLargeBookSections, kSearches, grepMedian, figures.grepLines.back().count);
  std::printf("grep -o -i %s | wc -l over them, %d runs: median %.1f ms; %zu matches\n",
              kSearchWord, kSearches, grepMatchesMedian, figures.grepOccurrences.back().count);
  std::printf("search / grep -c: %.1f; search / grep -o: %.1f\n", searchMedian / grepMedian,
              searchMedian / grepMatchesMedian);
  // The first search reads and prepares every section; those after it find them prepared.
  std::printf("first search / grep -c: %.1f\n", figures.searches.front() / grepMedian);

  host.reset();
  gtk_window_destroy(GTK_WINDOW(window));
  std::error_code error;
  std::filesystem::remove_all(directory, error);
  return 0;
}
