#include "persistence/PublicationOutline.h"

#include <glib.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string_view>

#include "platform/AtomicFileWriter.h"
#include "platform/BookXMLParser.h"

namespace tomekeeper {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kDublinCore = "http://purl.org/dc/elements/1.1/";
constexpr std::string_view kOPS = "http://www.idpf.org/2007/ops";

struct Name {
  std::string_view space;
  std::string_view local;
};

Name splitName(const XML_Char* name) {
  const std::string_view whole(name);
  const std::size_t separator = whole.find(kXMLNamespaceSeparator);
  if (separator == std::string_view::npos) return {{}, whole};
  return {whole.substr(0, separator), whole.substr(separator + 1)};
}

// Attributes by local name; a namespaced attribute is also found as "<namespace>|<local>".
using Attributes = std::map<std::string, std::string, std::less<>>;

struct Handlers {
  std::function<void(Name, const Attributes&)> start;
  std::function<void(Name)> end;
  std::function<void(std::string_view)> text;
};

// Parses `document` with namespaces, reporting elements and text. Entity declarations stop the
// parse, and nothing outside the document is ever loaded.
void parseDocument(std::string_view document, Handlers& handlers, const std::string& what) {
  const XMLParserHandle parser = makeBookXMLParser();
  if (!parser) throw std::bad_alloc();
  XML_SetUserData(parser.get(), &handlers);
  // Every handler gets the parser, and reaches the handlers through its user data.
  XML_UseParserAsHandlerArg(parser.get());
  XML_SetEntityDeclHandler(
      parser.get(), [](void* self, const XML_Char*, int, const XML_Char*, int, const XML_Char*,
                       const XML_Char*, const XML_Char*, const XML_Char*) {
        XML_StopParser(static_cast<XML_Parser>(self), XML_FALSE);
      });
  XML_SetElementHandler(
      parser.get(),
      [](void* self, const XML_Char* name, const XML_Char** attributes) {
        auto& handlers = *static_cast<Handlers*>(XML_GetUserData(static_cast<XML_Parser>(self)));
        Attributes map;
        for (const XML_Char** attribute = attributes; *attribute != nullptr; attribute += 2) {
          const Name attributeName = splitName(attribute[0]);
          map.emplace(std::string(attributeName.local), attribute[1]);
          if (!attributeName.space.empty()) {
            map.emplace(std::string(attributeName.space) + "|" + std::string(attributeName.local),
                        attribute[1]);
          }
        }
        if (handlers.start) handlers.start(splitName(name), map);
      },
      [](void* self, const XML_Char* name) {
        auto& handlers = *static_cast<Handlers*>(XML_GetUserData(static_cast<XML_Parser>(self)));
        if (handlers.end) handlers.end(splitName(name));
      });
  XML_SetCharacterDataHandler(parser.get(), [](void* self, const XML_Char* text, int length) {
    auto& handlers = *static_cast<Handlers*>(XML_GetUserData(static_cast<XML_Parser>(self)));
    if (handlers.text) handlers.text(std::string_view(text, static_cast<std::size_t>(length)));
  });
  if (document.size() > static_cast<std::size_t>(INT32_MAX) ||
      XML_Parse(parser.get(), document.data(), static_cast<int>(document.size()), XML_TRUE) !=
          XML_STATUS_OK) {
    throw PublicationOutlineError(what + " is not well-formed XML without entity declarations (" +
                                  XML_ErrorString(XML_GetErrorCode(parser.get())) + ")");
  }
}

std::string collapsedWhiteSpace(std::string_view text) {
  std::string result;
  bool pendingSpace = false;
  for (const char character : text) {
    if (character == ' ' || character == '\t' || character == '\n' || character == '\r') {
      pendingSpace = !result.empty();
    } else {
      if (pendingSpace) result += ' ';
      pendingSpace = false;
      result += character;
    }
  }
  return result;
}

std::string percentDecoded(const std::string& text) {
  char* decoded = g_uri_unescape_string(text.c_str(), nullptr);
  if (decoded == nullptr) return text;
  std::string result(decoded);
  g_free(decoded);
  return result;
}

// `href` (relative to the document at `base`, both relative to the root) as a path relative to
// the root, without fragment or query; nothing for an absolute URL or a path out of the root.
std::optional<fs::path> resolveHref(const fs::path& base, std::string href) {
  href = href.substr(0, href.find_first_of("#?"));
  if (href.empty() || href.find(':') != std::string::npos || href.starts_with("/")) {
    return std::nullopt;
  }
  const fs::path resolved = (base.parent_path() / percentDecoded(href)).lexically_normal();
  if (resolved.empty() || *resolved.begin() == "..") return std::nullopt;
  return resolved;
}

std::string readDocument(const fs::path& root, const fs::path& relative, const std::string& what) {
  const std::optional<std::string> contents = readWholeFile(root / relative);
  if (!contents) throw PublicationOutlineError(what + " is missing");
  return *contents;
}

struct PackageDocument {
  std::string uniqueIdentifierID;
  std::vector<std::pair<std::string, std::string>> titlesWithID;  // id, text
  std::string mainTitleID;
  std::map<std::string, std::string> identifiersByID;
  std::string firstIdentifier;
  std::vector<std::string> creators;
  struct Item {
    std::string href;
    std::string mediaType;
    std::string properties;
  };
  std::map<std::string, Item> manifest;
  std::vector<std::string> spine;
  std::string tocID;
  bool sawSpine = false;
};

PackageDocument parsePackage(std::string_view text) {
  PackageDocument package;
  std::string collected;
  bool collecting = false;
  Attributes current;
  Handlers handlers;
  handlers.start = [&](Name name, const Attributes& attributes) {
    const auto attribute = [&](const char* key) {
      const auto found = attributes.find(key);
      return found == attributes.end() ? std::string() : found->second;
    };
    if (name.local == "package") package.uniqueIdentifierID = attribute("unique-identifier");
    if ((name.space == kDublinCore &&
         (name.local == "title" || name.local == "creator" || name.local == "identifier")) ||
        name.local == "meta") {
      collecting = true;
      collected.clear();
      current = attributes;
    }
    if (name.local == "item") {
      package.manifest.emplace(attribute("id"),
                               PackageDocument::Item{attribute("href"), attribute("media-type"),
                                                     attribute("properties")});
    }
    if (name.local == "spine") {
      package.sawSpine = true;
      package.tocID = attribute("toc");
    }
    if (name.local == "itemref") package.spine.push_back(attribute("idref"));
  };
  handlers.text = [&](std::string_view text) {
    if (collecting) collected += text;
  };
  handlers.end = [&](Name name) {
    if (!collecting) return;
    const std::string value = collapsedWhiteSpace(collected);
    const auto id = current.find("id");
    const std::string idText = id == current.end() ? std::string() : id->second;
    if (name.local == "title" && !value.empty()) package.titlesWithID.emplace_back(idText, value);
    if (name.local == "creator" && !value.empty()) package.creators.push_back(value);
    if (name.local == "identifier") {
      package.identifiersByID.emplace(idText, value);
      if (package.firstIdentifier.empty()) package.firstIdentifier = value;
    }
    if (name.local == "meta" && value == "main" && current["property"] == "title-type" &&
        current["refines"].starts_with("#")) {
      package.mainTitleID = current["refines"].substr(1);
    }
    collecting = false;
  };
  parseDocument(text, handlers, "The package document");
  if (!package.sawSpine) throw PublicationOutlineError("The package document has no spine");
  return package;
}

struct ContentsEntry {
  fs::path target;
  std::string title;
};

// The entries of the navigation document's "toc" nav, in document order.
std::vector<ContentsEntry> parseNavigation(std::string_view text, const fs::path& document) {
  std::vector<ContentsEntry> entries;
  int navDepth = 0;  // nesting of elements inside the toc nav, 0 outside it
  std::optional<std::string> href;
  std::string label;
  Handlers handlers;
  handlers.start = [&](Name name, const Attributes& attributes) {
    if (navDepth > 0) ++navDepth;
    if (navDepth == 0 && name.local == "nav") {
      const auto type = attributes.find(std::string(kOPS) + "|type");
      if (type != attributes.end() &&
          (" " + type->second + " ").find(" toc ") != std::string::npos) {
        navDepth = 1;
      }
    }
    if (navDepth > 0 && name.local == "a") {
      const auto found = attributes.find("href");
      href = found == attributes.end() ? std::string() : found->second;
      label.clear();
    }
  };
  handlers.text = [&](std::string_view text) {
    if (href) label += text;
  };
  handlers.end = [&](Name name) {
    if (navDepth > 0 && name.local == "a" && href) {
      if (auto target = resolveHref(document, *href)) {
        entries.push_back({std::move(*target), collapsedWhiteSpace(label)});
      }
      href.reset();
    }
    if (navDepth > 0) --navDepth;
  };
  parseDocument(text, handlers, "The navigation document");
  return entries;
}

// The entries of an NCX's navMap, in document order.
std::vector<ContentsEntry> parseNCX(std::string_view text, const fs::path& document) {
  struct Point {
    std::string label;
    std::string source;
  };
  std::vector<Point> points;
  std::vector<std::size_t> open;
  bool inLabelText = false;
  Handlers handlers;
  handlers.start = [&](Name name, const Attributes& attributes) {
    if (name.local == "navPoint") {
      open.push_back(points.size());
      points.emplace_back();
    } else if (name.local == "text" && !open.empty() && points[open.back()].label.empty()) {
      inLabelText = true;
    } else if (name.local == "content" && !open.empty()) {
      const auto source = attributes.find("src");
      if (source != attributes.end()) points[open.back()].source = source->second;
    }
  };
  handlers.text = [&](std::string_view text) {
    if (inLabelText) points[open.back()].label += text;
  };
  handlers.end = [&](Name name) {
    if (name.local == "text") inLabelText = false;
    if (name.local == "navPoint" && !open.empty()) open.pop_back();
  };
  parseDocument(text, handlers, "The NCX");
  std::vector<ContentsEntry> entries;
  for (const Point& point : points) {
    if (auto target = resolveHref(document, point.source)) {
      entries.push_back({std::move(*target), collapsedWhiteSpace(point.label)});
    }
  }
  return entries;
}

}  // namespace

std::string readSectionText(const fs::path& extractedRoot, const fs::path& file) {
  static constexpr std::string_view kBlocks[] = {
      "address", "article",    "aside",  "blockquote", "br", "dd",  "div", "dl",
      "dt",      "figcaption", "figure", "footer",     "h1", "h2",  "h3",  "h4",
      "h5",      "h6",         "header", "hr",         "li", "nav", "ol",  "p",
      "pre",     "section",    "table",  "td",         "th", "tr",  "ul"};
  std::string text;
  int bodyDepth = 0;
  int hiddenDepth = 0;  // inside script or style
  Handlers handlers;
  handlers.start = [&](Name name, const Attributes&) {
    if (bodyDepth > 0 || name.local == "body") ++bodyDepth;
    if (hiddenDepth > 0 || name.local == "script" || name.local == "style") ++hiddenDepth;
  };
  handlers.end = [&](Name name) {
    if (bodyDepth > 0 &&
        std::find(std::begin(kBlocks), std::end(kBlocks), name.local) != std::end(kBlocks)) {
      text += ' ';
    }
    if (bodyDepth > 0) --bodyDepth;
    if (hiddenDepth > 0) --hiddenDepth;
  };
  handlers.text = [&](std::string_view data) {
    if (bodyDepth > 0 && hiddenDepth == 0) text += data;
  };
  parseDocument(readDocument(extractedRoot, file, "A section"), handlers, "A section");
  return collapsedWhiteSpace(text);
}

PublicationOutline readPublicationOutline(const fs::path& extractedRoot,
                                          const std::string& packageDocumentPath) {
  const fs::path packagePath = fs::path(packageDocumentPath).lexically_normal();
  const PackageDocument package =
      parsePackage(readDocument(extractedRoot, packagePath, "The package document"));

  PublicationOutline outline;
  const auto unique = package.identifiersByID.find(package.uniqueIdentifierID);
  outline.identifier =
      unique != package.identifiersByID.end() ? unique->second : package.firstIdentifier;
  for (const auto& [id, title] : package.titlesWithID) {
    if (outline.title.empty() || (!id.empty() && id == package.mainTitleID)) outline.title = title;
  }
  outline.authors = package.creators;

  // Spine items as paths from the root, and as the runtime names them: relative to the package
  // document's directory, as the manifest wrote them.
  std::vector<fs::path>& spinePaths = outline.spineFiles;
  for (const std::string& idref : package.spine) {
    const auto item = package.manifest.find(idref);
    if (item == package.manifest.end()) continue;
    if (item->second.mediaType != "application/xhtml+xml" &&
        item->second.mediaType != "text/html") {
      continue;
    }
    spinePaths.push_back(resolveHref(packagePath, item->second.href).value_or(fs::path()));
    outline.spine.push_back({item->second.href.substr(0, item->second.href.find('#')), {}});
  }

  // The table of contents: the navigation document, else the NCX. A broken one costs the
  // chapters only.
  std::vector<ContentsEntry> contents;
  try {
    for (const auto& [id, item] : package.manifest) {
      if ((" " + item.properties + " ").find(" nav ") == std::string::npos) continue;
      if (const auto path = resolveHref(packagePath, item.href)) {
        contents =
            parseNavigation(readDocument(extractedRoot, *path, "The navigation document"), *path);
      }
      break;
    }
    const auto ncx = package.manifest.find(package.tocID);
    if (contents.empty() && ncx != package.manifest.end()) {
      if (const auto path = resolveHref(packagePath, ncx->second.href)) {
        contents = parseNCX(readDocument(extractedRoot, *path, "The NCX"), *path);
      }
    }
  } catch (const std::exception&) {
    contents.clear();
  }

  // Each spine item takes the first entry that points at it; one that none points at keeps the
  // chapter of the item before it.
  std::string chapter;
  for (std::size_t index = 0; index < outline.spine.size(); ++index) {
    for (const ContentsEntry& entry : contents) {
      if (!spinePaths[index].empty() && entry.target == spinePaths[index]) {
        chapter = entry.title;
        break;
      }
    }
    outline.spine[index].chapter = chapter;
  }
  return outline;
}

}  // namespace tomekeeper
