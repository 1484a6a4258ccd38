#pragma once

#include <filesystem>
#include <string>

#include "model/PublicationDescriptor.h"
#include "opening/PublicationIntakeFindings.h"

namespace tomekeeper {

// What the cache step of the open road hands on: an extracted, validated copy
// of the book and the description the reader runtime is given. Users link
// tomekeeper_model for the descriptor.
struct PreparedPublicationResources {
  std::string fingerprint;
  // Root directory of the extracted publication in the cache.
  std::filesystem::path extractedRoot;
  PublicationDescriptor descriptor;
  // True when the container declared obfuscated fonts.
  bool usesFontObfuscation = false;
  // Which obfuscations those are (none exactly when `usesFontObfuscation` is false).
  PublicationIntakeFindings intakeFindings;

  bool operator==(const PreparedPublicationResources&) const = default;
};

}  // namespace tomekeeper
