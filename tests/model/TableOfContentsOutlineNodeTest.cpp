#include "model/TableOfContentsOutlineNode.h"

#include <gtest/gtest.h>

#include "RoundTrip.h"

namespace tomekeeper {
namespace {

using Path = std::vector<std::int64_t>;

TableOfContentsItem leaf(std::string title) {
  return TableOfContentsItem{.title = title, .href = title + ".xhtml", .children = {}};
}

std::vector<TableOfContentsItem> sampleContents() {
  TableOfContentsItem second = leaf("two");
  second.children.push_back(leaf("two-one"));
  return {leaf("one"), second};
}

TEST(TableOfContentsOutlineNodeTest, IdsArePathsOfChildPositions) {
  const auto nodes = outline(sampleContents());
  ASSERT_EQ(nodes.size(), 2u);
  EXPECT_EQ(nodes[0].id, Path{0});
  EXPECT_EQ(nodes[1].id, Path{1});
  ASSERT_TRUE(nodes[1].children);
  ASSERT_EQ(nodes[1].children->size(), 1u);
  EXPECT_EQ((*nodes[1].children)[0].id, (Path{1, 0}));
  EXPECT_EQ((*nodes[1].children)[0].item.title, "two-one");
}

TEST(TableOfContentsOutlineNodeTest, LeavesHaveNoChildrenRatherThanAnEmptyList) {
  const auto nodes = outline(sampleContents());
  EXPECT_FALSE(nodes[0].children.has_value());
  EXPECT_FALSE((*nodes[1].children)[0].children.has_value());
  EXPECT_EQ(nodes[1].item, sampleContents()[1]);
}

TEST(TableOfContentsOutlineNodeTest, StartsBelowTheGivenPathAndKeepsOrder) {
  std::vector<TableOfContentsItem> items{leaf("c"), leaf("a"), leaf("b")};
  const auto nodes = outline(items, Path{4, 2});
  ASSERT_EQ(nodes.size(), 3u);
  EXPECT_EQ(nodes[2].id, (Path{4, 2, 2}));
  EXPECT_EQ(nodes[0].item.title, "c");
  EXPECT_EQ(nodes[1].item.title, "a");
  EXPECT_TRUE(outline({}).empty());
}

TEST(TableOfContentsOutlineNodeTest, RebuildingGivesEqualNodes) {
  EXPECT_EQ(outline(sampleContents()), outline(sampleContents()));
  EXPECT_EQ(std::hash<TableOfContentsOutlineNode>{}(outline(sampleContents())[1]),
            std::hash<TableOfContentsOutlineNode>{}(outline(sampleContents())[1]));
  auto renamed = sampleContents();
  renamed[1].children[0].href = "elsewhere.xhtml";
  EXPECT_NE(outline(renamed), outline(sampleContents()));
}

TEST(TableOfContentsOutlineNodeTest, NodesWriteChildrenOnlyWhenPresent) {
  const auto nodes = outline(sampleContents());
  EXPECT_EQ(encoded(nodes[0]),
            R"({"id":[0],"item":{"children":[],"href":"one.xhtml","title":"one"}})");
  EXPECT_EQ(roundTrip(nodes[1]), nodes[1]);
}

TEST(TableOfContentsOutlineNodeTest, ItemsRequireChildrenEvenForLeaves) {
  EXPECT_EQ(roundTrip(sampleContents()[1]), sampleContents()[1]);
  EXPECT_EQ(decoded<TableOfContentsItem>(R"({"title":"t","href":"t.xhtml","children":[]})"),
            leaf("t"));
  EXPECT_THROW(decoded<TableOfContentsItem>(R"({"title":"t","href":"h"})"), JSONDecodingError);
  EXPECT_THROW(decoded<TableOfContentsItem>(R"({"title":"t","href":"h","children":null})"),
               JSONDecodingError);
  EXPECT_THROW(decoded<TableOfContentsItem>(
                   R"({"title":"t","href":"h","children":[{"title":"c","href":"c"}]})"),
               JSONDecodingError);
}

}  // namespace
}  // namespace tomekeeper
