#include "model/ResolvedTypography.h"

#include "model/Hashing.h"
#include "model/JSONCoding.h"

namespace tomekeeper {

namespace {

// The records with a mode and one optional number share their coding.
template <typename Record>
void encodeModeAndNumber(nlohmann::json& json, const Record& record,
                         const std::optional<double> Record::*number, std::string_view key) {
  json = nlohmann::json::object();
  json["mode"] = record.mode;
  encodeOptionalField(json, key, record.*number);
}

template <typename Record>
Record decodeModeAndNumber(const nlohmann::json& json, std::optional<double> Record::*number,
                           std::string_view key, std::string_view typeName) {
  requireJSONObject(json, typeName);
  Record record;
  record.mode = decodeRequiredField<typename Record::Mode>(json, "mode");
  record.*number = decodeOptionalField<double>(json, key);
  return record;
}

}  // namespace

ResolvedTypographyFont ResolvedTypographyFont::systemFont(const SystemFontRecord& record) {
  ResolvedTypographyFont font;
  font.mode = Mode::systemFont;
  font.stableName = record.stableName;
  font.cssFamilyName = record.cssFamilyName;
  font.fallbackStack.assign(kSystemFontFallbackStack.begin(), kSystemFontFallbackStack.end());
  return font;
}

void to_json(nlohmann::json& json, const ResolvedTypographyFont& font) {
  json = nlohmann::json::object();
  json["mode"] = font.mode;
  encodeOptionalField(json, "stableName", font.stableName);
  encodeOptionalField(json, "cssFamilyName", font.cssFamilyName);
  json["fallbackStack"] = nlohmann::json::array();
  for (const std::string& family : font.fallbackStack) json["fallbackStack"].push_back(family);
}

void from_json(const nlohmann::json& json, ResolvedTypographyFont& font) {
  requireJSONObject(json, "ResolvedTypographyFont");
  font = ResolvedTypographyFont{
      .mode = decodeRequiredField<ResolvedTypographyFont::Mode>(json, "mode"),
      .stableName = decodeOptionalField<std::string>(json, "stableName"),
      .cssFamilyName = decodeOptionalField<std::string>(json, "cssFamilyName"),
      .fallbackStack = decodeRequiredField<std::vector<std::string>>(json, "fallbackStack"),
  };
}

void to_json(nlohmann::json& json, const ResolvedTypographyFontScale& fontScale) {
  encodeModeAndNumber(json, fontScale, &ResolvedTypographyFontScale::value, "value");
}

void from_json(const nlohmann::json& json, ResolvedTypographyFontScale& fontScale) {
  fontScale = decodeModeAndNumber(json, &ResolvedTypographyFontScale::value, "value",
                                  "ResolvedTypographyFontScale");
}

void to_json(nlohmann::json& json, const ResolvedTypographyLineHeight& lineHeight) {
  encodeModeAndNumber(json, lineHeight, &ResolvedTypographyLineHeight::value, "value");
}

void from_json(const nlohmann::json& json, ResolvedTypographyLineHeight& lineHeight) {
  lineHeight = decodeModeAndNumber(json, &ResolvedTypographyLineHeight::value, "value",
                                   "ResolvedTypographyLineHeight");
}

void to_json(nlohmann::json& json, const ResolvedTypographyLetterSpacing& letterSpacing) {
  encodeModeAndNumber(json, letterSpacing, &ResolvedTypographyLetterSpacing::value, "value");
}

void from_json(const nlohmann::json& json, ResolvedTypographyLetterSpacing& letterSpacing) {
  letterSpacing = decodeModeAndNumber(json, &ResolvedTypographyLetterSpacing::value, "value",
                                      "ResolvedTypographyLetterSpacing");
}

void to_json(nlohmann::json& json, const ResolvedTypographyPageMargins& pageMargins) {
  encodeModeAndNumber(json, pageMargins, &ResolvedTypographyPageMargins::inlinePercentage,
                      "inlinePercentage");
}

void from_json(const nlohmann::json& json, ResolvedTypographyPageMargins& pageMargins) {
  pageMargins = decodeModeAndNumber(json, &ResolvedTypographyPageMargins::inlinePercentage,
                                    "inlinePercentage", "ResolvedTypographyPageMargins");
}

}  // namespace tomekeeper

using namespace tomekeeper;

std::size_t std::hash<ResolvedTypographyFont>::operator()(
    const ResolvedTypographyFont& font) const noexcept {
  return hashFields(font.mode, font.stableName, font.cssFamilyName, font.fallbackStack);
}

std::size_t std::hash<ResolvedTypographyFontScale>::operator()(
    const ResolvedTypographyFontScale& fontScale) const noexcept {
  return hashFields(fontScale.mode, fontScale.value);
}

std::size_t std::hash<ResolvedTypographyLineHeight>::operator()(
    const ResolvedTypographyLineHeight& lineHeight) const noexcept {
  return hashFields(lineHeight.mode, lineHeight.value);
}

std::size_t std::hash<ResolvedTypographyLetterSpacing>::operator()(
    const ResolvedTypographyLetterSpacing& letterSpacing) const noexcept {
  return hashFields(letterSpacing.mode, letterSpacing.value);
}

std::size_t std::hash<ResolvedTypographyPageMargins>::operator()(
    const ResolvedTypographyPageMargins& pageMargins) const noexcept {
  return hashFields(pageMargins.mode, pageMargins.inlinePercentage);
}
