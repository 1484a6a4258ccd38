#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace tomekeeper {

// The words around a spot, with which the reader runtime finds it again.
struct TextContext {
  std::string exact;
  std::optional<std::string> prefix;
  std::optional<std::string> suffix;

  bool operator==(const TextContext&) const = default;
};

// A position in a publication. The reader runtime computes it; the native side only stores it
// and hands it back, so nothing here validates or clamps (a progression of 1.5 stays 1.5).
// Equality compares all six fields; an absent value differs from any present one, and the
// progressions compare as numbers.
struct Locator {
  std::optional<std::string> cfi;
  std::string spineHref;
  std::int64_t spineIndex = 0;
  std::optional<double> sectionProgression;
  std::optional<double> totalProgression;
  std::optional<TextContext> excerpt;

  bool operator==(const Locator&) const = default;
};

// The user's current selection in the page.
struct TextSelection {
  Locator locator;
  std::string selectedText;

  bool operator==(const TextSelection&) const = default;
};

// JSON coding of the records: keys are the field names; absent optionals are left out when
// writing, and a missing key or null both read as absent. Decoding throws JSONDecodingError
// when a required key is missing or any value has the wrong JSON type; unknown keys are ignored.
// A non-finite progression is written by nlohmann-json as null, and so reads back absent.
void to_json(nlohmann::json& json, const TextContext& context);
void from_json(const nlohmann::json& json, TextContext& context);
void to_json(nlohmann::json& json, const Locator& locator);
void from_json(const nlohmann::json& json, Locator& locator);
void to_json(nlohmann::json& json, const TextSelection& selection);
void from_json(const nlohmann::json& json, TextSelection& selection);

}  // namespace tomekeeper

template <>
struct std::hash<tomekeeper::TextContext> {
  std::size_t operator()(const tomekeeper::TextContext& context) const noexcept;
};
template <>
struct std::hash<tomekeeper::Locator> {
  std::size_t operator()(const tomekeeper::Locator& locator) const noexcept;
};
template <>
struct std::hash<tomekeeper::TextSelection> {
  std::size_t operator()(const tomekeeper::TextSelection& selection) const noexcept;
};
