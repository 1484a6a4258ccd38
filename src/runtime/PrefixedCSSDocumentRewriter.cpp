#include "runtime/PrefixedCSSDocumentRewriter.h"

#include <glib.h>

#include <climits>
#include <memory>
#include <optional>
#include <vector>

#include "platform/BookXMLParser.h"
#include "runtime/PrefixedCSSRewriter.h"

namespace tomekeeper {

namespace {

constexpr std::string_view kXHTMLNamespace = "http://www.w3.org/1999/xhtml";
constexpr std::string_view kSVGNamespace = "http://www.w3.org/2000/svg";

// One piece of the original bytes and what replaces it.
struct Edit {
  std::size_t begin;
  std::size_t end;
  std::string replacement;
};

// A <style> element whose text is being gathered.
struct OpenStyleElement {
  std::size_t contentBegin;
  int depth;
  std::string text;
  bool hasChildElement = false;
};

struct RewriteState {
  XML_Parser parser;
  std::string_view document;
  bool documentIsUTF8 = true;
  bool refused = false;
  int depth = 0;
  std::optional<OpenStyleElement> style;
  std::vector<Edit> edits;
};

enum class EscapeContext { text, attribute };

// `text` as the document must spell it so that a parser reads `text` back: markup characters,
// the quote and normalised white space as references, and non-ASCII characters as references
// when the document is in another encoding than UTF-8.
std::string escaped(std::string_view text, EscapeContext context, char quote, bool documentIsUTF8) {
  std::string result;
  result.reserve(text.size());
  const char* position = text.data();
  const char* const end = text.data() + text.size();
  while (position < end) {
    const char character = *position;
    if (static_cast<unsigned char>(character) >= 0x80) {
      const char* next = g_utf8_next_char(position);
      if (documentIsUTF8) {
        result.append(position, static_cast<std::size_t>(next - position));
      } else {
        const gunichar codePoint = g_utf8_get_char(position);
        gchar* reference = g_strdup_printf("&#x%X;", codePoint);
        result += reference;
        g_free(reference);
      }
      position = next;
      continue;
    }
    switch (character) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '\r':
        result += "&#13;";
        break;
      case '\t':
        result += context == EscapeContext::attribute ? "&#9;" : "\t";
        break;
      case '\n':
        result += context == EscapeContext::attribute ? "&#10;" : "\n";
        break;
      case '"':
        result += context == EscapeContext::attribute && quote == '"' ? "&quot;" : "\"";
        break;
      case '\'':
        result += context == EscapeContext::attribute && quote == '\'' ? "&apos;" : "'";
        break;
      default:
        result += character;
    }
    ++position;
  }
  return result;
}

bool isXMLWhiteSpace(char character) {
  return character == ' ' || character == '\t' || character == '\r' || character == '\n';
}

// The span of the value of the unqualified attribute `style` in the start tag `tag`, which
// expat has already found well-formed: after the name, each attribute is a name, optional
// white space, "=", optional white space and a quoted value holding no quote of its kind.
std::optional<std::pair<std::size_t, std::size_t>> styleValueSpan(std::string_view tag,
                                                                  char& quote) {
  std::size_t position = 1;
  while (position < tag.size() && !isXMLWhiteSpace(tag[position]) && tag[position] != '/' &&
         tag[position] != '>') {
    ++position;
  }
  while (position < tag.size()) {
    while (position < tag.size() && isXMLWhiteSpace(tag[position])) ++position;
    if (position >= tag.size() || tag[position] == '/' || tag[position] == '>') break;
    const std::size_t nameBegin = position;
    while (position < tag.size() && !isXMLWhiteSpace(tag[position]) && tag[position] != '=') {
      ++position;
    }
    const std::string_view name = tag.substr(nameBegin, position - nameBegin);
    while (position < tag.size() && isXMLWhiteSpace(tag[position])) ++position;
    if (position >= tag.size() || tag[position] != '=') return std::nullopt;
    ++position;
    while (position < tag.size() && isXMLWhiteSpace(tag[position])) ++position;
    if (position >= tag.size()) return std::nullopt;
    quote = tag[position];
    const std::size_t valueBegin = position + 1;
    const std::size_t valueEnd = tag.find(quote, valueBegin);
    if (valueEnd == std::string_view::npos) return std::nullopt;
    if (name == "style") return std::make_pair(valueBegin, valueEnd);
    position = valueEnd + 1;
  }
  return std::nullopt;
}

bool referencesUndeclaredEntity(std::string_view raw) {
  for (std::size_t ampersand = raw.find('&'); ampersand != std::string_view::npos;
       ampersand = raw.find('&', ampersand + 1)) {
    const std::size_t semicolon = raw.find(';', ampersand);
    const std::string_view name = raw.substr(ampersand + 1, semicolon - ampersand - 1);
    if (!name.empty() && name.front() == '#') continue;
    if (name != "amp" && name != "lt" && name != "gt" && name != "quot" && name != "apos") {
      return true;
    }
  }
  return false;
}

void refuse(RewriteState& state) {
  state.refused = true;
  XML_StopParser(state.parser, XML_FALSE);
}

// The byte span of the current event, or absent when expat cannot give it (inside an
// entity's replacement text).
std::optional<std::pair<std::size_t, std::size_t>> currentEventSpan(const RewriteState& state) {
  const XML_Index index = XML_GetCurrentByteIndex(state.parser);
  const int count = XML_GetCurrentByteCount(state.parser);
  if (index < 0 || count < 0) return std::nullopt;
  const auto begin = static_cast<std::size_t>(index);
  const std::size_t end = begin + static_cast<std::size_t>(count);
  if (end > state.document.size()) return std::nullopt;
  return std::make_pair(begin, end);
}

bool isStyleElement(std::string_view name) {
  const std::size_t separator = name.rfind(kXMLNamespaceSeparator);
  if (separator == std::string_view::npos) return name == "style";
  const std::string_view space = name.substr(0, separator);
  return name.substr(separator + 1) == "style" &&
         (space == kXHTMLNamespace || space == kSVGNamespace);
}

void rewriteStyleAttribute(RewriteState& state, const XML_Char** attributes,
                           std::pair<std::size_t, std::size_t> tagSpan) {
  for (const XML_Char** attribute = attributes; attribute[0] != nullptr; attribute += 2) {
    if (std::string_view(attribute[0]) != "style") continue;
    const std::string_view value(attribute[1]);
    const std::string rewritten = PrefixedCSSRewriter::rewriteStyleAttribute(value);
    if (rewritten == value) return;
    const std::string_view tag =
        state.document.substr(tagSpan.first, tagSpan.second - tagSpan.first);
    char quote = '"';
    const auto span = styleValueSpan(tag, quote);
    if (!span) return;
    const std::string_view raw = tag.substr(span->first, span->second - span->first);
    // The parser drops a reference to an entity it never read from an attribute's value, so
    // the value it gave is not the whole of what is written.
    if (referencesUndeclaredEntity(raw)) return;
    state.edits.push_back(Edit{
        tagSpan.first + span->first, tagSpan.first + span->second,
        raw == value ? rewritten
                     : escaped(rewritten, EscapeContext::attribute, quote, state.documentIsUTF8)});
    return;
  }
}

void XMLCALL startElement(void* data, const XML_Char* name, const XML_Char** attributes) {
  auto& state = *static_cast<RewriteState*>(data);
  ++state.depth;
  if (state.style) state.style->hasChildElement = true;
  const auto span = currentEventSpan(state);
  if (!span || span->second == span->first) return;
  rewriteStyleAttribute(state, attributes, *span);
  if (!state.style && isStyleElement(name)) {
    state.style = OpenStyleElement{span->second, state.depth, {}};
  }
}

void XMLCALL endElement(void* data, const XML_Char*) {
  auto& state = *static_cast<RewriteState*>(data);
  const int depth = state.depth--;
  if (!state.style || state.style->depth != depth) return;
  OpenStyleElement style = std::move(*state.style);
  state.style.reset();
  const auto span = currentEventSpan(state);
  // An empty-element tag has no end tag of its own, and so no text.
  if (!span || span->second == span->first || style.hasChildElement) return;
  if (span->first < style.contentBegin) return;
  const std::string rewritten = PrefixedCSSRewriter::rewriteStyleSheet(style.text);
  if (rewritten == style.text) return;
  const std::string_view raw =
      state.document.substr(style.contentBegin, span->first - style.contentBegin);
  state.edits.push_back(
      Edit{style.contentBegin, span->first,
           raw == style.text ? rewritten
                             : escaped(rewritten, EscapeContext::text, '"', state.documentIsUTF8)});
}

void XMLCALL characterData(void* data, const XML_Char* text, int length) {
  auto& state = *static_cast<RewriteState*>(data);
  if (state.style) state.style->text.append(text, static_cast<std::size_t>(length));
}

void XMLCALL xmlDeclaration(void* data, const XML_Char*, const XML_Char* encoding, int) {
  auto& state = *static_cast<RewriteState*>(data);
  if (encoding == nullptr) return;
  gchar* lower = g_ascii_strdown(encoding, -1);
  const std::string_view name(lower);
  state.documentIsUTF8 = name == "utf-8" || name == "utf8";
  g_free(lower);
}

void XMLCALL entityDeclaration(void* data, const XML_Char*, int, const XML_Char*, int,
                               const XML_Char*, const XML_Char*, const XML_Char*, const XML_Char*) {
  refuse(*static_cast<RewriteState*>(data));
}

// A document with an external DTD may use entities the parser never reads, such as &nbsp;.
// Outside a style element that is nothing to this rewriter; inside one the text is incomplete.
void XMLCALL skippedEntity(void* data, const XML_Char*, int) {
  auto& state = *static_cast<RewriteState*>(data);
  if (state.style) state.style->hasChildElement = true;
}

bool looksLikeUTF16(std::string_view document) {
  if (document.size() < 2) return false;
  const auto first = static_cast<unsigned char>(document[0]);
  const auto second = static_cast<unsigned char>(document[1]);
  return (first == 0xFE && second == 0xFF) || (first == 0xFF && second == 0xFE) || first == 0 ||
         second == 0;
}

}  // namespace

std::string PrefixedCSSDocumentRewriter::rewriteDocument(std::string_view document) {
  const std::string unchanged(document);
  if (document.size() > static_cast<std::size_t>(INT_MAX) || looksLikeUTF16(document)) {
    return unchanged;
  }
  const XMLParserHandle parser = makeBookXMLParser();
  if (!parser) return unchanged;
  RewriteState state{parser.get(), document, true, false, 0, std::nullopt, {}};
  XML_SetUserData(parser.get(), &state);
  XML_SetElementHandler(parser.get(), startElement, endElement);
  XML_SetCharacterDataHandler(parser.get(), characterData);
  XML_SetXmlDeclHandler(parser.get(), xmlDeclaration);
  XML_SetEntityDeclHandler(parser.get(), entityDeclaration);
  XML_SetSkippedEntityHandler(parser.get(), skippedEntity);
  if (XML_Parse(parser.get(), document.data(), static_cast<int>(document.size()), XML_TRUE) !=
          XML_STATUS_OK ||
      state.refused || state.edits.empty()) {
    return unchanged;
  }
  // Edits arrive in document order and never overlap: an attribute lies in a start tag, a
  // style element's text between two tags.
  std::string result;
  result.reserve(document.size() + 64);
  std::size_t copied = 0;
  for (const Edit& edit : state.edits) {
    if (edit.begin < copied) return unchanged;
    result.append(document.substr(copied, edit.begin - copied));
    result += edit.replacement;
    copied = edit.end;
  }
  result.append(document.substr(copied));
  return result;
}

}  // namespace tomekeeper
