#include "model/SystemFontRecord.h"

#include "model/Hashing.h"
#include "model/JSONCoding.h"

namespace tomekeeper {

void to_json(nlohmann::json& json, const SystemFontRecord& record) {
  json = nlohmann::json::object();
  json["stableName"] = record.stableName;
  json["displayName"] = record.displayName;
  json["cssFamilyName"] = record.cssFamilyName;
}

void from_json(const nlohmann::json& json, SystemFontRecord& record) {
  requireJSONObject(json, "SystemFontRecord");
  record = SystemFontRecord{
      .stableName = decodeRequiredField<std::string>(json, "stableName"),
      .displayName = decodeRequiredField<std::string>(json, "displayName"),
      .cssFamilyName = decodeRequiredField<std::string>(json, "cssFamilyName"),
  };
}

}  // namespace tomekeeper

std::size_t std::hash<tomekeeper::SystemFontRecord>::operator()(
    const tomekeeper::SystemFontRecord& record) const noexcept {
  return tomekeeper::hashFields(record.stableName, record.displayName, record.cssFamilyName);
}
