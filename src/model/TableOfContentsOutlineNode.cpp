#include "model/TableOfContentsOutlineNode.h"

#include "model/Hashing.h"
#include "model/JSONCoding.h"

namespace tomekeeper {

std::vector<TableOfContentsOutlineNode> outline(const std::vector<TableOfContentsItem>& items,
                                                const std::vector<std::int64_t>& path) {
  std::vector<TableOfContentsOutlineNode> nodes;
  nodes.reserve(items.size());
  for (std::size_t index = 0; index < items.size(); ++index) {
    TableOfContentsOutlineNode node{.id = path, .item = items[index], .children = std::nullopt};
    node.id.push_back(static_cast<std::int64_t>(index));
    std::vector<TableOfContentsOutlineNode> children = outline(items[index].children, node.id);
    if (!children.empty()) node.children = std::move(children);
    nodes.push_back(std::move(node));
  }
  return nodes;
}

void to_json(nlohmann::json& json, const TableOfContentsOutlineNode& node) {
  json = nlohmann::json::object();
  json["id"] = node.id;
  json["item"] = node.item;
  if (node.children) {
    json["children"] = nlohmann::json::array();
    for (const TableOfContentsOutlineNode& child : *node.children) {
      json["children"].push_back(child);
    }
  }
}

void from_json(const nlohmann::json& json, TableOfContentsOutlineNode& node) {
  requireJSONObject(json, "TableOfContentsOutlineNode");
  node = TableOfContentsOutlineNode{
      .id = decodeRequiredField<std::vector<std::int64_t>>(json, "id"),
      .item = decodeRequiredField<TableOfContentsItem>(json, "item"),
      .children = decodeOptionalField<std::vector<TableOfContentsOutlineNode>>(json, "children"),
  };
}

}  // namespace tomekeeper

std::size_t std::hash<tomekeeper::TableOfContentsOutlineNode>::operator()(
    const tomekeeper::TableOfContentsOutlineNode& node) const noexcept {
  return tomekeeper::hashFields(node.id, node.item, node.children);
}
