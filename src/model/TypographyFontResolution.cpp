#include "model/TypographyFontResolution.h"

#include "model/Hashing.h"
#include "model/JSONCoding.h"

namespace tomekeeper {

TypographyFontResolution TypographyFontResolution::available(SystemFontRecord record) {
  TypographyFontResolution resolution;
  resolution.kind_ = Kind::available;
  resolution.record_ = std::move(record);
  return resolution;
}

TypographyFontResolution TypographyFontResolution::fallback(std::string requestedStableName) {
  TypographyFontResolution resolution;
  resolution.kind_ = Kind::fallback;
  resolution.requestedStableName_ = std::move(requestedStableName);
  return resolution;
}

void to_json(nlohmann::json& json, const TypographyFontResolution& resolution) {
  nlohmann::json payload = nlohmann::json::object();
  switch (resolution.kind()) {
    case TypographyFontResolution::Kind::available:
      payload["_0"] = *resolution.record();
      json = encodeSingleKeyCase("available", std::move(payload));
      return;
    case TypographyFontResolution::Kind::fallback:
      payload["requestedStableName"] = *resolution.requestedStableName();
      json = encodeSingleKeyCase("fallback", std::move(payload));
      return;
    case TypographyFontResolution::Kind::bookDefault:
      json = encodeSingleKeyCase("bookDefault");
      return;
  }
}

void from_json(const nlohmann::json& json, TypographyFontResolution& resolution) {
  constexpr std::string_view kTypeName = "TypographyFontResolution";
  const SingleKeyCase singleCase = decodeSingleKeyCase(json, kTypeName);
  if (singleCase.name == "available") {
    resolution =
        TypographyFontResolution::available(decodePayloadField<SystemFontRecord>(singleCase, "_0"));
  } else if (singleCase.name == "fallback") {
    resolution = TypographyFontResolution::fallback(
        decodePayloadField<std::string>(singleCase, "requestedStableName"));
  } else if (singleCase.name == "bookDefault") {
    resolution = TypographyFontResolution::bookDefault();
  } else {
    throwUnknownCase(singleCase.name, kTypeName);
  }
}

}  // namespace tomekeeper

std::size_t std::hash<tomekeeper::TypographyFontResolution>::operator()(
    const tomekeeper::TypographyFontResolution& resolution) const noexcept {
  return tomekeeper::hashFields(resolution.kind(), resolution.record(),
                                resolution.requestedStableName());
}
