#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include <nlohmann/json.hpp>

#include "model/Date.h"
#include "model/Locator.h"
#include "model/Uuid.h"

namespace tomekeeper {

// A place the reader marked in a book.
struct Bookmark {
  Uuid id;
  std::string bookFingerprint;
  Locator locator;
  std::string title;  // Shown in the list; made by bookmarkTitle when the bookmark is created.
  Date createdAt;

  bool operator==(const Bookmark&) const = default;
};

// The title of a new bookmark at `locator`: the first 80 user-perceived characters of the
// excerpt trimmed of white space and line breaks; when that leaves nothing, "Bookmark at N%"
// from the progression in the book (clamped to 0...1, rounded half away from zero); and
// "Bookmark" when there is no finite progression either.
std::string bookmarkTitle(const Locator& locator);

// JSON coding by the conventions of Locator.h; `id` is the UUID's text, `createdAt` a number.
void to_json(nlohmann::json& json, const Bookmark& bookmark);
void from_json(const nlohmann::json& json, Bookmark& bookmark);

}  // namespace tomekeeper

template <>
struct std::hash<tomekeeper::Bookmark> {
  std::size_t operator()(const tomekeeper::Bookmark& bookmark) const noexcept;
};
