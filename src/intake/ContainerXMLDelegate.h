#pragma once

#include <optional>
#include <string>
#include <vector>

#include "intake/XMLStartElementParser.h"

namespace tomekeeper {

// Collects the rootfiles of META-INF/container.xml: every element with the
// local name "rootfile" that has a "full-path" attribute, in document order.
class ContainerXMLDelegate final : public XMLStartElementDelegate {
 public:
  struct Rootfile {
    std::string path;
    std::optional<std::string> mediaType;
    bool operator==(const Rootfile&) const = default;
  };

  std::vector<Rootfile> rootfiles;

  void startElement(std::string_view localName, const Attributes& attributes) override {
    if (localName != "rootfile") return;
    const auto path = attributes.find("full-path");
    if (path == attributes.end()) return;
    const auto mediaType = attributes.find("media-type");
    rootfiles.push_back(
        Rootfile{path->second, mediaType == attributes.end()
                                   ? std::nullopt
                                   : std::optional<std::string>(mediaType->second)});
  }
};

// Collects the Algorithm of every EncryptionMethod element of
// META-INF/encryption.xml, wherever it stands in the document.
class EncryptionXMLDelegate final : public XMLStartElementDelegate {
 public:
  std::vector<std::string> algorithms;

  void startElement(std::string_view localName, const Attributes& attributes) override {
    if (localName != "EncryptionMethod") return;
    const auto algorithm = attributes.find("Algorithm");
    if (algorithm != attributes.end()) algorithms.push_back(algorithm->second);
  }
};

}  // namespace tomekeeper
