#include "model/PublicationDescriptor.h"

#include "model/Hashing.h"
#include "model/JSONCoding.h"

namespace tomekeeper {

void to_json(nlohmann::json& json, const PublicationDescriptor& descriptor) {
  json = nlohmann::json::object();
  json["publicationID"] = descriptor.publicationID;
  json["packageURL"] = descriptor.packageURL;
  json["resourceBaseURL"] = descriptor.resourceBaseURL;
  json["accessMode"] = descriptor.accessMode;
}

void from_json(const nlohmann::json& json, PublicationDescriptor& descriptor) {
  requireJSONObject(json, "PublicationDescriptor");
  descriptor = PublicationDescriptor{
      .publicationID = decodeRequiredField<Uuid>(json, "publicationID"),
      .packageURL = decodeRequiredField<std::string>(json, "packageURL"),
      .resourceBaseURL = decodeRequiredField<std::string>(json, "resourceBaseURL"),
      .accessMode = decodeRequiredField<PublicationDescriptor::AccessMode>(json, "accessMode"),
  };
}

}  // namespace tomekeeper

std::size_t std::hash<tomekeeper::PublicationDescriptor>::operator()(
    const tomekeeper::PublicationDescriptor& descriptor) const noexcept {
  return tomekeeper::hashFields(descriptor.publicationID, descriptor.packageURL,
                                descriptor.resourceBaseURL, descriptor.accessMode);
}
