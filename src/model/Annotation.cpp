#include "model/Annotation.h"

#include "model/Hashing.h"
#include "model/JSONCoding.h"

namespace tomekeeper {

Annotation Annotation::withNote(std::optional<std::string> newNote, Date newModifiedAt) const {
  Annotation changed = *this;
  changed.note = std::move(newNote);
  changed.modifiedAt = newModifiedAt;
  return changed;
}

void to_json(nlohmann::json& json, const Annotation& annotation) {
  json = nlohmann::json::object();
  json["id"] = annotation.id;
  json["bookFingerprint"] = annotation.bookFingerprint;
  json["locator"] = annotation.locator;
  json["selectedText"] = annotation.selectedText;
  json["color"] = annotation.color;
  encodeOptionalField(json, "note", annotation.note);
  json["createdAt"] = annotation.createdAt;
  json["modifiedAt"] = annotation.modifiedAt;
}

void from_json(const nlohmann::json& json, Annotation& annotation) {
  requireJSONObject(json, "Annotation");
  annotation = Annotation{
      .id = decodeRequiredField<Uuid>(json, "id"),
      .bookFingerprint = decodeRequiredField<std::string>(json, "bookFingerprint"),
      .locator = decodeRequiredField<Locator>(json, "locator"),
      .selectedText = decodeRequiredField<std::string>(json, "selectedText"),
      .color = decodeRequiredField<AnnotationColor>(json, "color"),
      .note = decodeOptionalField<std::string>(json, "note"),
      .createdAt = decodeRequiredField<Date>(json, "createdAt"),
      .modifiedAt = decodeRequiredField<Date>(json, "modifiedAt"),
  };
}

}  // namespace tomekeeper

std::size_t std::hash<tomekeeper::Annotation>::operator()(
    const tomekeeper::Annotation& annotation) const noexcept {
  return tomekeeper::hashFields(annotation.id, annotation.bookFingerprint, annotation.locator,
                                annotation.selectedText, annotation.color, annotation.note,
                                annotation.createdAt, annotation.modifiedAt);
}
