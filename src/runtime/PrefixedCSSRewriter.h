#pragma once

#include <string>
#include <string_view>

namespace tomekeeper {

// Gives the "-epub-" prefixed properties and values of a book's CSS that WebKit does not map
// itself their standard names:
//   -epub-line-break               -> line-break
//   -epub-text-align-last          -> text-align-last
//   -epub-text-combine-horizontal  -> text-combine-upright
//   -epub-text-emphasis-position   -> text-emphasis-position
//   -epub-text-underline-position  -> text-underline-position   (alphabetic -> auto)
//   -epub-text-orientation         keeps its name; vertical-right -> mixed,
//                                  rotate-right and rotate-normal -> sideways
//   text-transform, -epub-text-transform: -epub-fullwidth -> full-width
// The prefixed names WebKit already maps (-epub-writing-mode, -epub-word-break, -epub-hyphens,
// -epub-text-combine and the other emphasis properties) are left as they are.
//
// Only the name of a declaration and the keywords of its value change: selectors, at-rule
// preludes, strings, comments, url()s, custom properties and every byte between the tokens come
// through unchanged, and a text without "-epub-" comes back as it was. Property names and
// keywords match without regard to ASCII case; a name written with CSS escapes is not
// recognised. The text is read as bytes, so UTF-8 and other ASCII-compatible encodings keep
// their characters (a UTF-16 style sheet is returned unchanged). Linear in the length of the
// text, with no recursion however deep its nesting. Pure; any thread; does not throw except
// std::bad_alloc.
class PrefixedCSSRewriter {
 public:
  // A whole style sheet: a text/css resource, or the text of a <style> element.
  static std::string rewriteStyleSheet(std::string_view styleSheet);
  // The value of a style attribute: a list of declarations without braces.
  static std::string rewriteStyleAttribute(std::string_view declarations);
  // Markup is not CSS: the text of a <style> element or a style attribute is given as the XML
  // parser decodes it (references such as &quot; resolved, CDATA unwrapped), and the result is
  // escaped again when it is written back into a document.
};

}  // namespace tomekeeper
