#include "session/BookSafetySummary.h"

#include <cstddef>
#include <set>

namespace tomekeeper {

namespace {

// "1 script element", "3 script elements".
std::string counted(std::size_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

// The fonts' obfuscations by name, in the order of the enumeration.
std::string obfuscationNames(const std::set<FontObfuscationAlgorithm>& algorithms) {
  std::string names;
  for (const FontObfuscationAlgorithm algorithm : algorithms) {
    if (!names.empty()) names += " and ";
    names += algorithm == FontObfuscationAlgorithm::idpf ? "IDPF font obfuscation"
                                                         : "Adobe font mangling";
  }
  return names;
}

}  // namespace

std::vector<std::string> bookSafetyLines(const PublicationSafetyReport& report) {
  const struct {
    std::size_t count;
    const char* one;
    const char* many;
  } attempts[] = {
      {report.scriptElements, "script", "scripts"},
      {report.eventHandlerAttributes, "event handler", "event handlers"},
      {report.javascriptURLs, "JavaScript address", "JavaScript addresses"},
      {report.webReferences, "reference to the web", "references to the web"},
      {report.forms, "form", "forms"},
      {report.metaRefreshes, "automatic redirect", "automatic redirects"},
      {report.frames, "frame", "frames"},
      {report.objectsAndEmbeds, "embedded object", "embedded objects"},
      {report.unlistedReferences, "reference to a file the book does not list (not loaded)",
       "references to files the book does not list (not loaded)"},
  };
  std::vector<std::string> lines;
  for (const auto& attempt : attempts) {
    if (attempt.count > 0) lines.push_back(counted(attempt.count, attempt.one, attempt.many));
  }
  if (lines.empty()) {
    lines.push_back("This book's documents try nothing that the reader would have to block.");
  } else {
    lines.insert(lines.begin(), "The reader blocked everything this book's documents tried:");
  }
  if (report.webLinks > 0) {
    lines.push_back(counted(report.webLinks, "link leaves the book; it asks before opening.",
                            "links leave the book; each asks before opening."));
  }
  if (report.unreadableDocuments > 0) {
    lines.push_back(counted(report.unreadableDocuments, "document could not be checked.",
                            "documents could not be checked."));
  }
  // The reader page undoes the obfuscation of the fonts it is given; the scheme serves the
  // files as the book holds them.
  if (!report.intake.fontObfuscationAlgorithms.empty()) {
    lines.push_back("Its fonts are obfuscated (" +
                    obfuscationNames(report.intake.fontObfuscationAlgorithms) +
                    "). The reader restores them in memory to show them, with the key that the "
                    "book's identifier gives; the book's files are left as they are.");
  }
  return lines;
}

std::optional<std::string> bookSafetyToast(const PublicationSafetyReport& report) {
  if (report.triedScript()) return "This book contains scripts. They were blocked.";
  if (report.triedTheWeb()) return "This book tries to reach the web. It was blocked.";
  return std::nullopt;
}

}  // namespace tomekeeper
