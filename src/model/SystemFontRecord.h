#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include <nlohmann/json.hpp>

namespace tomekeeper {

// One font installed on the system.
struct SystemFontRecord {
  std::string stableName;     // The PostScript name: the identity a selection stores.
  std::string displayName;    // The full name, for the font panel.
  std::string cssFamilyName;  // The family name, for CSS.

  bool operator==(const SystemFontRecord&) const = default;
};

// JSON coding: a flat object of the three strings, all required.
void to_json(nlohmann::json& json, const SystemFontRecord& record);
void from_json(const nlohmann::json& json, SystemFontRecord& record);

}  // namespace tomekeeper

template <>
struct std::hash<tomekeeper::SystemFontRecord> {
  std::size_t operator()(const tomekeeper::SystemFontRecord& record) const noexcept;
};
