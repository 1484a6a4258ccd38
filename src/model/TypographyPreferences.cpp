#include "model/TypographyPreferences.h"

#include "model/Hashing.h"
#include "model/JSONCoding.h"

namespace tomekeeper {

namespace {

// The payload key of an unlabelled value; stored files depend on it.
constexpr std::string_view kUnlabelledValueKey = "_0";

nlohmann::json unlabelledValue(double number) {
  nlohmann::json payload = nlohmann::json::object();
  payload[std::string(kUnlabelledValueKey)] = number;
  return encodeSingleKeyCase("value", std::move(payload));
}

// The coding shared by the font scale and line height selections, which have the same cases.
template <typename Selection>
nlohmann::json encodeValueOrBookDefault(const Selection& selection) {
  if (selection.kind() == Selection::Kind::value) return unlabelledValue(*selection.number());
  return encodeSingleKeyCase("bookDefault");
}

template <typename Selection>
Selection decodeValueOrBookDefault(const nlohmann::json& json, std::string_view typeName) {
  const SingleKeyCase singleCase = decodeSingleKeyCase(json, typeName);
  if (singleCase.name == "value") {
    return Selection::value(decodePayloadField<double>(singleCase, kUnlabelledValueKey));
  }
  if (singleCase.name == "bookDefault") return Selection::bookDefault();
  throwUnknownCase(singleCase.name, typeName);
}

}  // namespace

TypographyFontSelection TypographyFontSelection::systemFont(std::string stableName) {
  TypographyFontSelection selection;
  selection.kind_ = Kind::systemFont;
  selection.stableName_ = std::move(stableName);
  return selection;
}

TypographyFontScaleSelection TypographyFontScaleSelection::value(double scale) {
  TypographyFontScaleSelection selection;
  selection.kind_ = Kind::value;
  selection.number_ = scale;
  return selection;
}

TypographyLineHeightSelection TypographyLineHeightSelection::value(double lineHeight) {
  TypographyLineHeightSelection selection;
  selection.kind_ = Kind::value;
  selection.number_ = lineHeight;
  return selection;
}

TypographyLetterSpacingSelection TypographyLetterSpacingSelection::normal() {
  TypographyLetterSpacingSelection selection;
  selection.kind_ = Kind::normal;
  return selection;
}

TypographyLetterSpacingSelection TypographyLetterSpacingSelection::value(double spacing) {
  TypographyLetterSpacingSelection selection;
  selection.kind_ = Kind::value;
  selection.number_ = spacing;
  return selection;
}

void to_json(nlohmann::json& json, const TypographyFontSelection& selection) {
  if (selection.kind() == TypographyFontSelection::Kind::systemFont) {
    nlohmann::json payload = nlohmann::json::object();
    payload["stableName"] = *selection.stableName();
    json = encodeSingleKeyCase("systemFont", std::move(payload));
  } else {
    json = encodeSingleKeyCase("bookDefault");
  }
}

void from_json(const nlohmann::json& json, TypographyFontSelection& selection) {
  constexpr std::string_view kTypeName = "TypographyFontSelection";
  const SingleKeyCase singleCase = decodeSingleKeyCase(json, kTypeName);
  if (singleCase.name == "systemFont") {
    selection = TypographyFontSelection::systemFont(
        decodePayloadField<std::string>(singleCase, "stableName"));
  } else if (singleCase.name == "bookDefault") {
    selection = TypographyFontSelection::bookDefault();
  } else {
    throwUnknownCase(singleCase.name, kTypeName);
  }
}

void to_json(nlohmann::json& json, const TypographyFontScaleSelection& selection) {
  json = encodeValueOrBookDefault(selection);
}

void from_json(const nlohmann::json& json, TypographyFontScaleSelection& selection) {
  selection =
      decodeValueOrBookDefault<TypographyFontScaleSelection>(json, "TypographyFontScaleSelection");
}

void to_json(nlohmann::json& json, const TypographyLineHeightSelection& selection) {
  json = encodeValueOrBookDefault(selection);
}

void from_json(const nlohmann::json& json, TypographyLineHeightSelection& selection) {
  selection = decodeValueOrBookDefault<TypographyLineHeightSelection>(
      json, "TypographyLineHeightSelection");
}

void to_json(nlohmann::json& json, const TypographyLetterSpacingSelection& selection) {
  switch (selection.kind()) {
    case TypographyLetterSpacingSelection::Kind::value:
      json = unlabelledValue(*selection.number());
      return;
    case TypographyLetterSpacingSelection::Kind::bookDefault:
      json = encodeSingleKeyCase("bookDefault");
      return;
    case TypographyLetterSpacingSelection::Kind::normal:
      json = encodeSingleKeyCase("normal");
      return;
  }
}

void from_json(const nlohmann::json& json, TypographyLetterSpacingSelection& selection) {
  constexpr std::string_view kTypeName = "TypographyLetterSpacingSelection";
  const SingleKeyCase singleCase = decodeSingleKeyCase(json, kTypeName);
  if (singleCase.name == "value") {
    selection = TypographyLetterSpacingSelection::value(
        decodePayloadField<double>(singleCase, kUnlabelledValueKey));
  } else if (singleCase.name == "bookDefault") {
    selection = TypographyLetterSpacingSelection::bookDefault();
  } else if (singleCase.name == "normal") {
    selection = TypographyLetterSpacingSelection::normal();
  } else {
    throwUnknownCase(singleCase.name, kTypeName);
  }
}

void to_json(nlohmann::json& json, const TypographyPreferences& preferences) {
  json = nlohmann::json::object();
  json["font"] = preferences.font;
  json["fontScale"] = preferences.fontScale;
  json["lineHeight"] = preferences.lineHeight;
  json["letterSpacing"] = preferences.letterSpacing;
  json["pageMargins"] = preferences.pageMargins;
}

void from_json(const nlohmann::json& json, TypographyPreferences& preferences) {
  requireJSONObject(json, "TypographyPreferences");
  preferences = TypographyPreferences{
      .font = decodeRequiredField<TypographyFontSelection>(json, "font"),
      .fontScale = decodeRequiredField<TypographyFontScaleSelection>(json, "fontScale"),
      .lineHeight = decodeRequiredField<TypographyLineHeightSelection>(json, "lineHeight"),
      .letterSpacing = decodeRequiredField<TypographyLetterSpacingSelection>(json, "letterSpacing"),
      .pageMargins = decodeRequiredField<TypographyPageMarginsSelection>(json, "pageMargins"),
  };
}

}  // namespace tomekeeper

using namespace tomekeeper;

std::size_t std::hash<TypographyFontSelection>::operator()(
    const TypographyFontSelection& selection) const noexcept {
  return hashFields(selection.kind(), selection.stableName());
}

std::size_t std::hash<TypographyFontScaleSelection>::operator()(
    const TypographyFontScaleSelection& selection) const noexcept {
  return hashFields(selection.kind(), selection.number());
}

std::size_t std::hash<TypographyLineHeightSelection>::operator()(
    const TypographyLineHeightSelection& selection) const noexcept {
  return hashFields(selection.kind(), selection.number());
}

std::size_t std::hash<TypographyLetterSpacingSelection>::operator()(
    const TypographyLetterSpacingSelection& selection) const noexcept {
  return hashFields(selection.kind(), selection.number());
}

std::size_t std::hash<TypographyPreferences>::operator()(
    const TypographyPreferences& preferences) const noexcept {
  return hashFields(preferences.font, preferences.fontScale, preferences.lineHeight,
                    preferences.letterSpacing, preferences.pageMargins);
}
