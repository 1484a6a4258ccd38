#include "intake/XMLStartElementParser.h"

#include <expat.h>

#include <climits>
#include <memory>

namespace tomekeeper {
namespace {

// Separates a namespace URI from the local name in the names expat reports.
constexpr XML_Char kNamespaceSeparator = '\x1F';

std::string_view localName(const XML_Char* name) {
  const std::string_view whole(name);
  const std::size_t separator = whole.rfind(kNamespaceSeparator);
  return separator == std::string_view::npos ? whole : whole.substr(separator + 1);
}

struct ParseState {
  XML_Parser parser;
  XMLStartElementDelegate* delegate;
};

void XMLCALL startElement(void* userData, const XML_Char* name, const XML_Char** attributes) {
  auto* state = static_cast<ParseState*>(userData);
  XMLStartElementDelegate::Attributes map;
  for (const XML_Char** attribute = attributes; attribute[0] != nullptr; attribute += 2) {
    map.emplace(std::string(localName(attribute[0])), std::string(attribute[1]));
  }
  state->delegate->startElement(localName(name), map);
}

void XMLCALL refuseEntityDeclaration(void* userData, const XML_Char*, int, const XML_Char*, int,
                                     const XML_Char*, const XML_Char*, const XML_Char*,
                                     const XML_Char*) {
  XML_StopParser(static_cast<ParseState*>(userData)->parser, XML_FALSE);
}

int XMLCALL refuseExternalEntity(XML_Parser, const XML_Char*, const XML_Char*, const XML_Char*,
                                 const XML_Char*) {
  return XML_STATUS_ERROR;
}

struct ParserDeleter {
  void operator()(XML_ParserStruct* parser) const { XML_ParserFree(parser); }
};

}  // namespace

bool parseXMLStartElements(std::string_view document, XMLStartElementDelegate& delegate) {
  if (document.size() > static_cast<std::size_t>(INT_MAX)) return false;
  std::unique_ptr<XML_ParserStruct, ParserDeleter> parser(
      XML_ParserCreateNS(nullptr, kNamespaceSeparator));
  if (!parser) return false;
  ParseState state{parser.get(), &delegate};
  XML_SetUserData(parser.get(), &state);
  XML_SetStartElementHandler(parser.get(), startElement);
  XML_SetEntityDeclHandler(parser.get(), refuseEntityDeclaration);
  XML_SetExternalEntityRefHandler(parser.get(), refuseExternalEntity);
  XML_SetParamEntityParsing(parser.get(), XML_PARAM_ENTITY_PARSING_NEVER);
  return XML_Parse(parser.get(), document.data(), static_cast<int>(document.size()), XML_TRUE) ==
         XML_STATUS_OK;
}

}  // namespace tomekeeper
