#pragma once

#include <cstddef>
#include <functional>

#include <nlohmann/json.hpp>

#include "model/StringEnumeration.h"

namespace tomekeeper {

// The colour theme the reader chose; system follows the desktop's light or dark style.
enum class ReadingThemeSelection { system, light, warm, dark };

TOMEKEEPER_STRING_ENUMERATION(ReadingThemeSelection, "ReadingThemeSelection", "system", "light",
                              "warm", "dark")

// The theme as sent to the reader runtime.
struct ResolvedReadingTheme {
  ReadingThemeSelection mode = ReadingThemeSelection::system;

  bool operator==(const ResolvedReadingTheme&) const = default;
};

// JSON coding: {"mode":"dark"}; throws JSONDecodingError as the other records do.
void to_json(nlohmann::json& json, const ResolvedReadingTheme& theme);
void from_json(const nlohmann::json& json, ResolvedReadingTheme& theme);

}  // namespace tomekeeper

template <>
struct std::hash<tomekeeper::ResolvedReadingTheme> {
  std::size_t operator()(const tomekeeper::ResolvedReadingTheme& theme) const noexcept {
    return std::hash<tomekeeper::ReadingThemeSelection>{}(theme.mode);
  }
};
