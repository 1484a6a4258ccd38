#include "model/TableOfContentsItem.h"

#include "model/Hashing.h"
#include "model/JSONCoding.h"

namespace tomekeeper {

void to_json(nlohmann::json& json, const TableOfContentsItem& item) {
  json = nlohmann::json::object();
  json["title"] = item.title;
  json["href"] = item.href;
  json["children"] = nlohmann::json::array();
  for (const TableOfContentsItem& child : item.children) json["children"].push_back(child);
}

void from_json(const nlohmann::json& json, TableOfContentsItem& item) {
  requireJSONObject(json, "TableOfContentsItem");
  item = TableOfContentsItem{
      .title = decodeRequiredField<std::string>(json, "title"),
      .href = decodeRequiredField<std::string>(json, "href"),
      .children = decodeRequiredField<std::vector<TableOfContentsItem>>(json, "children"),
  };
}

}  // namespace tomekeeper

std::size_t std::hash<tomekeeper::TableOfContentsItem>::operator()(
    const tomekeeper::TableOfContentsItem& item) const noexcept {
  return tomekeeper::hashFields(item.title, item.href, item.children);
}
