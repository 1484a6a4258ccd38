#include "library/PackageMetadata.h"

#include <glib.h>

#include <climits>
#include <map>
#include <memory>
#include <string_view>

#include "platform/AtomicFileWriter.h"
#include "platform/BookXMLParser.h"

namespace tomekeeper {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kDublinCore = "http://purl.org/dc/elements/1.1/";
constexpr std::string_view kPackage = "http://www.idpf.org/2007/opf";

struct ManifestEntry {
  std::string href;
  std::string mediaType;
  std::string properties;
};

// What the parse collects; the handlers reach it through the parser's user data.
struct Collector {
  XML_Parser parser = nullptr;
  PackageMetadata metadata;
  std::map<std::string, ManifestEntry> manifest;  // by id
  std::string coverIdentifier;                    // from <meta name="cover" content="…">
  std::string propertyCover;                      // id of the item marked "cover-image"
  std::string text;
  std::string_view collecting;  // "title", "creator", "language" or empty
};

std::pair<std::string_view, std::string_view> split(const XML_Char* name) {
  const std::string_view whole(name);
  const std::size_t separator = whole.find(kXMLNamespaceSeparator);
  if (separator == std::string_view::npos) return {{}, whole};
  return {whole.substr(0, separator), whole.substr(separator + 1)};
}

const char* attribute(const XML_Char** attributes, std::string_view local) {
  for (const XML_Char** pair = attributes; *pair != nullptr; pair += 2) {
    const auto [space, name] = split(pair[0]);
    if (space.empty() && name == local) return pair[1];
  }
  return nullptr;
}

bool hasToken(std::string_view list, std::string_view token) {
  while (!list.empty()) {
    const std::size_t start = list.find_first_not_of(" \t\r\n");
    if (start == std::string_view::npos) return false;
    list.remove_prefix(start);
    const std::size_t end = list.find_first_of(" \t\r\n");
    if (list.substr(0, end) == token) return true;
    if (end == std::string_view::npos) return false;
    list.remove_prefix(end);
  }
  return false;
}

// White space runs become one space, and none stays at the ends.
std::string collapsed(std::string_view text) {
  std::string result;
  bool pendingSpace = false;
  for (const char character : text) {
    if (character == ' ' || character == '\t' || character == '\n' || character == '\r') {
      pendingSpace = !result.empty();
      continue;
    }
    if (pendingSpace) result += ' ';
    pendingSpace = false;
    result += character;
  }
  return result;
}

void onStart(void* data, const XML_Char* name, const XML_Char** attributes) {
  auto& collector = *static_cast<Collector*>(data);
  const auto [space, local] = split(name);
  if (space == kDublinCore && (local == "title" || local == "creator" || local == "language")) {
    collector.collecting = local == "title" ? "title" : local == "creator" ? "creator" : "language";
    collector.text.clear();
    return;
  }
  if (space != kPackage) return;
  if (local == "item") {
    const char* identifier = attribute(attributes, "id");
    const char* href = attribute(attributes, "href");
    if (identifier == nullptr || href == nullptr) return;
    const char* mediaType = attribute(attributes, "media-type");
    const char* properties = attribute(attributes, "properties");
    ManifestEntry entry{href, mediaType != nullptr ? mediaType : "",
                        properties != nullptr ? properties : ""};
    if (collector.propertyCover.empty() && hasToken(entry.properties, "cover-image")) {
      collector.propertyCover = identifier;
    }
    collector.manifest.emplace(identifier, std::move(entry));
  } else if (local == "meta") {
    const char* metaName = attribute(attributes, "name");
    const char* content = attribute(attributes, "content");
    if (metaName != nullptr && content != nullptr && std::string_view(metaName) == "cover") {
      collector.coverIdentifier = content;
    }
  }
}

void onEnd(void* data, const XML_Char* name) {
  auto& collector = *static_cast<Collector*>(data);
  const auto [space, local] = split(name);
  if (collector.collecting.empty() || space != kDublinCore || local != collector.collecting) return;
  std::string value = collapsed(collector.text);
  PackageMetadata& metadata = collector.metadata;
  if (collector.collecting == "creator") {
    if (!value.empty()) metadata.authors.push_back(std::move(value));
  } else if (collector.collecting == "title") {
    if (metadata.title.empty()) metadata.title = std::move(value);
  } else if (metadata.language.empty()) {
    metadata.language = std::move(value);
  }
  collector.collecting = {};
}

void onText(void* data, const XML_Char* text, int length) {
  auto& collector = *static_cast<Collector*>(data);
  if (!collector.collecting.empty()) collector.text.append(text, static_cast<std::size_t>(length));
}

void onEntityDeclaration(void* data, const XML_Char*, int, const XML_Char*, int, const XML_Char*,
                         const XML_Char*, const XML_Char*, const XML_Char*) {
  XML_StopParser(static_cast<Collector*>(data)->parser, XML_FALSE);
}

// The file an href of the package names, relative to the root; nothing for one that leaves it,
// names another document (a query or fragment) or is not a relative reference.
std::optional<fs::path> resolvedHref(const std::string& packageDocumentPath,
                                     const std::string& href) {
  if (href.empty() || href.find_first_of("?#") != std::string::npos) return std::nullopt;
  if (g_uri_peek_scheme(href.c_str()) != nullptr) return std::nullopt;
  char* unescaped = g_uri_unescape_string(href.c_str(), nullptr);
  if (unescaped == nullptr) return std::nullopt;
  const std::string decoded(unescaped);
  g_free(unescaped);
  if (decoded.empty() || decoded.front() == '/') return std::nullopt;
  const fs::path relative =
      (fs::path(packageDocumentPath).parent_path() / fs::path(decoded)).lexically_normal();
  if (relative.empty() || *relative.begin() == ".." || relative.is_absolute()) return std::nullopt;
  return relative;
}

}  // namespace

PackageMetadata readPackageMetadata(const fs::path& extractedRoot,
                                    const std::string& packageDocumentPath) {
  const std::optional<std::string> document = readWholeFile(extractedRoot / packageDocumentPath);
  if (!document) throw PackageMetadataError("The package document is missing");
  return parsePackageMetadata(*document, packageDocumentPath);
}

PackageMetadata parsePackageMetadata(std::string_view document,
                                     const std::string& packageDocumentPath) {
  if (document.size() > static_cast<std::size_t>(INT_MAX)) {
    throw PackageMetadataError("The package document is too large");
  }
  const XMLParserHandle parser = makeBookXMLParser();
  if (!parser) throw std::bad_alloc();
  Collector collector;
  collector.parser = parser.get();
  XML_SetUserData(parser.get(), &collector);
  // A declared entity stops the parse.
  XML_SetEntityDeclHandler(parser.get(), onEntityDeclaration);
  XML_SetElementHandler(parser.get(), onStart, onEnd);
  XML_SetCharacterDataHandler(parser.get(), onText);
  if (XML_Parse(parser.get(), document.data(), static_cast<int>(document.size()), XML_TRUE) !=
      XML_STATUS_OK) {
    throw PackageMetadataError(std::string("The package document is not readable: ") +
                               XML_ErrorString(XML_GetErrorCode(parser.get())));
  }

  PackageMetadata metadata = std::move(collector.metadata);
  const std::string& coverIdentifier =
      !collector.propertyCover.empty() ? collector.propertyCover : collector.coverIdentifier;
  if (const auto item = collector.manifest.find(coverIdentifier);
      !coverIdentifier.empty() && item != collector.manifest.end()) {
    metadata.coverImage = resolvedHref(packageDocumentPath, item->second.href);
    if (metadata.coverImage) metadata.coverMediaType = item->second.mediaType;
  }
  return metadata;
}

}  // namespace tomekeeper
