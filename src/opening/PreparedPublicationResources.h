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
  // What the container's validation found, the fonts' obfuscations among it.
  PublicationIntakeFindings intakeFindings = {};

  // Whether the container declared obfuscated fonts.
  bool usesFontObfuscation() const { return !intakeFindings.fontObfuscationAlgorithms.empty(); }

  bool operator==(const PreparedPublicationResources&) const = default;
};

}  // namespace tomekeeper
