#include "model/ReadingThemeSelection.h"

#include "model/JSONCoding.h"

namespace tomekeeper {

void to_json(nlohmann::json& json, const ResolvedReadingTheme& theme) {
  json = nlohmann::json::object();
  json["mode"] = theme.mode;
}

void from_json(const nlohmann::json& json, ResolvedReadingTheme& theme) {
  requireJSONObject(json, "ResolvedReadingTheme");
  theme = ResolvedReadingTheme{.mode = decodeRequiredField<ReadingThemeSelection>(json, "mode")};
}

}  // namespace tomekeeper
