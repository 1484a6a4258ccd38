#include "runtime/PublicationManifestListing.h"

#include <climits>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <vector>

#include "platform/BookXMLParser.h"
#include "runtime/PublicationSchemeRoute.h"

namespace tomekeeper {

namespace {

constexpr std::string_view kContainerNamespace = "urn:oasis:names:tc:opendocument:xmlns:container";
constexpr std::string_view kPackageNamespace = "http://www.idpf.org/2007/opf";
constexpr std::string_view kPackageMediaType = "application/oebps-package+xml";

[[noreturn]] void refuse() {
  throwFailure(PublicationResourceError::unavailable);
}

// What the parse of one document gathers: the attribute `attributeName` of each element
// `elementName` in `elementNamespace`, with the media-type, id and fallback attributes beside it.
struct GatheredElement {
  std::string value;
  std::string mediaType;
  std::string id;
  std::string fallback;
};

struct AttributeGathering {
  std::string elementName;
  std::string attributeName;
  std::vector<GatheredElement> values;
};

void XMLCALL startElement(void* data, const XML_Char* name, const XML_Char** attributes) {
  auto& gathering = *static_cast<AttributeGathering*>(data);
  if (gathering.elementName != name) return;
  std::optional<std::string> value;
  std::string mediaType;
  std::string id;
  std::string fallback;
  for (const XML_Char** attribute = attributes; attribute[0] != nullptr; attribute += 2) {
    const std::string_view attributeName(attribute[0]);
    if (attributeName == gathering.attributeName) value = attribute[1];
    if (attributeName == "media-type") mediaType = attribute[1];
    if (attributeName == "id") id = attribute[1];
    if (attributeName == "fallback") fallback = attribute[1];
  }
  if (value) {
    gathering.values.push_back(
        {std::move(*value), std::move(mediaType), std::move(id), std::move(fallback)});
  }
}

std::string readFile(const std::filesystem::path& path) {
  std::ifstream input(path, std::ios::binary);
  if (!input) refuse();
  std::string text((std::istreambuf_iterator<char>(input)), std::istreambuf_iterator<char>());
  if (input.bad()) refuse();
  return text;
}

void gather(const std::string& text, AttributeGathering& gathering) {
  if (text.size() > static_cast<std::size_t>(INT_MAX)) refuse();
  const XMLParserHandle parser = makeBookXMLParser();
  if (!parser) refuse();
  XML_SetUserData(parser.get(), &gathering);
  XML_SetStartElementHandler(parser.get(), startElement);
  if (XML_Parse(parser.get(), text.data(), static_cast<int>(text.size()), XML_TRUE) !=
      XML_STATUS_OK) {
    refuse();
  }
}

std::string qualified(std::string_view space, std::string_view name) {
  std::string result(space);
  result += kXMLNamespaceSeparator;
  result += name;
  return result;
}

// The provider decodes what it is given, so a "%" of a plain path must reach it encoded.
std::string percentEncodedPercent(std::string_view path) {
  std::string encoded;
  for (const char character : path) {
    if (character == '%') {
      encoded += "%25";
    } else {
      encoded += character;
    }
  }
  return encoded;
}

bool hasScheme(std::string_view reference) {
  const std::size_t colon = reference.find(':');
  if (colon == std::string_view::npos || colon == 0) return false;
  const auto isAlpha = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
  if (!isAlpha(reference[0])) return false;
  for (std::size_t index = 1; index < colon; ++index) {
    const char c = reference[index];
    if (!isAlpha(c) && !(c >= '0' && c <= '9') && c != '+' && c != '-' && c != '.') return false;
  }
  return true;
}

}  // namespace

std::optional<std::string> resolvedPublicationReference(std::string_view documentPath,
                                                        std::string_view reference) {
  reference = reference.substr(0, reference.find_first_of("?#"));
  if (hasScheme(reference) || reference.substr(0, 2) == "//") return std::nullopt;
  std::string joined;
  if (!reference.empty() && reference.front() == '/') {
    joined = reference.substr(1);
  } else {
    const std::size_t slash = documentPath.rfind('/');
    if (slash != std::string_view::npos) joined = documentPath.substr(0, slash + 1);
    joined += reference;
  }
  std::string resolved = withDotPiecesResolved(joined);
  if (resolved.empty()) return std::nullopt;
  return resolved;
}

std::optional<PublicationManifestListing> PublicationManifestListing::read(
    const PublicationResourceProvider& provider) {
  std::filesystem::path containerFile;
  try {
    containerFile =
        provider.resource("META-INF/container.xml", ContentSecurityPolicyUse::omitted).fileURL;
  } catch (const PublicationResourceErrorError&) {
    return std::nullopt;
  }
  AttributeGathering rootfiles{qualified(kContainerNamespace, "rootfile"), "full-path", {}};
  gather(readFile(containerFile), rootfiles);
  const std::string* packagePath = nullptr;
  for (const GatheredElement& rootfile : rootfiles.values) {
    if (rootfile.mediaType == kPackageMediaType) {
      packagePath = &rootfile.value;
      break;
    }
  }
  if (packagePath == nullptr || packagePath->empty()) refuse();

  PublicationManifestListing listing;
  listing.packagePath_ = *packagePath;
  listing.containerDirectory_ = containerFile.parent_path();
  const std::string encodedPackagePath = percentEncodedPercent(*packagePath);
  const std::filesystem::path packageFile =
      provider.resource(encodedPackagePath, ContentSecurityPolicyUse::omitted).fileURL;
  listing.files_.insert(packageFile);

  const std::string packageText = readFile(packageFile);
  AttributeGathering items{qualified(kPackageNamespace, "item"), "href", {}};
  gather(packageText, items);
  std::map<std::string, std::filesystem::path> filesByID;
  std::map<std::string, std::string> fallbacksByID;
  for (const GatheredElement& item : items.values) {
    if (!item.id.empty() && !item.fallback.empty()) fallbacksByID.emplace(item.id, item.fallback);
    const std::optional<std::string> path =
        resolvedPublicationReference(encodedPackagePath, item.value);
    if (!path) continue;
    try {
      std::filesystem::path file =
          provider.resource(*path, ContentSecurityPolicyUse::omitted).fileURL;
      listing.files_.insert(file);
      if (!item.id.empty()) filesByID.emplace(item.id, std::move(file));
    } catch (const PublicationResourceErrorError&) {
      // A missing item is the book's fault; it stays unserved like any other absent file.
    }
  }
  AttributeGathering itemrefs{qualified(kPackageNamespace, "itemref"), "idref", {}};
  gather(packageText, itemrefs);
  // An itemref's document and the documents of its fallback chain, any of which a reader may
  // show in its place.
  for (const GatheredElement& itemref : itemrefs.values) {
    std::set<std::string> seen;
    for (std::string id = itemref.value; seen.insert(id).second;) {
      const auto found = filesByID.find(id);
      if (found != filesByID.end()) listing.spineFiles_.insert(found->second);
      const auto fallback = fallbacksByID.find(id);
      if (fallback == fallbacksByID.end()) break;
      id = fallback->second;
    }
  }
  return listing;
}

bool PublicationManifestListing::isSpineItem(const std::filesystem::path& file) const {
  return spineFiles_.contains(file);
}

bool PublicationManifestListing::lists(const std::filesystem::path& file) const {
  if (files_.contains(file)) return true;
  // Only files directly or deeper under META-INF, never the directory itself.
  const std::string& directory = containerDirectory_.native();
  const std::string& candidate = file.native();
  return candidate.size() > directory.size() + 1 &&
         candidate.compare(0, directory.size(), directory) == 0 &&
         candidate[directory.size()] == '/';
}

}  // namespace tomekeeper
