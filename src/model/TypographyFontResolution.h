#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "model/SystemFontRecord.h"

namespace tomekeeper {

// The outcome of resolving a font selection against the fonts on the system: the font is there
// (available), the named font is not on this machine (fallback, which is no failure: the
// selection is kept), or the selection left the font to the book (bookDefault).
class TypographyFontResolution {
 public:
  enum class Kind { available, fallback, bookDefault };

  TypographyFontResolution() = default;  // bookDefault
  static TypographyFontResolution available(SystemFontRecord record);
  static TypographyFontResolution fallback(std::string requestedStableName);
  static TypographyFontResolution bookDefault() { return {}; }

  Kind kind() const noexcept { return kind_; }
  // The font found, for available; absent otherwise.
  const std::optional<SystemFontRecord>& record() const noexcept { return record_; }
  // The stable name that was asked for, for fallback; absent otherwise.
  const std::optional<std::string>& requestedStableName() const noexcept {
    return requestedStableName_;
  }

  bool operator==(const TypographyFontResolution&) const = default;

 private:
  Kind kind_ = Kind::bookDefault;
  std::optional<SystemFontRecord> record_;
  std::optional<std::string> requestedStableName_;
};

// JSON coding as an object of one key: {"available":{"_0":{...record...}}},
// {"fallback":{"requestedStableName":"Georgia"}}, {"bookDefault":{}}.
void to_json(nlohmann::json& json, const TypographyFontResolution& resolution);
void from_json(const nlohmann::json& json, TypographyFontResolution& resolution);

}  // namespace tomekeeper

template <>
struct std::hash<tomekeeper::TypographyFontResolution> {
  std::size_t operator()(const tomekeeper::TypographyFontResolution& resolution) const noexcept;
};
