#pragma once

// The amplification limits are declared only under XML_DTD, with which the system's expat is
// built.
#ifndef XML_DTD
#define XML_DTD 1
#endif
#include <expat.h>

#include <memory>

namespace tomekeeper {

// Separates a namespace URI from the local name in the names a book XML parser reports.
inline constexpr XML_Char kXMLNamespaceSeparator = '\x1F';

// How far internal entities may expand a document: at most `maximumAmplification` times its own
// bytes, once the parser's output passes `activationThreshold` bytes.
struct XMLEntityLimits {
  float maximumAmplification = 100.0F;
  unsigned long long activationThreshold = 1024ULL * 1024ULL;
};

struct XMLParserDeleter {
  void operator()(XML_ParserStruct* parser) const { XML_ParserFree(parser); }
};
using XMLParserHandle = std::unique_ptr<XML_ParserStruct, XMLParserDeleter>;

// An expat parser for XML that comes from a book, which never reads outside the document: names
// come with their namespace (namespace, kXMLNamespaceSeparator, local name), parameter entities
// are never parsed, a reference to an external entity fails the parse, and internal entities
// expand only within `limits`. The caller adds its handlers, and its own rule for entity
// declarations. Empty when expat cannot make the parser or set the limits. Any thread; the
// parser is the caller's alone.
XMLParserHandle makeBookXMLParser(XMLEntityLimits limits = {});

}  // namespace tomekeeper
