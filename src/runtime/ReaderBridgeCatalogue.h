#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace tomekeeper {

// The bridge's version, sent in every request and required in every reply and event.
inline constexpr std::int64_t kReaderBridgeProtocolVersion = 1;

// Every request has this long to be answered; there is no other value.
inline constexpr std::chrono::seconds kReaderBridgeRequestTimeout{10};

// The channels of the messages by which the page sends replies and events up.
inline constexpr std::string_view kReaderBridgeResponseEventName = "tomekeeper-bridge-response";
inline constexpr std::string_view kReaderBridgeEventEventName = "tomekeeper-bridge-event";

// The methods that the native side calls in the reader runtime. The runtime's page keeps the
// same table in runtime/src/bridge/catalogue.json; a test holds the two in step.
enum class ReaderBridgeMethod {
  open,
  tableOfContents,
  next,
  previous,
  nextSection,
  previousSection,
  goTo,
  currentLocator,
  currentSelection,
  configureTypography,
  configureTheme,
  configureReadingMode,
  configurePageLayout,
  configureScrolledContentWidth,
  configureBookmarkVisibility,
  addAnnotation,
  removeAnnotation,
  pulseAnnotation,
  startSearch,
  cancelSearch,
};

struct ReaderBridgeMethodDescription {
  ReaderBridgeMethod method;
  std::string_view name;
  // The request records the method accepts: one, or two for goTo.
  std::array<std::string_view, 2> requestRecords;
  std::string_view resultRecord;
};

// The events that the reader runtime sends up.
enum class ReaderBridgeEvent {
  selectionAvailabilityChanged,
  annotationContextMenuRequested,
  locatorChanged,
  bookmarkVisibilityChanged,
  annotationResolutionChanged,
  searchResults,
  linkActivated,
  pageTurnRequested,
};

struct ReaderBridgeEventDescription {
  ReaderBridgeEvent event;
  std::string_view name;
  std::array<std::string_view, 3> payloadKeys;  // empty entries after the last key
};

inline constexpr std::array<ReaderBridgeMethodDescription, 20> kReaderBridgeMethods{{
    {ReaderBridgeMethod::open, "open", {"OpenPublicationRequest"}, "OpenPublicationResult"},
    {ReaderBridgeMethod::tableOfContents,
     "tableOfContents",
     {"EmptyBridgePayload"},
     "TableOfContentsResult"},
    {ReaderBridgeMethod::next, "next", {"EmptyBridgePayload"}, "ReaderPositionResult"},
    {ReaderBridgeMethod::previous, "previous", {"EmptyBridgePayload"}, "ReaderPositionResult"},
    {ReaderBridgeMethod::nextSection,
     "nextSection",
     {"EmptyBridgePayload"},
     "ReaderPositionResult"},
    {ReaderBridgeMethod::previousSection,
     "previousSection",
     {"EmptyBridgePayload"},
     "ReaderPositionResult"},
    {ReaderBridgeMethod::goTo,
     "goTo",
     {"GoToRequest", "GoToLocatorRequest"},
     "ReaderPositionResult"},
    {ReaderBridgeMethod::currentLocator, "currentLocator", {"EmptyBridgePayload"}, "Locator"},
    {ReaderBridgeMethod::currentSelection,
     "currentSelection",
     {"EmptyBridgePayload"},
     "CurrentSelectionResult"},
    {ReaderBridgeMethod::configureTypography,
     "configureTypography",
     {"ConfigureTypographyRequest"},
     "ConfigureTypographyResult"},
    {ReaderBridgeMethod::configureTheme,
     "configureTheme",
     {"ConfigureThemeRequest"},
     "ConfigureThemeResult"},
    {ReaderBridgeMethod::configureReadingMode,
     "configureReadingMode",
     {"ConfigureReadingModeRequest"},
     "ConfigureReadingModeResult"},
    {ReaderBridgeMethod::configurePageLayout,
     "configurePageLayout",
     {"ConfigurePageLayoutRequest"},
     "ConfigurePageLayoutResult"},
    {ReaderBridgeMethod::configureScrolledContentWidth,
     "configureScrolledContentWidth",
     {"ConfigureScrolledContentWidthRequest"},
     "ConfigureScrolledContentWidthResult"},
    {ReaderBridgeMethod::configureBookmarkVisibility,
     "configureBookmarkVisibility",
     {"ConfigureBookmarkVisibilityRequest"},
     "BookmarkVisibilityResult"},
    {ReaderBridgeMethod::addAnnotation,
     "addAnnotation",
     {"AnnotationRequest"},
     "AnnotationRenderResult"},
    {ReaderBridgeMethod::removeAnnotation,
     "removeAnnotation",
     {"RemoveAnnotationRequest"},
     "AnnotationRenderResult"},
    {ReaderBridgeMethod::pulseAnnotation,
     "pulseAnnotation",
     {"AnnotationPulseRequest"},
     "AnnotationRenderResult"},
    {ReaderBridgeMethod::startSearch, "startSearch", {"StartSearchRequest"}, "StartSearchResult"},
    {ReaderBridgeMethod::cancelSearch,
     "cancelSearch",
     {"CancelSearchRequest"},
     "EmptyBridgePayload"},
}};

inline constexpr std::array<ReaderBridgeEventDescription, 8> kReaderBridgeEvents{{
    {ReaderBridgeEvent::selectionAvailabilityChanged,
     "selectionAvailabilityChanged",
     {"available", "rect"}},
    {ReaderBridgeEvent::annotationContextMenuRequested,
     "annotationContextMenuRequested",
     {"id", "x", "y"}},
    {ReaderBridgeEvent::locatorChanged, "locatorChanged", {"locator"}},
    {ReaderBridgeEvent::bookmarkVisibilityChanged,
     "bookmarkVisibilityChanged",
     {"visibleBookmarkIDs"}},
    {ReaderBridgeEvent::annotationResolutionChanged,
     "annotationResolutionChanged",
     {"resolvedIDs", "unresolvedIDs"}},
    {ReaderBridgeEvent::searchResults, "searchResults", {"searchID", "isComplete", "results"}},
    {ReaderBridgeEvent::linkActivated, "linkActivated", {"url"}},
    {ReaderBridgeEvent::pageTurnRequested, "pageTurnRequested", {"direction"}},
}};

namespace detail {
constexpr bool tablesFollowTheirEnumerations() {
  for (std::size_t index = 0; index < kReaderBridgeMethods.size(); ++index) {
    if (static_cast<std::size_t>(kReaderBridgeMethods[index].method) != index) return false;
  }
  for (std::size_t index = 0; index < kReaderBridgeEvents.size(); ++index) {
    if (static_cast<std::size_t>(kReaderBridgeEvents[index].event) != index) return false;
  }
  return true;
}
static_assert(tablesFollowTheirEnumerations(), "a table row is out of its enumeration's order");
}  // namespace detail

// The wire name of a method or event.
constexpr std::string_view methodName(ReaderBridgeMethod method) {
  return kReaderBridgeMethods[static_cast<std::size_t>(method)].name;
}
constexpr std::string_view eventName(ReaderBridgeEvent event) {
  return kReaderBridgeEvents[static_cast<std::size_t>(event)].name;
}

// The event of a wire name; absent for a name the table does not hold.
constexpr std::optional<ReaderBridgeEvent> eventNamed(std::string_view name) {
  for (const ReaderBridgeEventDescription& description : kReaderBridgeEvents) {
    if (description.name == name) return description.event;
  }
  return std::nullopt;
}

}  // namespace tomekeeper
