#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "model/Annotation.h"
#include "model/Locator.h"
#include "model/PageLayout.h"
#include "model/PublicationDescriptor.h"
#include "model/ReadingMode.h"
#include "model/ReadingThemeSelection.h"
#include "model/ResolvedTypography.h"
#include "model/ScrolledContentWidth.h"
#include "model/TableOfContentsItem.h"
#include "model/Uuid.h"

// The records that travel over the reader bridge. Keys are the field names. Requests are
// encoded with absent optionals left out; results and event records are decoded strictly by
// the conventions of model/JSONCoding.h (a required key missing or of the wrong type throws
// JSONDecodingError; null and missing both mean absent; unknown keys are ignored).

namespace tomekeeper {

// A request or result without fields: encodes as {} and decodes from any object.
struct EmptyBridgePayload {
  bool operator==(const EmptyBridgePayload&) const = default;
};

// ---- Requests --------------------------------------------------------------------------------

struct OpenPublicationRequest {
  PublicationDescriptor publication;
  bool operator==(const OpenPublicationRequest&) const = default;
};

struct GoToRequest {
  std::string href;
  bool operator==(const GoToRequest&) const = default;
};

struct GoToLocatorRequest {
  Locator locator;
  bool operator==(const GoToLocatorRequest&) const = default;
};

struct ConfigureTypographyRequest {
  ResolvedTypographyFont font;
  ResolvedTypographyFontScale fontScale;
  ResolvedTypographyLineHeight lineHeight;
  ResolvedTypographyLetterSpacing letterSpacing;
  ResolvedTypographyPageMargins pageMargins;
  bool operator==(const ConfigureTypographyRequest&) const = default;
};

struct ConfigureThemeRequest {
  ResolvedReadingTheme theme;
  bool operator==(const ConfigureThemeRequest&) const = default;
};

struct ConfigureReadingModeRequest {
  ReadingMode mode = ReadingMode::paginated;
  bool operator==(const ConfigureReadingModeRequest&) const = default;
};

struct ConfigurePageLayoutRequest {
  PageLayout layout = PageLayout::adaptive;
  bool operator==(const ConfigurePageLayoutRequest&) const = default;
};

struct ConfigureScrolledContentWidthRequest {
  ScrolledContentWidth preset = ScrolledContentWidth::comfortable;
  std::int64_t maxInlineSize = 0;
  bool operator==(const ConfigureScrolledContentWidthRequest&) const = default;
};

struct BookmarkVisibilityCandidate {
  Uuid id;
  Locator locator;
  bool operator==(const BookmarkVisibilityCandidate&) const = default;
};

struct ConfigureBookmarkVisibilityRequest {
  std::vector<BookmarkVisibilityCandidate> bookmarks;
  bool operator==(const ConfigureBookmarkVisibilityRequest&) const = default;
};

// A highlight as the runtime draws it.
struct RuntimeAnnotation {
  Uuid id;
  Locator locator;
  std::string selectedText;
  AnnotationColor color = AnnotationColor::yellow;
  bool operator==(const RuntimeAnnotation&) const = default;
};

struct AnnotationRequest {
  RuntimeAnnotation annotation;
  bool operator==(const AnnotationRequest&) const = default;
};

struct RemoveAnnotationRequest {
  Uuid id;
  bool operator==(const RemoveAnnotationRequest&) const = default;
};

struct AnnotationPulseRequest {
  Uuid id;
  bool operator==(const AnnotationPulseRequest&) const = default;
};

struct StartSearchRequest {
  Uuid searchID;
  std::string query;
  bool operator==(const StartSearchRequest&) const = default;
};

struct CancelSearchRequest {
  Uuid searchID;
  bool operator==(const CancelSearchRequest&) const = default;
};

// ---- Results ---------------------------------------------------------------------------------

// The way a click on the page asks the reader to turn, in reading order.
enum class PageTurnDirection { previous, next };

struct OpenPublicationResult {
  std::optional<std::string> title;
  std::vector<std::string> authors;
  std::optional<std::string> coverResourceURL;
  std::int64_t spineItemCount = 0;
  std::string initialResourceURL;
  // The direction in which pages advance: the spine's, or else that of the first section's
  // content. Absent from runtimes that do not tell it, which is left to right.
  std::optional<std::string> pageProgressionDirection;
  // "ltr" or "rtl" where the book declares the base direction of its title or of its first
  // creator (their own `dir`, else the package's); absent where it declares none.
  std::optional<std::string> titleDirection;
  std::optional<std::string> authorsDirection;
  bool operator==(const OpenPublicationResult&) const = default;
};

struct TableOfContentsResult {
  std::vector<TableOfContentsItem> items;
  bool operator==(const TableOfContentsResult&) const = default;
};

struct ReaderPositionResult {
  std::int64_t spineIndex = 0;
  std::int64_t page = 0;
  std::int64_t pageCount = 0;
  bool atStart = false;
  bool atEnd = false;
  std::optional<std::string> locatorResolution;
  bool operator==(const ReaderPositionResult&) const = default;
};

struct CurrentSelectionResult {
  std::optional<TextSelection> selection;
  bool operator==(const CurrentSelectionResult&) const = default;
};

struct ConfigureTypographyResult {
  bool applied = false;
  std::int64_t configurationRevision = 0;
  std::optional<double> computedRootFontSize;
  std::optional<std::string> computedBodyFontFamily;
  std::optional<double> computedBodyFontSize;
  std::optional<double> computedParagraphLineHeight;
  std::optional<std::string> computedParagraphLetterSpacing;
  std::optional<std::string> computedCodeLetterSpacing;
  std::optional<double> computedRootPaddingInlineStart;
  std::optional<double> computedSemanticIndent;
  bool operator==(const ConfigureTypographyResult&) const = default;
};

struct ConfigureThemeResult {
  std::int64_t configurationRevision = 0;
  std::optional<std::string> computedBodyColor;
  std::optional<std::string> computedBodyBackgroundColor;
  bool operator==(const ConfigureThemeResult&) const = default;
};

struct ConfigureReadingModeResult {
  ReadingMode requestedMode = ReadingMode::paginated;
  ReadingMode effectiveMode = ReadingMode::paginated;
  std::string computedContainerOverflow;
  std::int64_t configurationRevision = 0;
  bool operator==(const ConfigureReadingModeResult&) const = default;
};

struct ConfigurePageLayoutResult {
  PageLayout requestedLayout = PageLayout::adaptive;
  std::int64_t effectiveColumnCount = 0;
  std::string computedContainerOverflow;
  std::int64_t configurationRevision = 0;
  bool operator==(const ConfigurePageLayoutResult&) const = default;
};

struct ConfigureScrolledContentWidthResult {
  ScrolledContentWidth preset = ScrolledContentWidth::comfortable;
  std::optional<double> computedBodyMaxInlineSize;
  std::int64_t configurationRevision = 0;
  bool operator==(const ConfigureScrolledContentWidthResult&) const = default;
};

struct BookmarkVisibilityResult {
  std::vector<Uuid> visibleBookmarkIDs;
  bool operator==(const BookmarkVisibilityResult&) const = default;
};

struct AnnotationRenderResult {
  bool rendered = false;
  std::string resolution;
  bool operator==(const AnnotationRenderResult&) const = default;
};

struct StartSearchResult {
  Uuid searchID;
  bool operator==(const StartSearchResult&) const = default;
};

// ---- Event records ---------------------------------------------------------------------------

// Where the selection stands in the web view, in its coordinates; width and height are >= 0.
struct ReaderSelectionRect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;
  bool operator==(const ReaderSelectionRect&) const = default;
};

// A highlight was context-clicked at (x, y). On the wire the id travels under "id".
struct ReaderAnnotationContextMenuRequest {
  Uuid annotationID;
  double x = 0;
  double y = 0;
  bool operator==(const ReaderAnnotationContextMenuRequest&) const = default;
};

struct PublicationSearchResult {
  std::string id;
  Locator locator;
  std::string excerpt;
  bool operator==(const PublicationSearchResult&) const = default;
};

// ---- JSON coding -----------------------------------------------------------------------------

void to_json(nlohmann::json& json, const EmptyBridgePayload& payload);
void from_json(const nlohmann::json& json, EmptyBridgePayload& payload);
void to_json(nlohmann::json& json, const OpenPublicationRequest& request);
void to_json(nlohmann::json& json, const GoToRequest& request);
void to_json(nlohmann::json& json, const GoToLocatorRequest& request);
void to_json(nlohmann::json& json, const ConfigureTypographyRequest& request);
void to_json(nlohmann::json& json, const ConfigureThemeRequest& request);
void to_json(nlohmann::json& json, const ConfigureReadingModeRequest& request);
void to_json(nlohmann::json& json, const ConfigurePageLayoutRequest& request);
void to_json(nlohmann::json& json, const ConfigureScrolledContentWidthRequest& request);
void to_json(nlohmann::json& json, const BookmarkVisibilityCandidate& candidate);
void to_json(nlohmann::json& json, const ConfigureBookmarkVisibilityRequest& request);
void to_json(nlohmann::json& json, const RuntimeAnnotation& annotation);
void to_json(nlohmann::json& json, const AnnotationRequest& request);
void to_json(nlohmann::json& json, const RemoveAnnotationRequest& request);
void to_json(nlohmann::json& json, const AnnotationPulseRequest& request);
void to_json(nlohmann::json& json, const StartSearchRequest& request);
void to_json(nlohmann::json& json, const CancelSearchRequest& request);

void from_json(const nlohmann::json& json, OpenPublicationResult& result);
void from_json(const nlohmann::json& json, TableOfContentsResult& result);
void from_json(const nlohmann::json& json, ReaderPositionResult& result);
void from_json(const nlohmann::json& json, CurrentSelectionResult& result);
void from_json(const nlohmann::json& json, ConfigureTypographyResult& result);
void from_json(const nlohmann::json& json, ConfigureThemeResult& result);
void from_json(const nlohmann::json& json, ConfigureReadingModeResult& result);
void from_json(const nlohmann::json& json, ConfigurePageLayoutResult& result);
void from_json(const nlohmann::json& json, ConfigureScrolledContentWidthResult& result);
void from_json(const nlohmann::json& json, BookmarkVisibilityResult& result);
void from_json(const nlohmann::json& json, AnnotationRenderResult& result);
void from_json(const nlohmann::json& json, StartSearchResult& result);
void from_json(const nlohmann::json& json, PublicationSearchResult& result);

// ---- Event payloads --------------------------------------------------------------------------

// Each event's payload, parsed by its rules. A parser returns absent when a required rule is
// broken, and then no callback may run. Pure; never throws.
struct SelectionAvailabilityChangedEvent {
  bool available = false;
  std::optional<ReaderSelectionRect> rect;  // absent unless an object of four finite numbers
                                            // with non-negative width and height
  bool operator==(const SelectionAvailabilityChangedEvent&) const = default;
};
struct AnnotationResolutionChangedEvent {
  std::set<Uuid> resolvedIDs;
  std::set<Uuid> unresolvedIDs;
  bool operator==(const AnnotationResolutionChangedEvent&) const = default;
};
struct SearchResultsEvent {
  Uuid searchID;
  std::vector<PublicationSearchResult> results;
  bool isComplete = false;
  bool operator==(const SearchResultsEvent&) const = default;
};

std::optional<SelectionAvailabilityChangedEvent> parseSelectionAvailabilityChanged(
    const nlohmann::json& payload);
std::optional<ReaderAnnotationContextMenuRequest> parseAnnotationContextMenuRequested(
    const nlohmann::json& payload);
std::optional<Locator> parseLocatorChanged(const nlohmann::json& payload);
std::optional<std::set<Uuid>> parseBookmarkVisibilityChanged(const nlohmann::json& payload);
std::optional<AnnotationResolutionChangedEvent> parseAnnotationResolutionChanged(
    const nlohmann::json& payload);
std::optional<SearchResultsEvent> parseSearchResults(const nlohmann::json& payload);
// A link of the book was activated: the absolute URL of a spine item, with its fragment.
std::optional<std::string> parseLinkActivated(const nlohmann::json& payload);
// A click on a side of the page asks for the next or the previous page.
std::optional<PageTurnDirection> parsePageTurnRequested(const nlohmann::json& payload);

// The JSON validity test that a result or a decoded event value must pass before decoding: a
// top-level object or array (a bare number, string, boolean or null fails).
bool isValidJSONDocument(const nlohmann::json& value);

}  // namespace tomekeeper
