#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "model/StringEnumeration.h"
#include "model/SystemFontRecord.h"

namespace tomekeeper {

// The resolved records are the typography as sent to the reader runtime: a flat object of a
// `mode` string and optional values, an absent value left out. How a selection becomes one of
// these (limits, margin percentages) is decided where preferences take effect.

// The font. `fallbackStack` is always written, as an array that may be empty.
struct ResolvedTypographyFont {
  enum class Mode { bookDefault, systemFont };

  // The stack behind a system font, in this order.
  static constexpr std::array<std::string_view, 2> kSystemFontFallbackStack{"-apple-system",
                                                                            "sans-serif"};

  Mode mode = Mode::bookDefault;
  std::optional<std::string> stableName;
  std::optional<std::string> cssFamilyName;
  std::vector<std::string> fallbackStack;

  // The book's own font: no names and an empty stack.
  static ResolvedTypographyFont bookDefault() { return {}; }
  // A font on the system: its stable and family names, with the system font fallback stack.
  static ResolvedTypographyFont systemFont(const SystemFontRecord& record);

  bool operator==(const ResolvedTypographyFont&) const = default;
};

struct ResolvedTypographyFontScale {
  enum class Mode { bookDefault, value };

  Mode mode = Mode::bookDefault;
  std::optional<double> value;

  bool operator==(const ResolvedTypographyFontScale&) const = default;
};

struct ResolvedTypographyLineHeight {
  enum class Mode { bookDefault, value };

  Mode mode = Mode::bookDefault;
  std::optional<double> value;

  bool operator==(const ResolvedTypographyLineHeight&) const = default;
};

struct ResolvedTypographyLetterSpacing {
  enum class Mode { bookDefault, normal, value };

  Mode mode = Mode::bookDefault;
  std::optional<double> value;

  bool operator==(const ResolvedTypographyLetterSpacing&) const = default;
};

struct ResolvedTypographyPageMargins {
  enum class Mode { bookDefault, preset };

  Mode mode = Mode::bookDefault;
  std::optional<double> inlinePercentage;

  bool operator==(const ResolvedTypographyPageMargins&) const = default;
};

TOMEKEEPER_STRING_ENUMERATION(ResolvedTypographyFont::Mode, "ResolvedTypographyFont.Mode",
                              "bookDefault", "systemFont")
TOMEKEEPER_STRING_ENUMERATION(ResolvedTypographyFontScale::Mode, "ResolvedTypographyFontScale.Mode",
                              "bookDefault", "value")
TOMEKEEPER_STRING_ENUMERATION(ResolvedTypographyLineHeight::Mode,
                              "ResolvedTypographyLineHeight.Mode", "bookDefault", "value")
TOMEKEEPER_STRING_ENUMERATION(ResolvedTypographyLetterSpacing::Mode,
                              "ResolvedTypographyLetterSpacing.Mode", "bookDefault", "normal",
                              "value")
TOMEKEEPER_STRING_ENUMERATION(ResolvedTypographyPageMargins::Mode,
                              "ResolvedTypographyPageMargins.Mode", "bookDefault", "preset")

// JSON coding by the conventions of Locator.h: `mode` required, optional values left out when
// absent, `fallbackStack` required.
void to_json(nlohmann::json& json, const ResolvedTypographyFont& font);
void from_json(const nlohmann::json& json, ResolvedTypographyFont& font);
void to_json(nlohmann::json& json, const ResolvedTypographyFontScale& fontScale);
void from_json(const nlohmann::json& json, ResolvedTypographyFontScale& fontScale);
void to_json(nlohmann::json& json, const ResolvedTypographyLineHeight& lineHeight);
void from_json(const nlohmann::json& json, ResolvedTypographyLineHeight& lineHeight);
void to_json(nlohmann::json& json, const ResolvedTypographyLetterSpacing& letterSpacing);
void from_json(const nlohmann::json& json, ResolvedTypographyLetterSpacing& letterSpacing);
void to_json(nlohmann::json& json, const ResolvedTypographyPageMargins& pageMargins);
void from_json(const nlohmann::json& json, ResolvedTypographyPageMargins& pageMargins);

}  // namespace tomekeeper

template <>
struct std::hash<tomekeeper::ResolvedTypographyFont> {
  std::size_t operator()(const tomekeeper::ResolvedTypographyFont& font) const noexcept;
};
template <>
struct std::hash<tomekeeper::ResolvedTypographyFontScale> {
  std::size_t operator()(const tomekeeper::ResolvedTypographyFontScale& fontScale) const noexcept;
};
template <>
struct std::hash<tomekeeper::ResolvedTypographyLineHeight> {
  std::size_t operator()(const tomekeeper::ResolvedTypographyLineHeight& lineHeight) const noexcept;
};
template <>
struct std::hash<tomekeeper::ResolvedTypographyLetterSpacing> {
  std::size_t operator()(
      const tomekeeper::ResolvedTypographyLetterSpacing& letterSpacing) const noexcept;
};
template <>
struct std::hash<tomekeeper::ResolvedTypographyPageMargins> {
  std::size_t operator()(
      const tomekeeper::ResolvedTypographyPageMargins& pageMargins) const noexcept;
};
