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
// success or failure. Nothing outside the document is ever read: external
// entities are not resolved, no DTD is loaded, and any entity declaration
// stops the parse as a failure, so internal entity expansion cannot grow.
bool parseXMLStartElements(std::string_view document, XMLStartElementDelegate& delegate);

}  // namespace tomekeeper
