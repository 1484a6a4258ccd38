#include "runtime/PublicationSafetyScan.h"

#include <glib.h>

#include <climits>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>

#include "platform/BookXMLParser.h"

namespace tomekeeper {

namespace {

std::string_view localName(const XML_Char* name) {
  const std::string_view whole(name);
  const std::size_t separator = whole.rfind(kXMLNamespaceSeparator);
  return separator == std::string_view::npos ? whole : whole.substr(separator + 1);
}

std::string lowercased(std::string_view text) {
  std::string lower(text);
  for (char& character : lower) character = g_ascii_tolower(character);
  return lower;
}

// `value` without the white space and control characters that a browser skips before a scheme.
std::string_view trimmed(std::string_view value) {
  while (!value.empty() && static_cast<unsigned char>(value.front()) <= 0x20) {
    value.remove_prefix(1);
  }
  while (!value.empty() && static_cast<unsigned char>(value.back()) <= 0x20) value.remove_suffix(1);
  return value;
}

bool startsWith(std::string_view text, std::string_view prefix) {
  return text.size() >= prefix.size() && text.substr(0, prefix.size()) == prefix;
}

bool isWebAddress(std::string_view value) {
  const std::string lower = lowercased(trimmed(value).substr(0, 8));
  return startsWith(lower, "http:") || startsWith(lower, "https:") || startsWith(lower, "//") ||
         startsWith(lower, "ftp:") || startsWith(lower, "ws:") || startsWith(lower, "wss:");
}

void countAddress(std::string_view value, PublicationSafetyReport& report) {
  const std::string_view address = trimmed(value);
  if (startsWith(lowercased(address.substr(0, 11)), "javascript:")) {
    ++report.javascriptURLs;
    return;
  }
  if (!isWebAddress(address)) return;
  ++report.webReferences;
  if (report.webAddresses.size() < kMaximumListedWebAddresses) {
    report.webAddresses.emplace(address);
  }
}

// Counts `value` when it names a file of the book that the manifest leaves out.
void countUnlisted(std::string_view value, PublicationSafetyReport& report,
                   const PublicationReferenceContext* references) {
  if (references == nullptr) return;
  const std::string_view reference = trimmed(value);
  // A place in the same document loads nothing more.
  if (reference.empty() || reference.front() == '#') return;
  // Absent for an absolute address: the web and javascript: are counted as such, data: loads
  // no file.
  const std::optional<std::string> path =
      resolvedPublicationReference(references->documentPath, reference);
  if (!path) return;
  std::filesystem::path file;
  try {
    file = references->provider.resource(*path, ContentSecurityPolicyUse::omitted).fileURL;
  } catch (const PublicationResourceErrorError&) {
    return;  // names no file of the book
  }
  if (references->listing.lists(file)) return;
  ++report.unlistedReferences;
  if (report.unlistedPaths.size() < kMaximumListedUnlistedPaths) report.unlistedPaths.insert(*path);
}

// A reference that loads what it names into the page.
void countLoadedReference(std::string_view value, PublicationSafetyReport& report,
                          const PublicationReferenceContext* references) {
  countAddress(value, report);
  countUnlisted(value, report, references);
}

// Each candidate of a srcset is an address followed by an optional descriptor.
void countSourceSet(std::string_view value, PublicationSafetyReport& report,
                    const PublicationReferenceContext* references) {
  std::size_t start = 0;
  while (start < value.size()) {
    const std::size_t comma = value.find(',', start);
    const std::string_view candidate = trimmed(value.substr(
        start, comma == std::string_view::npos ? std::string_view::npos : comma - start));
    countLoadedReference(candidate.substr(0, candidate.find(' ')), report, references);
    if (comma == std::string_view::npos) break;
    start = comma + 1;
  }
}

struct DocumentScan {
  XML_Parser parser;
  PublicationSafetyReport* report;
  const PublicationReferenceContext* references;
  int styleDepth = 0;
  std::string styleText;
};

void XMLCALL startElement(void* data, const XML_Char* name, const XML_Char** attributes) {
  auto* scan = static_cast<DocumentScan*>(data);
  PublicationSafetyReport& report = *scan->report;
  const std::string element = lowercased(localName(name));
  if (element == "script") ++report.scriptElements;
  if (element == "form") ++report.forms;
  if (element == "iframe" || element == "frame") ++report.frames;
  if (element == "object" || element == "embed" || element == "applet") ++report.objectsAndEmbeds;
  if (element == "style") ++scan->styleDepth;
  const bool link = element == "a" || element == "area";
  bool refresh = false;
  for (const XML_Char** attribute = attributes; attribute[0] != nullptr; attribute += 2) {
    const std::string attributeName = lowercased(localName(attribute[0]));
    const std::string_view value = attribute[1];
    if (attributeName.size() > 2 && startsWith(attributeName, "on"))
      ++report.eventHandlerAttributes;
    if (link && attributeName == "href") {
      if (isWebAddress(value))
        ++report.webLinks;
      else
        countAddress(value, report);  // a javascript: address still counts
    } else if (attributeName == "src" || attributeName == "href" || attributeName == "poster" ||
               attributeName == "data") {
      countLoadedReference(value, report, scan->references);
    } else if (attributeName == "action" || attributeName == "formaction") {
      countAddress(value, report);  // submitting is navigation, not a load
    } else if (attributeName == "srcset") {
      countSourceSet(value, report, scan->references);
    } else if (attributeName == "style") {
      scanPublicationStyleSheet(value, report, scan->references);
    } else if (attributeName == "http-equiv" && lowercased(trimmed(value)) == "refresh") {
      refresh = true;
    }
  }
  if (element == "meta" && refresh) ++report.metaRefreshes;
}

void XMLCALL endElement(void* data, const XML_Char* name) {
  auto* scan = static_cast<DocumentScan*>(data);
  if (scan->styleDepth > 0 && lowercased(localName(name)) == "style" && --scan->styleDepth == 0) {
    scanPublicationStyleSheet(scan->styleText, *scan->report, scan->references);
    scan->styleText.clear();
  }
}

void XMLCALL characterData(void* data, const XML_Char* text, int length) {
  auto* scan = static_cast<DocumentScan*>(data);
  if (scan->styleDepth > 0) scan->styleText.append(text, static_cast<std::size_t>(length));
}

// A document that declares entities is not read: what they expand to is not worth the risk.
void XMLCALL refuseEntityDeclaration(void* data, const XML_Char*, int, const XML_Char*, int,
                                     const XML_Char*, const XML_Char*, const XML_Char*,
                                     const XML_Char*) {
  XML_StopParser(static_cast<DocumentScan*>(data)->parser, XML_FALSE);
}

std::string readFile(const std::filesystem::path& path) {
  std::ifstream input(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(input), std::istreambuf_iterator<char>());
}

// `file`'s path from `root` as a reference would name it: the provider decodes what it is given,
// so a "%" of the name must reach it encoded.
std::string referencePath(const std::filesystem::path& file, const std::filesystem::path& root) {
  std::string encoded;
  for (const char character : file.lexically_relative(root).generic_string()) {
    if (character == '%') {
      encoded += "%25";
    } else {
      encoded += character;
    }
  }
  return encoded;
}

// The manifest of the book at `root`, absent when there is none to hold to.
std::optional<PublicationManifestListing> listingOf(const PublicationResourceProvider& provider) {
  try {
    return PublicationManifestListing::read(provider);
  } catch (const PublicationResourceErrorError&) {
    return std::nullopt;
  }
}

}  // namespace

void scanPublicationDocument(std::string_view text, PublicationSafetyReport& report,
                             const PublicationReferenceContext* references) {
  const XMLParserHandle parser = makeBookXMLParser();
  if (!parser || text.size() > static_cast<std::size_t>(INT_MAX)) {
    ++report.unreadableDocuments;
    return;
  }
  // Counted into a copy, so that a document that fails half way adds nothing but its failure.
  PublicationSafetyReport counted = report;
  DocumentScan scan{parser.get(), &counted, references, 0, {}};
  XML_SetUserData(parser.get(), &scan);
  XML_SetElementHandler(parser.get(), startElement, endElement);
  XML_SetCharacterDataHandler(parser.get(), characterData);
  XML_SetEntityDeclHandler(parser.get(), refuseEntityDeclaration);
  if (XML_Parse(parser.get(), text.data(), static_cast<int>(text.size()), XML_TRUE) !=
      XML_STATUS_OK) {
    ++report.unreadableDocuments;
    return;
  }
  report = std::move(counted);
}

void scanPublicationStyleSheet(std::string_view text, PublicationSafetyReport& report,
                               const PublicationReferenceContext* references) {
  const std::string lower = lowercased(text);
  // url(...), whether in a rule or after @import.
  for (std::size_t found = lower.find("url("); found != std::string::npos;
       found = lower.find("url(", found + 4)) {
    const std::size_t start = found + 4;
    const std::size_t end = text.find(')', start);
    std::string_view argument = trimmed(
        text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
    if (!argument.empty() && (argument.front() == '"' || argument.front() == '\'')) {
      const char quote = argument.front();
      argument.remove_prefix(1);
      argument = argument.substr(0, argument.find(quote));
    }
    countLoadedReference(argument, report, references);
  }
  // @import "..." names its sheet by a plain string.
  for (std::size_t found = lower.find("@import"); found != std::string::npos;
       found = lower.find("@import", found + 7)) {
    const std::string_view rest = trimmed(text.substr(found + 7));
    if (rest.empty() || (rest.front() != '"' && rest.front() != '\'')) continue;
    const std::string_view quoted = rest.substr(1);
    countLoadedReference(quoted.substr(0, quoted.find(rest.front())), report, references);
  }
}

PublicationSafetyReport scanPublicationSafety(const std::filesystem::path& root,
                                              std::stop_token stopToken) {
  PublicationSafetyReport report;
  // Listed first, so that a root that cannot be listed throws as the contract says.
  std::filesystem::recursive_directory_iterator entries(root);
  const PublicationResourceProvider provider(root);
  const std::optional<PublicationManifestListing> listing = listingOf(provider);
  for (const auto& entry : entries) {
    if (stopToken.stop_requested()) break;
    if (!entry.is_regular_file() || entry.is_symlink()) continue;
    std::string extension = lowercased(entry.path().extension().native());
    if (!extension.empty()) extension.erase(0, 1);
    const std::optional<std::string_view> mimeType = publicationMIMETypeForExtension(extension);
    if (!mimeType) continue;
    std::optional<PublicationReferenceContext> context;
    if (listing) {
      context.emplace(
          PublicationReferenceContext{provider, *listing, referencePath(entry.path(), root)});
    }
    const PublicationReferenceContext* references = context ? &*context : nullptr;
    if (*mimeType == "text/css") {
      scanPublicationStyleSheet(readFile(entry.path()), report, references);
    } else if (extension != "opf" && extension != "ncx" &&
               publicationContentKind(*mimeType) == PublicationContentKind::document) {
      scanPublicationDocument(readFile(entry.path()), report, references);
    }
  }
  return report;
}

}  // namespace tomekeeper
