#include "model/Locator.h"

#include "model/Hashing.h"
#include "model/JSONCoding.h"

namespace tomekeeper {

void to_json(nlohmann::json& json, const TextContext& context) {
  json = nlohmann::json::object();
  json["exact"] = context.exact;
  encodeOptionalField(json, "prefix", context.prefix);
  encodeOptionalField(json, "suffix", context.suffix);
}

void from_json(const nlohmann::json& json, TextContext& context) {
  requireJSONObject(json, "TextContext");
  context = TextContext{
      .exact = decodeRequiredField<std::string>(json, "exact"),
      .prefix = decodeOptionalField<std::string>(json, "prefix"),
      .suffix = decodeOptionalField<std::string>(json, "suffix"),
  };
}

void to_json(nlohmann::json& json, const Locator& locator) {
  json = nlohmann::json::object();
  encodeOptionalField(json, "cfi", locator.cfi);
  json["spineHref"] = locator.spineHref;
  json["spineIndex"] = locator.spineIndex;
  encodeOptionalField(json, "sectionProgression", locator.sectionProgression);
  encodeOptionalField(json, "totalProgression", locator.totalProgression);
  encodeOptionalField(json, "excerpt", locator.excerpt);
}

void from_json(const nlohmann::json& json, Locator& locator) {
  requireJSONObject(json, "Locator");
  locator = Locator{
      .cfi = decodeOptionalField<std::string>(json, "cfi"),
      .spineHref = decodeRequiredField<std::string>(json, "spineHref"),
      .spineIndex = decodeRequiredField<std::int64_t>(json, "spineIndex"),
      .sectionProgression = decodeOptionalField<double>(json, "sectionProgression"),
      .totalProgression = decodeOptionalField<double>(json, "totalProgression"),
      .excerpt = decodeOptionalField<TextContext>(json, "excerpt"),
  };
}

void to_json(nlohmann::json& json, const TextSelection& selection) {
  json = nlohmann::json::object();
  json["locator"] = selection.locator;
  json["selectedText"] = selection.selectedText;
}

void from_json(const nlohmann::json& json, TextSelection& selection) {
  requireJSONObject(json, "TextSelection");
  selection = TextSelection{
      .locator = decodeRequiredField<Locator>(json, "locator"),
      .selectedText = decodeRequiredField<std::string>(json, "selectedText"),
  };
}

}  // namespace tomekeeper

using namespace tomekeeper;

std::size_t std::hash<TextContext>::operator()(const TextContext& context) const noexcept {
  return hashFields(context.exact, context.prefix, context.suffix);
}

std::size_t std::hash<Locator>::operator()(const Locator& locator) const noexcept {
  return hashFields(locator.cfi, locator.spineHref, locator.spineIndex, locator.sectionProgression,
                    locator.totalProgression, locator.excerpt);
}

std::size_t std::hash<TextSelection>::operator()(const TextSelection& selection) const noexcept {
  return hashFields(selection.locator, selection.selectedText);
}
