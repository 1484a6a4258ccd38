#include "intake/XMLStartElementParser.h"

#include <climits>

#include "platform/BookXMLParser.h"

namespace tomekeeper {
namespace {

std::string_view localName(const XML_Char* name) {
  const std::string_view whole(name);
  const std::size_t separator = whole.rfind(kXMLNamespaceSeparator);
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

// Internal entities pass; anything that names an outside resource stops the
// parse, even if the document never refers to it.
void XMLCALL refuseExternalEntityDeclaration(void* userData, const XML_Char*, int, const XML_Char*,
                                             int, const XML_Char*, const XML_Char* systemId,
                                             const XML_Char* publicId, const XML_Char*) {
  if (systemId != nullptr || publicId != nullptr) {
    XML_StopParser(static_cast<ParseState*>(userData)->parser, XML_FALSE);
  }
}

// A DTD subset outside the document is never loaded; naming one is refused.
void XMLCALL refuseExternalSubset(void* userData, const XML_Char*, const XML_Char* systemId,
                                  const XML_Char* publicId, int) {
  if (systemId != nullptr || publicId != nullptr) {
    XML_StopParser(static_cast<ParseState*>(userData)->parser, XML_FALSE);
  }
}

// Called for a document that refers to a parameter entity without
// standalone="yes": parameter entities are never expanded, so the entities it
// declares after the reference could not be known.
int XMLCALL refuseNonStandaloneDocument(void*) {
  return XML_STATUS_ERROR;
}

}  // namespace

bool parseXMLStartElements(std::string_view document, XMLStartElementDelegate& delegate) {
  if (document.size() > static_cast<std::size_t>(INT_MAX)) return false;
  const XMLParserHandle parser =
      makeBookXMLParser({kMaximumEntityAmplification, kEntityAmplificationThreshold});
  if (!parser) return false;
  ParseState state{parser.get(), &delegate};
  XML_SetUserData(parser.get(), &state);
  XML_SetStartElementHandler(parser.get(), startElement);
  XML_SetEntityDeclHandler(parser.get(), refuseExternalEntityDeclaration);
  XML_SetStartDoctypeDeclHandler(parser.get(), refuseExternalSubset);
  XML_SetNotStandaloneHandler(parser.get(), refuseNonStandaloneDocument);
  return XML_Parse(parser.get(), document.data(), static_cast<int>(document.size()), XML_TRUE) ==
         XML_STATUS_OK;
}

}  // namespace tomekeeper
