#include "intake/XMLStartElementParser.h"

// The amplification limits are declared only under XML_DTD, with which the
// system's expat is built.
#ifndef XML_DTD
#define XML_DTD 1
#endif
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
  XML_SetEntityDeclHandler(parser.get(), refuseExternalEntityDeclaration);
  XML_SetStartDoctypeDeclHandler(parser.get(), refuseExternalSubset);
  XML_SetNotStandaloneHandler(parser.get(), refuseNonStandaloneDocument);
  XML_SetExternalEntityRefHandler(parser.get(), refuseExternalEntity);
  XML_SetParamEntityParsing(parser.get(), XML_PARAM_ENTITY_PARSING_NEVER);
  if (XML_SetBillionLaughsAttackProtectionMaximumAmplification(
          parser.get(), kMaximumEntityAmplification) != XML_TRUE ||
      XML_SetBillionLaughsAttackProtectionActivationThreshold(
          parser.get(), kEntityAmplificationThreshold) != XML_TRUE) {
    return false;
  }
  return XML_Parse(parser.get(), document.data(), static_cast<int>(document.size()), XML_TRUE) ==
         XML_STATUS_OK;
}

}  // namespace tomekeeper
