#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "model/StringEnumeration.h"

namespace tomekeeper {

// The selections are what the reader chose and what the typography store keeps: each leaves the
// matter to the book or names a value. Limits on the values are applied when preferences take
// effect, not here. Each selection other than the page margins is coded as an object of one key,
// the case's name: {"bookDefault":{}}, {"systemFont":{"stableName":"Georgia"}},
// {"value":{"_0":1.2}}, {"normal":{}}. Decoding throws JSONDecodingError, with the message
// "Invalid number of keys found, expected one." for an object of no key or of several keys.

// The font: the book's own, or a font on the system named by its stable (PostScript) name. The
// name is kept when the font is missing, so the choice comes back when the font is installed.
class TypographyFontSelection {
 public:
  enum class Kind { systemFont, bookDefault };

  TypographyFontSelection() = default;  // bookDefault
  static TypographyFontSelection bookDefault() { return {}; }
  static TypographyFontSelection systemFont(std::string stableName);

  Kind kind() const noexcept { return kind_; }
  // The font's stable name for systemFont; absent for bookDefault.
  const std::optional<std::string>& stableName() const noexcept { return stableName_; }

  bool operator==(const TypographyFontSelection&) const = default;

 private:
  Kind kind_ = Kind::bookDefault;
  std::optional<std::string> stableName_;
};

// The text size as a multiple of the book's.
class TypographyFontScaleSelection {
 public:
  enum class Kind { value, bookDefault };

  TypographyFontScaleSelection() = default;  // bookDefault
  static TypographyFontScaleSelection bookDefault() { return {}; }
  static TypographyFontScaleSelection value(double scale);

  Kind kind() const noexcept { return kind_; }
  // The scale of a value selection; absent for bookDefault.
  std::optional<double> number() const noexcept { return number_; }

  bool operator==(const TypographyFontScaleSelection&) const = default;

 private:
  Kind kind_ = Kind::bookDefault;
  std::optional<double> number_;
};

// The line height as a multiple of the font size.
class TypographyLineHeightSelection {
 public:
  enum class Kind { value, bookDefault };

  TypographyLineHeightSelection() = default;  // bookDefault
  static TypographyLineHeightSelection bookDefault() { return {}; }
  static TypographyLineHeightSelection value(double lineHeight);

  Kind kind() const noexcept { return kind_; }
  // The line height of a value selection; absent for bookDefault.
  std::optional<double> number() const noexcept { return number_; }

  bool operator==(const TypographyLineHeightSelection&) const = default;

 private:
  Kind kind_ = Kind::bookDefault;
  std::optional<double> number_;
};

// The letter spacing in ems; normal asks for the font's own spacing over the book's.
class TypographyLetterSpacingSelection {
 public:
  enum class Kind { value, bookDefault, normal };

  TypographyLetterSpacingSelection() = default;  // bookDefault
  static TypographyLetterSpacingSelection bookDefault() { return {}; }
  static TypographyLetterSpacingSelection normal();
  static TypographyLetterSpacingSelection value(double spacing);

  Kind kind() const noexcept { return kind_; }
  // The spacing of a value selection; absent for bookDefault and normal.
  std::optional<double> number() const noexcept { return number_; }

  bool operator==(const TypographyLetterSpacingSelection&) const = default;

 private:
  Kind kind_ = Kind::bookDefault;
  std::optional<double> number_;
};

// The side margins of the page; coded as a plain string.
enum class TypographyPageMarginsSelection { bookDefault, narrow, standard, wide };

TOMEKEEPER_STRING_ENUMERATION(TypographyPageMarginsSelection, "TypographyPageMarginsSelection",
                              "bookDefault", "narrow", "standard", "wide")

// The five selections together. The default value leaves everything to the book. In JSON all
// five keys are required: {"font":...,"fontScale":...,"lineHeight":...,"letterSpacing":...,
// "pageMargins":"narrow"}.
struct TypographyPreferences {
  TypographyFontSelection font;
  TypographyFontScaleSelection fontScale;
  TypographyLineHeightSelection lineHeight;
  TypographyLetterSpacingSelection letterSpacing;
  TypographyPageMarginsSelection pageMargins = TypographyPageMarginsSelection::bookDefault;

  bool operator==(const TypographyPreferences&) const = default;
};

void to_json(nlohmann::json& json, const TypographyFontSelection& selection);
void from_json(const nlohmann::json& json, TypographyFontSelection& selection);
void to_json(nlohmann::json& json, const TypographyFontScaleSelection& selection);
void from_json(const nlohmann::json& json, TypographyFontScaleSelection& selection);
void to_json(nlohmann::json& json, const TypographyLineHeightSelection& selection);
void from_json(const nlohmann::json& json, TypographyLineHeightSelection& selection);
void to_json(nlohmann::json& json, const TypographyLetterSpacingSelection& selection);
void from_json(const nlohmann::json& json, TypographyLetterSpacingSelection& selection);
void to_json(nlohmann::json& json, const TypographyPreferences& preferences);
void from_json(const nlohmann::json& json, TypographyPreferences& preferences);

}  // namespace tomekeeper

template <>
struct std::hash<tomekeeper::TypographyFontSelection> {
  std::size_t operator()(const tomekeeper::TypographyFontSelection& selection) const noexcept;
};
template <>
struct std::hash<tomekeeper::TypographyFontScaleSelection> {
  std::size_t operator()(const tomekeeper::TypographyFontScaleSelection& selection) const noexcept;
};
template <>
struct std::hash<tomekeeper::TypographyLineHeightSelection> {
  std::size_t operator()(const tomekeeper::TypographyLineHeightSelection& selection) const noexcept;
};
template <>
struct std::hash<tomekeeper::TypographyLetterSpacingSelection> {
  std::size_t operator()(
      const tomekeeper::TypographyLetterSpacingSelection& selection) const noexcept;
};
template <>
struct std::hash<tomekeeper::TypographyPreferences> {
  std::size_t operator()(const tomekeeper::TypographyPreferences& preferences) const noexcept;
};
