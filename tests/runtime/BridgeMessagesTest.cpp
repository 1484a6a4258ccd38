#include "runtime/BridgeMessages.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <set>
#include <string>

#include "runtime/ReaderBridge.h"
#include "runtime/ReaderBridgeCatalogue.h"

namespace tomekeeper {
namespace {

using json = nlohmann::json;
using Case = ReaderBridgeFailure::Case;

const std::string kFirst = "E621E1F8-C36C-495A-93FC-0C247A3E6E5F";
const std::string kSecond = "0B4B0D6C-6C6B-4D5A-8F5B-6A4C1F0E2D3C";
const json kLocator = {{"spineHref", "c1.xhtml"}, {"spineIndex", 0}};

template <typename Result>
std::optional<Case> decodingFailure(const json& value) {
  try {
    detail::decodeBridgeResult<Result>(value);
  } catch (const ReaderBridgeFailure& failure) {
    return failure.failureCase();
  }
  return std::nullopt;
}

TEST(BridgeEventPayloadTest, ARectWithNegativeWidthIsLeftOut) {
  const auto event = parseSelectionAvailabilityChanged(
      {{"available", true}, {"rect", {{"x", 1}, {"y", 2}, {"width", -1}, {"height", 4}}}});
  ASSERT_TRUE(event);
  EXPECT_TRUE(event->available);
  EXPECT_EQ(event->rect, std::nullopt);
}

TEST(BridgeEventPayloadTest, ARectThatBreaksARuleNeverCostsTheEvent) {
  const json rects[] = {
      "rect",
      json::array({1, 2, 3, 4}),
      {{"x", "1"}, {"y", 2}, {"width", 3}, {"height", 4}},
      {{"y", 2}, {"width", 3}, {"height", 4}},
      {{"x", std::numeric_limits<double>::infinity()}, {"y", 2}, {"width", 3}, {"height", 4}},
      {{"x", 1}, {"y", 2}, {"width", 3}, {"height", std::nan("")}},
      {{"x", 1}, {"y", 2}, {"width", 3}, {"height", -0.5}},
  };
  for (const json& rect : rects) {
    const auto event = parseSelectionAvailabilityChanged({{"available", false}, {"rect", rect}});
    ASSERT_TRUE(event) << rect.dump();
    EXPECT_FALSE(event->available);
    EXPECT_EQ(event->rect, std::nullopt) << rect.dump();
  }
  const auto zero = parseSelectionAvailabilityChanged(
      {{"available", true}, {"rect", {{"x", -5}, {"y", -1.5}, {"width", 0}, {"height", 0}}}});
  EXPECT_EQ(zero->rect, (ReaderSelectionRect{-5, -1.5, 0, 0}));
}

TEST(BridgeEventPayloadTest, ASelectionEventWithoutAvailableIsDropped) {
  EXPECT_FALSE(parseSelectionAvailabilityChanged(
      {{"rect", {{"x", 1}, {"y", 2}, {"width", 3}, {"height", 4}}}}));
  EXPECT_FALSE(parseSelectionAvailabilityChanged({{"available", "true"}}));
  EXPECT_FALSE(parseSelectionAvailabilityChanged({{"available", 1}}));
}

TEST(BridgeEventPayloadTest, AContextMenuRequestNeedsAnIdentifierAndFinitePoint) {
  const auto request = parseAnnotationContextMenuRequested({{"id", kFirst}, {"x", 3}, {"y", 4.5}});
  ASSERT_TRUE(request);
  EXPECT_EQ(request->annotationID, *Uuid::fromString(kFirst));
  EXPECT_EQ(request->x, 3);
  EXPECT_EQ(request->y, 4.5);
  EXPECT_FALSE(parseAnnotationContextMenuRequested({{"id", kFirst}, {"x", "3"}, {"y", 4}}));
  EXPECT_FALSE(parseAnnotationContextMenuRequested(
      {{"id", kFirst}, {"x", std::numeric_limits<double>::infinity()}, {"y", 4}}));
  EXPECT_FALSE(parseAnnotationContextMenuRequested({{"id", kFirst}, {"y", 4}}));
  EXPECT_FALSE(parseAnnotationContextMenuRequested({{"id", "nope"}, {"x", 3}, {"y", 4}}));
  EXPECT_FALSE(parseAnnotationContextMenuRequested({{"annotationID", kFirst}, {"x", 3}, {"y", 4}}));
}

TEST(BridgeEventPayloadTest, OneMalformedBookmarkIdentifierDropsTheWholeList) {
  EXPECT_FALSE(parseBookmarkVisibilityChanged({{"visibleBookmarkIDs", {kFirst, "nope"}}}));
  EXPECT_FALSE(parseBookmarkVisibilityChanged({{"visibleBookmarkIDs", {kFirst, 5}}}));
  EXPECT_FALSE(parseBookmarkVisibilityChanged({{"visibleBookmarkIDs", kFirst}}));
  EXPECT_FALSE(parseBookmarkVisibilityChanged(json::object()));
  const auto visible = parseBookmarkVisibilityChanged({{"visibleBookmarkIDs", {kFirst, kFirst}}});
  ASSERT_TRUE(visible);
  EXPECT_EQ(visible->size(), 1u);
  EXPECT_EQ(parseBookmarkVisibilityChanged({{"visibleBookmarkIDs", json::array()}}),
            std::set<Uuid>{});
}

TEST(BridgeEventPayloadTest, ResolutionNeedsBothLists) {
  EXPECT_FALSE(parseAnnotationResolutionChanged({{"resolvedIDs", {kFirst}}}));
  EXPECT_FALSE(parseAnnotationResolutionChanged({{"unresolvedIDs", {kFirst}}}));
  EXPECT_FALSE(
      parseAnnotationResolutionChanged({{"resolvedIDs", {kFirst}}, {"unresolvedIDs", {"x"}}}));
  const auto event =
      parseAnnotationResolutionChanged({{"resolvedIDs", {kFirst}}, {"unresolvedIDs", {kSecond}}});
  ASSERT_TRUE(event);
  EXPECT_EQ(event->resolvedIDs, std::set<Uuid>{*Uuid::fromString(kFirst)});
  EXPECT_EQ(event->unresolvedIDs, std::set<Uuid>{*Uuid::fromString(kSecond)});
}

TEST(BridgeEventPayloadTest, ASearchBatchWithOneBrokenEntryIsDroppedWhole) {
  const json good = {{"id", "r1"}, {"locator", kLocator}, {"excerpt", "text"}};
  const json noExcerpt = {{"id", "r2"}, {"locator", kLocator}};
  EXPECT_FALSE(parseSearchResults(
      {{"searchID", kFirst}, {"isComplete", false}, {"results", {good, noExcerpt}}}));
  EXPECT_FALSE(parseSearchResults({{"searchID", kFirst}, {"results", {good}}}));
  EXPECT_FALSE(parseSearchResults({{"searchID", "x"}, {"isComplete", true}, {"results", {good}}}));
  EXPECT_FALSE(parseSearchResults({{"searchID", kFirst}, {"isComplete", true}, {"results", good}}));
  EXPECT_FALSE(parseSearchResults({{"searchID", kFirst}, {"isComplete", true}}));
  const auto batch =
      parseSearchResults({{"searchID", kFirst}, {"isComplete", true}, {"results", json::array()}});
  ASSERT_TRUE(batch);
  EXPECT_TRUE(batch->results.empty());
  EXPECT_TRUE(batch->isComplete);
}

TEST(BridgeEventPayloadTest, ALocatorMustDecode) {
  EXPECT_TRUE(parseLocatorChanged({{"locator", kLocator}}));
  EXPECT_FALSE(parseLocatorChanged({{"locator", {{"spineIndex", 0}}}}));
  EXPECT_FALSE(parseLocatorChanged({{"locator", "c1.xhtml"}}));
  EXPECT_FALSE(parseLocatorChanged(json::object()));
}

TEST(BridgeResultDecodingTest, AContentsEntryWithoutChildrenIsMalformed) {
  const json leaf = {{"title", "One"}, {"href", "c1.xhtml"}, {"children", json::array()}};
  EXPECT_EQ(decodingFailure<TableOfContentsResult>({{"items", {leaf}}}), std::nullopt);
  json childless = leaf;
  childless.erase("children");
  EXPECT_EQ(decodingFailure<TableOfContentsResult>(
                {{"items", {{{"title", "Top"}, {"href", "t"}, {"children", {childless}}}}}}),
            Case::malformedResponse);
}

TEST(BridgeResultDecodingTest, APositionNeedsItsPageCountButNotItsResolution) {
  const json position = {
      {"spineIndex", 1}, {"page", 1}, {"pageCount", 4}, {"atStart", true}, {"atEnd", false}};
  const auto decoded = detail::decodeBridgeResult<ReaderPositionResult>(position);
  EXPECT_EQ(decoded.locatorResolution, std::nullopt);
  json withResolution = position;
  withResolution["locatorResolution"] = "cfi";
  EXPECT_EQ(detail::decodeBridgeResult<ReaderPositionResult>(withResolution).locatorResolution,
            "cfi");
  json withoutPageCount = position;
  withoutPageCount.erase("pageCount");
  EXPECT_EQ(decodingFailure<ReaderPositionResult>(withoutPageCount), Case::malformedResponse);
  json fractionalPage = position;
  fractionalPage["page"] = 1.5;
  EXPECT_EQ(decodingFailure<ReaderPositionResult>(fractionalPage), Case::malformedResponse);
}

TEST(BridgeResultDecodingTest, OpenNeedsAuthorsButNotTitleOrCover) {
  const json minimal = {
      {"authors", json::array()}, {"spineItemCount", 3}, {"initialResourceURL", "u"}};
  const auto decoded = detail::decodeBridgeResult<OpenPublicationResult>(minimal);
  EXPECT_EQ(decoded.title, std::nullopt);
  EXPECT_EQ(decoded.coverResourceURL, std::nullopt);
  json nullTitle = minimal;
  nullTitle["title"] = nullptr;
  EXPECT_EQ(decodingFailure<OpenPublicationResult>(nullTitle), std::nullopt);
  json noAuthors = minimal;
  noAuthors.erase("authors");
  EXPECT_EQ(decodingFailure<OpenPublicationResult>(noAuthors), Case::malformedResponse);
}

TEST(BridgeResultDecodingTest, EnumerationsAndIdentifiersDecodeStrictly) {
  EXPECT_EQ(decodingFailure<ConfigureReadingModeResult>({{"requestedMode", "scrolled"},
                                                         {"effectiveMode", "sideways"},
                                                         {"computedContainerOverflow", "auto"},
                                                         {"configurationRevision", 1}}),
            Case::malformedResponse);
  EXPECT_EQ(decodingFailure<BookmarkVisibilityResult>({{"visibleBookmarkIDs", {"x"}}}),
            Case::malformedResponse);
  EXPECT_EQ(detail::decodeBridgeResult<StartSearchResult>({{"searchID", kFirst}}).searchID,
            *Uuid::fromString(kFirst));
  EXPECT_EQ(decodingFailure<CurrentSelectionResult>(json::object()), std::nullopt);
  EXPECT_EQ(decodingFailure<AnnotationRenderResult>({{"rendered", "yes"}, {"resolution", "r"}}),
            Case::malformedResponse);
}

TEST(BridgeRequestEncodingTest, LeavesAbsentOptionalsOut) {
  const Locator locator{.cfi = std::nullopt, .spineHref = "c.xhtml", .spineIndex = 2};
  const json encoded = GoToLocatorRequest{locator};
  EXPECT_EQ(encoded, json({{"locator", {{"spineHref", "c.xhtml"}, {"spineIndex", 2}}}}));
  EXPECT_EQ(json(EmptyBridgePayload{}), json::object());
}

// ---- The two tables of the bridge, C++ and TypeScript, agree ----

json runtimeCatalogue() {
  std::ifstream file(TOMEKEEPER_RUNTIME_CATALOGUE);
  EXPECT_TRUE(file.good()) << TOMEKEEPER_RUNTIME_CATALOGUE;
  return json::parse(file);
}

TEST(ReaderBridgeCatalogueTest, MethodsAgreeWithTheRuntimesTable) {
  const json catalogue = runtimeCatalogue();
  EXPECT_EQ(catalogue["protocolVersion"], kReaderBridgeProtocolVersion);
  EXPECT_EQ(catalogue["responseEventName"], kReaderBridgeResponseEventName);
  EXPECT_EQ(catalogue["eventEventName"], kReaderBridgeEventEventName);
  ASSERT_EQ(catalogue["methods"].size(), kReaderBridgeMethods.size());
  for (std::size_t index = 0; index < kReaderBridgeMethods.size(); ++index) {
    const auto& native = kReaderBridgeMethods[index];
    const json& page = catalogue["methods"][index];
    EXPECT_EQ(page["name"], native.name);
    EXPECT_EQ(page["result"], native.resultRecord) << native.name;
    std::vector<std::string> requests;
    for (std::string_view record : native.requestRecords) {
      if (!record.empty()) requests.emplace_back(record);
    }
    EXPECT_EQ(page["request"].get<std::vector<std::string>>(), requests) << native.name;
  }
}

TEST(ReaderBridgeCatalogueTest, EventsAgreeWithTheRuntimesTable) {
  const json catalogue = runtimeCatalogue();
  ASSERT_EQ(catalogue["events"].size(), kReaderBridgeEvents.size());
  for (std::size_t index = 0; index < kReaderBridgeEvents.size(); ++index) {
    const auto& native = kReaderBridgeEvents[index];
    const json& page = catalogue["events"][index];
    EXPECT_EQ(page["name"], native.name);
    std::vector<std::string> keys;
    for (std::string_view key : native.payloadKeys) {
      if (!key.empty()) keys.emplace_back(key);
    }
    EXPECT_EQ(page["payloadKeys"].get<std::vector<std::string>>(), keys) << native.name;
    EXPECT_EQ(eventNamed(native.name), native.event);
  }
}

}  // namespace
}  // namespace tomekeeper
