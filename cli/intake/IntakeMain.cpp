// tomekeeper-intake FILE [--cache DIR]
//
// Checks one book the way the application takes it in, and prints exactly one
// JSON line on standard output: the accepted book's figures, or the refusal
// with the title and message the user would see. Without --cache the book is
// inspected, extracted into a private temporary cache, validated, and that
// cache removed; with --cache the full prepare of the extraction cache runs
// with DIR as its root and keeps its result. Exit status: 0 accepted,
// 2 refused, 1 usage or any other error (reported on standard error).

#include <glib.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "async/Failure.h"
#include "async/RunUntilDone.h"
#include "intake/EPUBArchiveExtractor.h"
#include "intake/EPUBArchiveInspector.h"
#include "intake/EPUBContainerValidator.h"
#include "intake/PublicationExtractionCache.h"
#include "opening/DocumentOpenErrorPresentation.h"
#include "opening/OpenPerformanceTrace.h"
#include "opening/PublicationFingerprintService.h"

namespace {

namespace fs = std::filesystem;
using namespace tomekeeper;

constexpr auto kTimeLimit = std::chrono::hours(1);

struct Arguments {
  fs::path book;
  std::optional<fs::path> cachesRoot;
};

std::optional<Arguments> parseArguments(int argc, char** argv) {
  Arguments arguments;
  bool haveBook = false;
  for (int index = 1; index < argc; ++index) {
    const std::string_view argument = argv[index];
    if (argument == "--cache") {
      if (index + 1 >= argc || arguments.cachesRoot) return std::nullopt;
      arguments.cachesRoot = fs::path(argv[++index]);
    } else if (argument.starts_with("--") || haveBook) {
      return std::nullopt;
    } else {
      arguments.book = argument;
      haveBook = true;
    }
  }
  if (!haveBook) return std::nullopt;
  return arguments;
}

struct Accepted {
  std::size_t entries = 0;
  std::uint64_t totalUncompressedSize = 0;
  std::string packageDocumentPath;
  bool usesFontObfuscation = false;
  bool cacheHit = false;
};

// A temporary cache of this run alone, removed on every way out.
class TemporaryCache {
 public:
  TemporaryCache() {
    std::string pattern = (fs::temp_directory_path() / "tomekeeper-intake-XXXXXX").string();
    if (g_mkdtemp(pattern.data()) == nullptr)
      throw std::runtime_error("cannot make a temporary cache");
    path_ = pattern;
  }
  ~TemporaryCache() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  TemporaryCache(const TemporaryCache&) = delete;
  TemporaryCache& operator=(const TemporaryCache&) = delete;
  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

Accepted checkWithoutCache(const fs::path& book) {
  const TemporaryCache cache;
  const EPUBArchiveInspection inspection =
      async::runUntilDone(EPUBArchiveInspector().inspect(book), kTimeLimit);
  const fs::path extracted = cache.path() / "Extracted";
  EPUBArchiveExtractor().extract(book, inspection, extracted);
  const ValidatedEPUBContainer container = EPUBContainerValidator().validate(extracted);
  return Accepted{inspection.entries.size(), inspection.totalUncompressedSize,
                  container.packageDocumentPath, container.usesFontObfuscation, false};
}

Accepted checkWithCache(const fs::path& book, const fs::path& cachesRoot) {
  const std::string fingerprint = PublicationFingerprintService::fingerprintFile(book, {});
  const PublicationExtractionCache cache(fs::absolute(cachesRoot));
  auto trace = std::make_shared<OpenPerformanceTrace>();
  const PreparedPublicationResources resources = async::runUntilDone(
      OpenPerformanceTrace::bind(trace, cache.prepare(fs::absolute(book), fingerprint)),
      kTimeLimit);
  // The figures of the archive itself; a hit on the cache did not read it.
  const EPUBArchiveInspection inspection =
      async::runUntilDone(EPUBArchiveInspector().inspect(book), kTimeLimit);
  const ValidatedEPUBContainer container =
      EPUBContainerValidator().validate(resources.extractedRoot);
  return Accepted{inspection.entries.size(), inspection.totalUncompressedSize,
                  container.packageDocumentPath, resources.usesFontObfuscation(),
                  trace->state().extractionCacheHit.value_or(false)};
}

void printLine(const nlohmann::ordered_json& line) {
  std::cout << line.dump() << std::endl;
}

}  // namespace

int main(int argc, char** argv) {
  const std::optional<Arguments> arguments = parseArguments(argc, argv);
  if (!arguments) {
    std::cerr << "usage: tomekeeper-intake FILE [--cache DIR]\n";
    return 1;
  }
  try {
    const Accepted accepted = arguments->cachesRoot
                                  ? checkWithCache(arguments->book, *arguments->cachesRoot)
                                  : checkWithoutCache(arguments->book);
    nlohmann::ordered_json line;
    line["outcome"] = "accepted";
    line["entries"] = accepted.entries;
    line["totalUncompressedSize"] = accepted.totalUncompressedSize;
    line["packageDocumentPath"] = accepted.packageDocumentPath;
    line["usesFontObfuscation"] = accepted.usesFontObfuscation;
    line["cacheHit"] = accepted.cacheHit;
    printLine(line);
    return 0;
  } catch (const Failure& failure) {
    const DocumentOpenErrorPresentation presentation =
        DocumentOpenErrorPresentation::from(std::current_exception());
    nlohmann::ordered_json line;
    line["outcome"] = "refused";
    line["failure"] = failure.reflectiveText();
    line["title"] = presentation.title;
    line["message"] = presentation.message;
    printLine(line);
    return 2;
  } catch (const std::exception& error) {
    std::cerr << "tomekeeper-intake: " << error.what() << "\n";
    return 1;
  }
}
