#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include <nlohmann/json.hpp>

#include "model/TableOfContentsItem.h"

namespace tomekeeper {

// One row of the contents tree as the sidebar shows it. `id` is the path of child positions
// from the root, so a row keeps its identity when the tree is rebuilt from the same contents.
// `children` is absent, never empty, for a leaf, so that the view shows no disclosure control.
struct TableOfContentsOutlineNode {
  std::vector<std::int64_t> id;
  TableOfContentsItem item;
  std::optional<std::vector<TableOfContentsOutlineNode>> children;

  bool operator==(const TableOfContentsOutlineNode&) const = default;
};

// The outline of `items` below `path` (empty for the top): the node of the item at position i
// has the id `path` + [i], and the outline of the item's children below that id, or none.
// The order of the items is kept.
std::vector<TableOfContentsOutlineNode> outline(const std::vector<TableOfContentsItem>& items,
                                                const std::vector<std::int64_t>& path = {});

// JSON coding: {"id":[...],"item":{...},"children":[...]}, `children` left out for a leaf.
void to_json(nlohmann::json& json, const TableOfContentsOutlineNode& node);
void from_json(const nlohmann::json& json, TableOfContentsOutlineNode& node);

}  // namespace tomekeeper

template <>
struct std::hash<tomekeeper::TableOfContentsOutlineNode> {
  std::size_t operator()(const tomekeeper::TableOfContentsOutlineNode& node) const noexcept;
};
