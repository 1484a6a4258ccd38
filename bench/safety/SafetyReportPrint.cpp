// The "Book Safety" text of one book, as the reader's dialog shows it, on the terminal:
//   build/<dir>/bench/safety/bench_safety_report book.epub
//   build/<dir>/bench/safety/bench_safety_report --hostile
// The book goes through the extraction cache (in a temporary directory) as an opened book does,
// its documents are scanned as the session scans them, and what intake found joins the report.
// --hostile writes the hostile test book first (its web addresses name 127.0.0.1:9, where
// nothing listens; nothing here loads them anyway).
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include "async/RunUntilDone.h"
#include "intake/PublicationExtractionCache.h"
#include "runtime/PublicationSafetyScan.h"
#include "session/BookSafetySummary.h"
#include "support/HostileBook.h"

namespace {

namespace fs = std::filesystem;

void printNames(const char* heading, const std::set<std::string>& names) {
  if (names.empty()) return;
  std::printf("\n%s\n", heading);
  for (const std::string& name : names) std::printf("%s\n", name.c_str());
}

int printReport(const fs::path& book, const fs::path& work) {
  tomekeeper::PublicationExtractionCache cache(work / "Caches");
  const tomekeeper::PreparedPublicationResources resources =
      tomekeeper::async::runUntilDone(cache.prepare(book, std::string(64, '0')));
  tomekeeper::PublicationSafetyReport report =
      tomekeeper::scanPublicationSafety(resources.extractedRoot);
  report.intake = resources.intakeFindings;
  std::printf("Book Safety: %s\n\n", book.filename().c_str());
  for (const std::string& line : tomekeeper::bookSafetyLines(report)) {
    std::printf("%s\n", line.c_str());
  }
  printNames("Web addresses this book names:", report.webAddresses);
  printNames("Files this book names but does not list:", report.unlistedPaths);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s book.epub | --hostile\n", argv[0]);
    return 2;
  }
  std::string pattern = (fs::temp_directory_path() / "tomekeeper-safety-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) return 1;
  const fs::path work = pattern;
  fs::path book = argv[1];
  int status = 1;
  try {
    if (book == "--hostile") {
      book = work / "hostile.epub";
      std::ofstream(book, std::ios::binary)
          << tomekeeper::testing::hostileBook("http://127.0.0.1:9");
    }
    status = printReport(book, work);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", book.c_str(), error.what());
  }
  fs::remove_all(work);
  return status;
}
