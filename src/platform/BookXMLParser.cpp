#include "platform/BookXMLParser.h"

namespace tomekeeper {

namespace {

int XMLCALL refuseExternalEntity(XML_Parser, const XML_Char*, const XML_Char*, const XML_Char*,
                                 const XML_Char*) {
  return XML_STATUS_ERROR;
}

}  // namespace

XMLParserHandle makeBookXMLParser(XMLEntityLimits limits) {
  XMLParserHandle parser(XML_ParserCreateNS(nullptr, kXMLNamespaceSeparator));
  if (!parser) return parser;
  XML_SetExternalEntityRefHandler(parser.get(), refuseExternalEntity);
  XML_SetParamEntityParsing(parser.get(), XML_PARAM_ENTITY_PARSING_NEVER);
  if (XML_SetBillionLaughsAttackProtectionMaximumAmplification(
          parser.get(), limits.maximumAmplification) != XML_TRUE ||
      XML_SetBillionLaughsAttackProtectionActivationThreshold(
          parser.get(), limits.activationThreshold) != XML_TRUE) {
    parser.reset();
  }
  return parser;
}

}  // namespace tomekeeper
