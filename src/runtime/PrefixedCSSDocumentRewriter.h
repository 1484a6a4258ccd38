#pragma once

#include <string>
#include <string_view>

namespace tomekeeper {

// Applies PrefixedCSSRewriter to the CSS inside a book's XHTML or SVG document as it is served:
// the text of each <style> element (XHTML or SVG) and each unqualified style attribute.
//
// The document is read with expat, which decodes references and CDATA; a piece whose decoded
// CSS the rewriter changes is replaced in the original bytes and nothing else is: markup,
// white space, the XML declaration and every other byte stay as they were. A replaced piece is
// written back as it was written when it held no reference, CDATA, comment or line break that
// the parser normalised, else escaped again (non-ASCII characters as character references when
// the document is not UTF-8). A document that is not well-formed, declares entities or is
// encoded in UTF-16 is returned unchanged, as is a <style> element with child elements or a
// reference to an entity the parser did not read (one of an external DTD, such as &nbsp;), and
// a style attribute holding such a reference. Pure; any thread; does not throw except std::bad_alloc.
class PrefixedCSSDocumentRewriter {
 public:
  static std::string rewriteDocument(std::string_view document);
};

}  // namespace tomekeeper
