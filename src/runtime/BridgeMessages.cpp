#include "runtime/BridgeMessages.h"

#include <cmath>

#include "model/JSONCoding.h"

namespace tomekeeper {

namespace {

// A value of `payload` that must be a finite number; absent otherwise.
std::optional<double> finiteNumber(const nlohmann::json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_number()) return std::nullopt;
  const double value = found->get<double>();
  if (!std::isfinite(value)) return std::nullopt;
  return value;
}

// A list of strings that must each parse as a UUID; absent when the key is missing, the value
// is no list, or any one entry fails.
std::optional<std::set<Uuid>> identifierSet(const nlohmann::json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_array()) return std::nullopt;
  std::set<Uuid> identifiers;
  for (const nlohmann::json& entry : *found) {
    if (!entry.is_string()) return std::nullopt;
    const std::optional<Uuid> identifier = Uuid::fromString(entry.get_ref<const std::string&>());
    if (!identifier) return std::nullopt;
    identifiers.insert(*identifier);
  }
  return identifiers;
}

std::optional<Uuid> identifier(const nlohmann::json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_string()) return std::nullopt;
  return Uuid::fromString(found->get_ref<const std::string&>());
}

std::optional<bool> boolean(const nlohmann::json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_boolean()) return std::nullopt;
  return found->get<bool>();
}

template <typename T>
std::optional<T> decodedDocument(const nlohmann::json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !isValidJSONDocument(*found)) return std::nullopt;
  try {
    return decodeJSON<T>(*found);
  } catch (const JSONDecodingError&) {
    return std::nullopt;
  } catch (const nlohmann::json::exception&) {
    return std::nullopt;
  }
}

}  // namespace

bool isValidJSONDocument(const nlohmann::json& value) {
  return value.is_object() || value.is_array();
}

void to_json(nlohmann::json& json, const EmptyBridgePayload&) {
  json = nlohmann::json::object();
}

void from_json(const nlohmann::json& json, EmptyBridgePayload&) {
  requireJSONObject(json, "EmptyBridgePayload");
}

void to_json(nlohmann::json& json, const OpenPublicationRequest& request) {
  json = {{"publication", request.publication}};
}

void to_json(nlohmann::json& json, const GoToRequest& request) {
  json = {{"href", request.href}};
}

void to_json(nlohmann::json& json, const GoToLocatorRequest& request) {
  json = {{"locator", request.locator}};
}

void to_json(nlohmann::json& json, const ConfigureTypographyRequest& request) {
  json = nlohmann::json::object();
  json["font"] = request.font;
  json["fontScale"] = request.fontScale;
  json["lineHeight"] = request.lineHeight;
  json["letterSpacing"] = request.letterSpacing;
  json["pageMargins"] = request.pageMargins;
}

void to_json(nlohmann::json& json, const ConfigureThemeRequest& request) {
  json = {{"theme", request.theme}};
}

void to_json(nlohmann::json& json, const ConfigureReadingModeRequest& request) {
  json = {{"mode", request.mode}};
}

void to_json(nlohmann::json& json, const ConfigurePageLayoutRequest& request) {
  json = {{"layout", request.layout}};
}

void to_json(nlohmann::json& json, const ConfigureScrolledContentWidthRequest& request) {
  json = nlohmann::json::object();
  json["preset"] = request.preset;
  json["maxInlineSize"] = request.maxInlineSize;
}

void to_json(nlohmann::json& json, const BookmarkVisibilityCandidate& candidate) {
  json = nlohmann::json::object();
  json["id"] = candidate.id;
  json["locator"] = candidate.locator;
}

void to_json(nlohmann::json& json, const ConfigureBookmarkVisibilityRequest& request) {
  json = nlohmann::json::object();
  json["bookmarks"] = nlohmann::json::array();
  for (const BookmarkVisibilityCandidate& candidate : request.bookmarks) {
    json["bookmarks"].push_back(candidate);
  }
}

void to_json(nlohmann::json& json, const RuntimeAnnotation& annotation) {
  json = nlohmann::json::object();
  json["id"] = annotation.id;
  json["locator"] = annotation.locator;
  json["selectedText"] = annotation.selectedText;
  json["color"] = annotation.color;
}

void to_json(nlohmann::json& json, const AnnotationRequest& request) {
  json = {{"annotation", request.annotation}};
}

void to_json(nlohmann::json& json, const RemoveAnnotationRequest& request) {
  json = {{"id", request.id}};
}

void to_json(nlohmann::json& json, const AnnotationPulseRequest& request) {
  json = {{"id", request.id}};
}

void to_json(nlohmann::json& json, const StartSearchRequest& request) {
  json = nlohmann::json::object();
  json["searchID"] = request.searchID;
  json["query"] = request.query;
}

void to_json(nlohmann::json& json, const CancelSearchRequest& request) {
  json = {{"searchID", request.searchID}};
}

void from_json(const nlohmann::json& json, OpenPublicationResult& result) {
  requireJSONObject(json, "OpenPublicationResult");
  result = OpenPublicationResult{
      .title = decodeOptionalField<std::string>(json, "title"),
      .authors = decodeRequiredField<std::vector<std::string>>(json, "authors"),
      .coverResourceURL = decodeOptionalField<std::string>(json, "coverResourceURL"),
      .spineItemCount = decodeRequiredField<std::int64_t>(json, "spineItemCount"),
      .initialResourceURL = decodeRequiredField<std::string>(json, "initialResourceURL"),
      .pageProgressionDirection =
          decodeOptionalField<std::string>(json, "pageProgressionDirection"),
      .titleDirection = decodeOptionalField<std::string>(json, "titleDirection"),
      .authorsDirection = decodeOptionalField<std::string>(json, "authorsDirection"),
  };
}

void from_json(const nlohmann::json& json, TableOfContentsResult& result) {
  requireJSONObject(json, "TableOfContentsResult");
  result.items = decodeRequiredField<std::vector<TableOfContentsItem>>(json, "items");
}

void from_json(const nlohmann::json& json, ReaderPositionResult& result) {
  requireJSONObject(json, "ReaderPositionResult");
  result = ReaderPositionResult{
      .spineIndex = decodeRequiredField<std::int64_t>(json, "spineIndex"),
      .page = decodeRequiredField<std::int64_t>(json, "page"),
      .pageCount = decodeRequiredField<std::int64_t>(json, "pageCount"),
      .atStart = decodeRequiredField<bool>(json, "atStart"),
      .atEnd = decodeRequiredField<bool>(json, "atEnd"),
      .locatorResolution = decodeOptionalField<std::string>(json, "locatorResolution"),
  };
}

void from_json(const nlohmann::json& json, CurrentSelectionResult& result) {
  requireJSONObject(json, "CurrentSelectionResult");
  result.selection = decodeOptionalField<TextSelection>(json, "selection");
}

void from_json(const nlohmann::json& json, ConfigureTypographyResult& result) {
  requireJSONObject(json, "ConfigureTypographyResult");
  result = ConfigureTypographyResult{
      .applied = decodeRequiredField<bool>(json, "applied"),
      .configurationRevision = decodeRequiredField<std::int64_t>(json, "configurationRevision"),
      .computedRootFontSize = decodeOptionalField<double>(json, "computedRootFontSize"),
      .computedBodyFontFamily = decodeOptionalField<std::string>(json, "computedBodyFontFamily"),
      .computedBodyFontSize = decodeOptionalField<double>(json, "computedBodyFontSize"),
      .computedParagraphLineHeight =
          decodeOptionalField<double>(json, "computedParagraphLineHeight"),
      .computedParagraphLetterSpacing =
          decodeOptionalField<std::string>(json, "computedParagraphLetterSpacing"),
      .computedCodeLetterSpacing =
          decodeOptionalField<std::string>(json, "computedCodeLetterSpacing"),
      .computedRootPaddingInlineStart =
          decodeOptionalField<double>(json, "computedRootPaddingInlineStart"),
      .computedSemanticIndent = decodeOptionalField<double>(json, "computedSemanticIndent"),
  };
}

void from_json(const nlohmann::json& json, ConfigureThemeResult& result) {
  requireJSONObject(json, "ConfigureThemeResult");
  result = ConfigureThemeResult{
      .configurationRevision = decodeRequiredField<std::int64_t>(json, "configurationRevision"),
      .computedBodyColor = decodeOptionalField<std::string>(json, "computedBodyColor"),
      .computedBodyBackgroundColor =
          decodeOptionalField<std::string>(json, "computedBodyBackgroundColor"),
  };
}

void from_json(const nlohmann::json& json, ConfigureReadingModeResult& result) {
  requireJSONObject(json, "ConfigureReadingModeResult");
  result = ConfigureReadingModeResult{
      .requestedMode = decodeRequiredField<ReadingMode>(json, "requestedMode"),
      .effectiveMode = decodeRequiredField<ReadingMode>(json, "effectiveMode"),
      .computedContainerOverflow =
          decodeRequiredField<std::string>(json, "computedContainerOverflow"),
      .configurationRevision = decodeRequiredField<std::int64_t>(json, "configurationRevision"),
  };
}

void from_json(const nlohmann::json& json, ConfigurePageLayoutResult& result) {
  requireJSONObject(json, "ConfigurePageLayoutResult");
  result = ConfigurePageLayoutResult{
      .requestedLayout = decodeRequiredField<PageLayout>(json, "requestedLayout"),
      .effectiveColumnCount = decodeRequiredField<std::int64_t>(json, "effectiveColumnCount"),
      .computedContainerOverflow =
          decodeRequiredField<std::string>(json, "computedContainerOverflow"),
      .configurationRevision = decodeRequiredField<std::int64_t>(json, "configurationRevision"),
  };
}

void from_json(const nlohmann::json& json, ConfigureScrolledContentWidthResult& result) {
  requireJSONObject(json, "ConfigureScrolledContentWidthResult");
  result = ConfigureScrolledContentWidthResult{
      .preset = decodeRequiredField<ScrolledContentWidth>(json, "preset"),
      .computedBodyMaxInlineSize = decodeOptionalField<double>(json, "computedBodyMaxInlineSize"),
      .configurationRevision = decodeRequiredField<std::int64_t>(json, "configurationRevision"),
  };
}

void from_json(const nlohmann::json& json, BookmarkVisibilityResult& result) {
  requireJSONObject(json, "BookmarkVisibilityResult");
  result.visibleBookmarkIDs = decodeRequiredField<std::vector<Uuid>>(json, "visibleBookmarkIDs");
}

void from_json(const nlohmann::json& json, AnnotationRenderResult& result) {
  requireJSONObject(json, "AnnotationRenderResult");
  result = AnnotationRenderResult{
      .rendered = decodeRequiredField<bool>(json, "rendered"),
      .resolution = decodeRequiredField<std::string>(json, "resolution"),
  };
}

void from_json(const nlohmann::json& json, StartSearchResult& result) {
  requireJSONObject(json, "StartSearchResult");
  result.searchID = decodeRequiredField<Uuid>(json, "searchID");
}

void from_json(const nlohmann::json& json, PublicationSearchResult& result) {
  requireJSONObject(json, "PublicationSearchResult");
  result = PublicationSearchResult{
      .id = decodeRequiredField<std::string>(json, "id"),
      .locator = decodeRequiredField<Locator>(json, "locator"),
      .excerpt = decodeRequiredField<std::string>(json, "excerpt"),
  };
}

std::optional<SelectionAvailabilityChangedEvent> parseSelectionAvailabilityChanged(
    const nlohmann::json& payload) {
  const std::optional<bool> available = boolean(payload, "available");
  if (!available) return std::nullopt;
  SelectionAvailabilityChangedEvent event{.available = *available, .rect = std::nullopt};
  // A rect that breaks a rule is left out; it never costs the event.
  const auto rect = payload.find("rect");
  if (rect != payload.end() && rect->is_object()) {
    const auto x = finiteNumber(*rect, "x");
    const auto y = finiteNumber(*rect, "y");
    const auto width = finiteNumber(*rect, "width");
    const auto height = finiteNumber(*rect, "height");
    if (x && y && width && height && *width >= 0 && *height >= 0) {
      event.rect = ReaderSelectionRect{*x, *y, *width, *height};
    }
  }
  return event;
}

std::optional<ReaderAnnotationContextMenuRequest> parseAnnotationContextMenuRequested(
    const nlohmann::json& payload) {
  const auto annotationID = identifier(payload, "id");
  const auto x = finiteNumber(payload, "x");
  const auto y = finiteNumber(payload, "y");
  if (!annotationID || !x || !y) return std::nullopt;
  return ReaderAnnotationContextMenuRequest{*annotationID, *x, *y};
}

std::optional<Locator> parseLocatorChanged(const nlohmann::json& payload) {
  return decodedDocument<Locator>(payload, "locator");
}

std::optional<std::set<Uuid>> parseBookmarkVisibilityChanged(const nlohmann::json& payload) {
  return identifierSet(payload, "visibleBookmarkIDs");
}

std::optional<AnnotationResolutionChangedEvent> parseAnnotationResolutionChanged(
    const nlohmann::json& payload) {
  auto resolved = identifierSet(payload, "resolvedIDs");
  auto unresolved = identifierSet(payload, "unresolvedIDs");
  if (!resolved || !unresolved) return std::nullopt;
  return AnnotationResolutionChangedEvent{std::move(*resolved), std::move(*unresolved)};
}

std::optional<std::string> parseLinkActivated(const nlohmann::json& payload) {
  const auto found = payload.find("url");
  if (found == payload.end() || !found->is_string() ||
      found->get_ref<const std::string&>().empty()) {
    return std::nullopt;
  }
  return found->get<std::string>();
}

std::optional<PageTurnDirection> parsePageTurnRequested(const nlohmann::json& payload) {
  const auto found = payload.find("direction");
  if (found == payload.end() || !found->is_string()) return std::nullopt;
  const std::string& direction = found->get_ref<const std::string&>();
  if (direction == "next") return PageTurnDirection::next;
  if (direction == "previous") return PageTurnDirection::previous;
  return std::nullopt;
}

std::optional<SearchResultsEvent> parseSearchResults(const nlohmann::json& payload) {
  const auto searchID = identifier(payload, "searchID");
  const auto isComplete = boolean(payload, "isComplete");
  auto results = decodedDocument<std::vector<PublicationSearchResult>>(payload, "results");
  if (!searchID || !isComplete || !results) return std::nullopt;
  return SearchResultsEvent{*searchID, std::move(*results), *isComplete};
}

}  // namespace tomekeeper
