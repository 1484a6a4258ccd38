#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "model/Date.h"
#include "model/Locator.h"
#include "model/StringEnumeration.h"
#include "model/Uuid.h"

namespace tomekeeper {

// The colour of a highlight. Any other string fails to decode, and with it the whole store
// that holds the annotation.
enum class AnnotationColor { yellow };

TOMEKEEPER_STRING_ENUMERATION(AnnotationColor, "AnnotationColor", "yellow")

// A highlight with an optional note. Only the note changes over an annotation's life, and a
// change makes a new value (see withNote) with a new `modifiedAt`.
struct Annotation {
  Uuid id;
  std::string bookFingerprint;
  Locator locator;
  std::string selectedText;
  AnnotationColor color = AnnotationColor::yellow;
  std::optional<std::string> note;
  Date createdAt;
  Date modifiedAt;

  // This annotation with `note` in place of its note, changed at `modifiedAt`.
  Annotation withNote(std::optional<std::string> newNote, Date newModifiedAt) const;

  bool operator==(const Annotation&) const = default;
};

// JSON coding by the conventions of Locator.h.
void to_json(nlohmann::json& json, const Annotation& annotation);
void from_json(const nlohmann::json& json, Annotation& annotation);

}  // namespace tomekeeper

template <>
struct std::hash<tomekeeper::Annotation> {
  std::size_t operator()(const tomekeeper::Annotation& annotation) const noexcept;
};
