#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include <nlohmann/json.hpp>

#include "model/StringEnumeration.h"
#include "model/Uuid.h"

namespace tomekeeper {

// What the reader runtime is told of an open publication. The extraction cache builds it with
// a new `publicationID` for each open and URLs on the private scheme.
struct PublicationDescriptor {
  // How the runtime reaches the publication's resources.
  enum class AccessMode { applicationResourceScheme };

  Uuid publicationID;
  std::string packageURL;       // Absolute URL of the package document.
  std::string resourceBaseURL;  // Absolute URL of the package document's directory, ending "/".
  AccessMode accessMode = AccessMode::applicationResourceScheme;

  bool operator==(const PublicationDescriptor&) const = default;
};

TOMEKEEPER_STRING_ENUMERATION(PublicationDescriptor::AccessMode, "PublicationDescriptor.AccessMode",
                              "applicationResourceScheme")

// JSON coding by the conventions of Locator.h.
void to_json(nlohmann::json& json, const PublicationDescriptor& descriptor);
void from_json(const nlohmann::json& json, PublicationDescriptor& descriptor);

}  // namespace tomekeeper

template <>
struct std::hash<tomekeeper::PublicationDescriptor> {
  std::size_t operator()(const tomekeeper::PublicationDescriptor& descriptor) const noexcept;
};
