#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace tomekeeper {

// One entry of a book's contents as the reader runtime reports it. `children` is required in
// JSON and empty for a leaf.
struct TableOfContentsItem {
  std::string title;
  std::string href;
  std::vector<TableOfContentsItem> children;

  bool operator==(const TableOfContentsItem&) const = default;
};

// JSON coding: {"title":...,"href":...,"children":[...]}, all three keys required; a missing
// key or a value of the wrong type anywhere in the tree throws JSONDecodingError.
void to_json(nlohmann::json& json, const TableOfContentsItem& item);
void from_json(const nlohmann::json& json, TableOfContentsItem& item);

}  // namespace tomekeeper

template <>
struct std::hash<tomekeeper::TableOfContentsItem> {
  std::size_t operator()(const tomekeeper::TableOfContentsItem& item) const noexcept;
};
