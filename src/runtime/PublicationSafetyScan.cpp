#include "runtime/PublicationSafetyScan.h"

// The amplification limits are declared only under XML_DTD, with which the system's expat is
// built.
#ifndef XML_DTD
#define XML_DTD 1
#endif
#include <expat.h>
#include <glib.h>

#include <climits>
#include <fstream>
#include <iterator>
#include <memory>

#include "runtime/PublicationResourceProvider.h"

namespace tomekeeper {

namespace {

constexpr XML_Char kNamespaceSeparator = '\x1F';

std::string_view localName(const XML_Char* name) {
  const std::string_view whole(name);
  const std::size_t separator = whole.rfind(kNamespaceSeparator);
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

// Each candidate of a srcset is an address followed by an optional descriptor.
void countSourceSet(std::string_view value, PublicationSafetyReport& report) {
  std::size_t start = 0;
  while (start < value.size()) {
    const std::size_t comma = value.find(',', start);
    const std::string_view candidate = trimmed(value.substr(
        start, comma == std::string_view::npos ? std::string_view::npos : comma - start));
    countAddress(candidate.substr(0, candidate.find(' ')), report);
    if (comma == std::string_view::npos) break;
    start = comma + 1;
  }
}

struct DocumentScan {
  XML_Parser parser;
  PublicationSafetyReport* report;
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
               attributeName == "data" || attributeName == "action" ||
               attributeName == "formaction") {
      countAddress(value, report);
    } else if (attributeName == "srcset") {
      countSourceSet(value, report);
    } else if (attributeName == "style") {
      scanPublicationStyleSheet(value, report);
    } else if (attributeName == "http-equiv" && lowercased(trimmed(value)) == "refresh") {
      refresh = true;
    }
  }
  if (element == "meta" && refresh) ++report.metaRefreshes;
}

void XMLCALL endElement(void* data, const XML_Char* name) {
  auto* scan = static_cast<DocumentScan*>(data);
  if (scan->styleDepth > 0 && lowercased(localName(name)) == "style" && --scan->styleDepth == 0) {
    scanPublicationStyleSheet(scan->styleText, *scan->report);
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

struct ParserDeleter {
  void operator()(XML_ParserStruct* parser) const { XML_ParserFree(parser); }
};

std::string readFile(const std::filesystem::path& path) {
  std::ifstream input(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(input), std::istreambuf_iterator<char>());
}

}  // namespace

void scanPublicationDocument(std::string_view text, PublicationSafetyReport& report) {
  std::unique_ptr<XML_ParserStruct, ParserDeleter> parser(
      XML_ParserCreateNS(nullptr, kNamespaceSeparator));
  if (!parser || text.size() > static_cast<std::size_t>(INT_MAX)) {
    ++report.unreadableDocuments;
    return;
  }
  // Counted into a copy, so that a document that fails half way adds nothing but its failure.
  PublicationSafetyReport counted = report;
  DocumentScan scan{parser.get(), &counted, 0, {}};
  XML_SetUserData(parser.get(), &scan);
  XML_SetElementHandler(parser.get(), startElement, endElement);
  XML_SetCharacterDataHandler(parser.get(), characterData);
  XML_SetEntityDeclHandler(parser.get(), refuseEntityDeclaration);
  XML_SetParamEntityParsing(parser.get(), XML_PARAM_ENTITY_PARSING_NEVER);
  if (XML_Parse(parser.get(), text.data(), static_cast<int>(text.size()), XML_TRUE) !=
      XML_STATUS_OK) {
    ++report.unreadableDocuments;
    return;
  }
  report = std::move(counted);
}

void scanPublicationStyleSheet(std::string_view text, PublicationSafetyReport& report) {
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
    countAddress(argument, report);
  }
  // @import "..." names its sheet by a plain string.
  for (std::size_t found = lower.find("@import"); found != std::string::npos;
       found = lower.find("@import", found + 7)) {
    const std::string_view rest = trimmed(text.substr(found + 7));
    if (rest.empty() || (rest.front() != '"' && rest.front() != '\'')) continue;
    const std::string_view quoted = rest.substr(1);
    countAddress(quoted.substr(0, quoted.find(rest.front())), report);
  }
}

PublicationSafetyReport scanPublicationSafety(const std::filesystem::path& root,
                                              std::stop_token stopToken) {
  PublicationSafetyReport report;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    if (stopToken.stop_requested()) break;
    if (!entry.is_regular_file() || entry.is_symlink()) continue;
    std::string extension = lowercased(entry.path().extension().native());
    if (!extension.empty()) extension.erase(0, 1);
    const std::optional<std::string_view> mimeType = publicationMIMETypeForExtension(extension);
    if (!mimeType) continue;
    if (*mimeType == "text/css") {
      scanPublicationStyleSheet(readFile(entry.path()), report);
    } else if (extension != "opf" && extension != "ncx" &&
               publicationContentKind(*mimeType) == PublicationContentKind::document) {
      scanPublicationDocument(readFile(entry.path()), report);
    }
  }
  return report;
}

}  // namespace tomekeeper
