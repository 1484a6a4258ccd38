// tomekeeper-export BOOK.epub [--format markdown|json]
//
// Prints the highlights and notes of a book, as "Export Highlights…" writes them, without a
// window: from the stores of the user's data directory (the XDG variables are honoured). The
// book is known by the SHA-256 of its file; its title, authors and chapters are read from its
// own documents, which are checked and unpacked into a private temporary directory as the
// application takes a book in, and that directory is removed. The stores are only read: the
// highlights of conflict copies that a file-sync engine left beside them are merged in memory.
// Exit status: 0 printed, 2 the book was refused or its highlights cannot be read, 1 usage or
// any other error. Markdown is the default.

#include <glib.h>

#include <chrono>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>

#include "async/Failure.h"
#include "async/RunUntilDone.h"
#include "intake/EPUBArchiveExtractor.h"
#include "intake/EPUBArchiveInspector.h"
#include "intake/EPUBContainerValidator.h"
#include "opening/DocumentOpenErrorPresentation.h"
#include "opening/PublicationFingerprintService.h"
#include "persistence/ConflictCopies.h"
#include "persistence/HighlightExport.h"
#include "persistence/JSONAnnotationRepository.h"
#include "persistence/PublicationOutline.h"
#include "persistence/PublicationStateRepositoryFactory.h"

namespace {

namespace fs = std::filesystem;
using namespace tomekeeper;

constexpr auto kTimeLimit = std::chrono::hours(1);

struct Arguments {
  fs::path book;
  HighlightExportFormat format = HighlightExportFormat::markdown;
};

std::optional<Arguments> parseArguments(int argc, char** argv) {
  Arguments arguments;
  bool haveBook = false;
  for (int index = 1; index < argc; ++index) {
    const std::string_view argument = argv[index];
    if (argument == "--format") {
      if (index + 1 >= argc) return std::nullopt;
      const std::optional<HighlightExportFormat> format = highlightExportFormatNamed(argv[++index]);
      if (!format) return std::nullopt;
      arguments.format = *format;
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

// A directory of this run alone, removed on every way out.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string pattern = (fs::temp_directory_path() / "tomekeeper-export-XXXXXX").string();
    if (g_mkdtemp(pattern.data()) == nullptr) {
      throw std::runtime_error("cannot make a temporary directory");
    }
    path_ = pattern;
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

// The alert's title and message as one line of two sentences; a title has no full stop of its own.
std::string sentences(const DocumentOpenErrorPresentation& presentation) {
  std::string line = presentation.title;
  if (!line.empty() && std::string_view(".?!").find(line.back()) == std::string_view::npos) {
    line += '.';
  }
  return line + " " + presentation.message;
}

// Checks and unpacks the book as the application takes one in, and exports from what it unpacked.
std::string exportFromBook(const Arguments& arguments, const std::string& fingerprint,
                           std::vector<Annotation> annotations) {
  const TemporaryDirectory directory;
  const EPUBArchiveInspection inspection =
      async::runUntilDone(EPUBArchiveInspector().inspect(arguments.book), kTimeLimit);
  const fs::path extracted = directory.path() / "Extracted";
  EPUBArchiveExtractor().extract(arguments.book, inspection, extracted);
  const ValidatedEPUBContainer container = EPUBContainerValidator().validate(extracted);
  return exportHighlightsOfPublication(container.publicationRoot, container.packageDocumentPath,
                                       fingerprint, std::move(annotations), arguments.format);
}

}  // namespace

int main(int argc, char** argv) {
  const std::optional<Arguments> arguments = parseArguments(argc, argv);
  if (!arguments) {
    std::cerr << "usage: tomekeeper-export BOOK.epub [--format markdown|json]\n";
    return 1;
  }
  std::string fingerprint;
  try {
    fingerprint = PublicationFingerprintService::fingerprintFile(arguments->book, {});
  } catch (const std::exception& error) {
    std::cerr << "tomekeeper-export: " << arguments->book.string() << ": " << error.what() << "\n";
    return 2;
  }

  const fs::path store = fs::path(g_get_user_data_dir()) / "tomekeeper" / "Publications" /
                         fingerprint / PublicationStateRepositoryFactory::kAnnotationsFileName;
  std::vector<Annotation> annotations;
  try {
    JSONAnnotationRepository::Store stored = loadAnnotationsWithConflictCopies(store);
    annotations = std::move(stored.annotationsByFingerprint[fingerprint]);
  } catch (const std::exception& error) {
    std::cerr << "tomekeeper-export: the highlights in " << store.string() << " cannot be read ("
              << error.what() << "); the file is left as it is\n";
    return 2;
  }

  std::string text;
  try {
    text = exportFromBook(*arguments, fingerprint, std::move(annotations));
  } catch (const Failure&) {
    std::cerr << "tomekeeper-export: "
              << sentences(DocumentOpenErrorPresentation::from(std::current_exception())) << "\n";
    return 2;
  } catch (const PublicationOutlineError& error) {
    std::cerr << "tomekeeper-export: " << error.what() << "\n";
    return 2;
  } catch (const std::exception& error) {
    std::cerr << "tomekeeper-export: " << error.what() << "\n";
    return 1;
  }
  std::cout << text;
  std::cout.flush();
  return std::cout ? 0 : 1;
}
