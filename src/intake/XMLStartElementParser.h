#pragma once

#include <string>
#include <string_view>
#include <unordered_map>

namespace tomekeeper {

// Receives the start of each element, with namespace processing on: names are
// local names, whatever prefix or namespace the document gave them.
class XMLStartElementDelegate {
 public:
  using Attributes = std::unordered_map<std::string, std::string>;
  virtual ~XMLStartElementDelegate() = default;
  virtual void startElement(std::string_view localName, const Attributes& attributes) = 0;
};

// Parses `document` with expat and namespace processing, reporting only
// success or failure. Nothing outside the document is ever read, and a
// document that would need it fails: the declaration of an external entity
// (general, parameter or unparsed), a DOCTYPE that names an external DTD
// subset, and a parameter entity reference (never expanded) in a document not
// declared standalone all stop the parse. Internal entities are expanded, within
// expat's amplification limits (kMaximumEntityAmplification, past
// kEntityAmplificationThreshold bytes of output), so a billion laughs fails
// early instead of growing.
bool parseXMLStartElements(std::string_view document, XMLStartElementDelegate& delegate);

// The expansion that internal entities may add: at most this many times the
// document's own bytes, once the parser's output passes the threshold.
inline constexpr float kMaximumEntityAmplification = 8.0F;
inline constexpr unsigned long long kEntityAmplificationThreshold = 64 * 1024;

}  // namespace tomekeeper
