#include "runtime/ReaderBridge.h"

#include <cmath>
#include <exception>
#include <limits>
#include <utility>

#include "async/MainContext.h"
#include "async/Sleep.h"
#include "async/Spawn.h"

namespace tomekeeper {

namespace {

using Case = ReaderBridgeFailure::Case;

// An integer of the message, however the JSON wrote it (1 and 1.0 alike); absent for a
// fraction, a non-number or a value out of range.
std::optional<std::int64_t> messageInteger(const nlohmann::json& value) {
  if (value.is_number_integer() && !value.is_number_unsigned()) return value.get<std::int64_t>();
  if (value.is_number_unsigned()) {
    const auto unsignedValue = value.get<std::uint64_t>();
    if (unsignedValue > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
      return std::nullopt;
    }
    return static_cast<std::int64_t>(unsignedValue);
  }
  if (value.is_number_float()) {
    const double number = value.get<double>();
    if (std::isfinite(number) && std::trunc(number) == number && number >= -9.2e18 &&
        number <= 9.2e18) {
      return static_cast<std::int64_t>(number);
    }
  }
  return std::nullopt;
}

// A generation of the message: a whole number from 0 to 2^64 - 1.
std::optional<std::uint64_t> messageGeneration(const nlohmann::json& value) {
  if (value.is_number_unsigned()) return value.get<std::uint64_t>();
  if (value.is_number_integer()) {
    const auto signedValue = value.get<std::int64_t>();
    if (signedValue < 0) return std::nullopt;
    return static_cast<std::uint64_t>(signedValue);
  }
  if (value.is_number_float()) {
    const double number = value.get<double>();
    if (std::isfinite(number) && std::trunc(number) == number && number >= 0 &&
        number < 18446744073709551616.0) {
      return static_cast<std::uint64_t>(number);
    }
  }
  return std::nullopt;
}

const nlohmann::json* member(const nlohmann::json& object, const char* key) {
  const auto found = object.find(key);
  return found == object.end() ? nullptr : &*found;
}

BridgeErrorPayload errorPayload(const nlohmann::json* error) {
  BridgeErrorPayload payload{"unknown", "Unknown reader runtime error", std::nullopt};
  if (error == nullptr || !error->is_object()) return payload;
  if (const auto* code = member(*error, "code"); code && code->is_string()) {
    payload.code = code->get<std::string>();
  }
  if (const auto* message = member(*error, "message"); message && message->is_string()) {
    payload.message = message->get<std::string>();
  }
  if (const auto* diagnostic = member(*error, "diagnostic");
      diagnostic && diagnostic->is_string()) {
    payload.diagnostic = diagnostic->get<std::string>();
  }
  return payload;
}

}  // namespace

std::shared_ptr<ReaderBridge> ReaderBridge::create(std::weak_ptr<ReaderBridgeTransport> transport) {
  return std::shared_ptr<ReaderBridge>(new ReaderBridge(std::move(transport)));
}

ReaderBridge::ReaderBridge(std::weak_ptr<ReaderBridgeTransport> transport)
    : transport_(std::move(transport)) {}

ReaderBridge::~ReaderBridge() {
  for (auto& [id, pending] : pending_) {
    pending.timeout.request_stop();
    pending.finish->reject(std::make_exception_ptr(ReaderBridgeFailure(Case::readerClosed)));
  }
}

std::optional<int> ReaderBridge::completionCount(const Uuid& id) const {
  const auto found = completionCounts_.find(id);
  if (found == completionCounts_.end()) return std::nullopt;
  return found->second;
}

async::Task<nlohmann::json> ReaderBridge::queryValue(std::string method,
                                                     std::optional<nlohmann::json> payload,
                                                     std::chrono::steady_clock::duration timeout,
                                                     Uuid id, std::uint64_t generation) {
  const async::TaskContext context = co_await async::currentContext();
  // The stop request may come from any thread; all it does is post the cancellation.
  std::stop_callback cancellation(context.stopToken, [bridge = weak_from_this(), id] {
    async::postToMain([bridge, id] {
      if (const auto strong = bridge.lock()) strong->cancelRequest(id);
    });
  });

  const bool cancelledEarly = cancelledBeforeRegistration_.erase(id) > 0;
  if (context.stopToken.stop_requested() || cancelledEarly) {
    ++completionCounts_[id];
    throw ReaderBridgeFailure(Case::cancelled);
  }

  Pending pending;
  pending.generation = generation;
  pending.finish = std::make_shared<async::Completion<nlohmann::json>>();
  async::spawn(runTimeout(weak_from_this(), id, timeout), pending.timeout.get_token());
  const std::shared_ptr<async::Completion<nlohmann::json>> finish = pending.finish;
  pending_.emplace(id, std::move(pending));
  send(id, method, generation, std::move(payload));

  co_return co_await *finish;
}

async::Task<void> ReaderBridge::runTimeout(std::weak_ptr<ReaderBridge> bridge, Uuid id,
                                           std::chrono::steady_clock::duration timeout) {
  try {
    co_await async::sleepFor(timeout);
  } catch (const async::OperationCancelled&) {
    co_return;  // the request finished first
  }
  if (const auto strong = bridge.lock()) {
    strong->completeRequest(id, ReaderBridgeFailure(Case::timedOut));
  }
}

void ReaderBridge::send(const Uuid& id, const std::string& method, std::uint64_t generation,
                        std::optional<nlohmann::json> payload) {
  const std::shared_ptr<ReaderBridgeTransport> transport = transport_.lock();
  if (!transport || !transport->isAvailable()) {
    completeRequest(id, ReaderBridgeFailure(Case::readerClosed));
    return;
  }
  if (!payload) {
    completeRequest(id, ReaderBridgeFailure(Case::malformedResponse));
    return;
  }
  nlohmann::json envelope = nlohmann::json::object();
  envelope["version"] = kReaderBridgeProtocolVersion;
  envelope["id"] = id.string();
  envelope["generation"] = generation;
  envelope["method"] = method;
  envelope["payload"] = std::move(*payload);

  // The evaluation runs in a task of its own, after this call has returned.
  async::postToMain([bridge = weak_from_this(), weakTransport = transport_, id,
                     envelope = std::move(envelope)]() mutable {
    const auto failRequest = [bridge, id] {
      if (const auto strong = bridge.lock()) {
        strong->completeRequest(id, ReaderBridgeFailure(Case::malformedResponse));
      }
    };
    const std::shared_ptr<ReaderBridgeTransport> current = weakTransport.lock();
    if (!current || !current->isAvailable()) {
      failRequest();
      return;
    }
    current->deliver(std::move(envelope), [failRequest](ReaderBridgeDelivery delivery) {
      if (delivery == ReaderBridgeDelivery::failed) failRequest();
    });
  });
}

void ReaderBridge::completeRequest(const Uuid& id, RequestResult result) {
  const auto found = pending_.find(id);
  if (found == pending_.end()) {
    ++ignoredLateReplyCount_;
    return;
  }
  Pending pending = std::move(found->second);
  pending_.erase(found);
  pending.timeout.request_stop();
  ++completionCounts_[id];
  if (auto* failure = std::get_if<ReaderBridgeFailure>(&result)) {
    pending.finish->reject(std::make_exception_ptr(*failure));
  } else {
    pending.finish->resolve(std::move(std::get<nlohmann::json>(result)));
  }
}

void ReaderBridge::cancelRequest(const Uuid& id) {
  if (completionCounts_.contains(id)) return;
  if (pending_.contains(id)) {
    completeRequest(id, ReaderBridgeFailure(Case::cancelled));
    return;
  }
  cancelledBeforeRegistration_.insert(id);
}

void ReaderBridge::failAllPending(const ReaderBridgeFailure& failure) {
  std::vector<Uuid> snapshot;
  snapshot.reserve(pending_.size());
  for (const auto& entry : pending_) snapshot.push_back(entry.first);
  for (const Uuid& id : snapshot) completeRequest(id, failure);
}

void ReaderBridge::receiveMessageText(std::string_view text) {
  if (text.size() > kMaximumReaderMessageBytes) {
    ++droppedMessageCount_;
    return;
  }
  // The parser stops at the first value too deep: a hostile message costs no more than the
  // nesting it is allowed, and nothing later walks a deeper tree.
  struct TooDeep {};
  const nlohmann::json::parser_callback_t limitDepth = [](int depth, nlohmann::json::parse_event_t,
                                                          nlohmann::json&) {
    // The parser counts the outermost value as depth 0.
    if (depth >= kMaximumReaderMessageDepth) throw TooDeep{};
    return true;
  };
  nlohmann::json body;
  try {
    body = nlohmann::json::parse(text, limitDepth, /*allow_exceptions=*/false);
  } catch (const TooDeep&) {
    body = nlohmann::json::value_t::discarded;
  }
  if (!body.is_object()) {
    ++droppedMessageCount_;
    return;
  }
  receiveMessage(body);
}

void ReaderBridge::receiveMessage(const nlohmann::json& body) {
  if (!body.is_object()) return;
  const auto* kind = member(body, "kind");
  const auto* versionValue = member(body, "version");
  const auto* generationValue = member(body, "generation");
  if (kind == nullptr || !kind->is_string() || versionValue == nullptr ||
      generationValue == nullptr) {
    return;
  }
  const std::optional<std::int64_t> version = messageInteger(*versionValue);
  const std::optional<std::uint64_t> generation = messageGeneration(*generationValue);
  if (!version || !generation) return;
  const std::string& kindText = kind->get_ref<const std::string&>();
  if (kindText == "event") {
    receiveEvent(body, *version, *generation);
  } else if (kindText == "response") {
    receiveReply(body, *version, *generation);
  }
}

void ReaderBridge::receiveReply(const nlohmann::json& body, std::int64_t version,
                                std::uint64_t generation) {
  const auto* idValue = member(body, "id");
  if (idValue == nullptr || !idValue->is_string()) return;
  const std::optional<Uuid> id = Uuid::fromString(idValue->get_ref<const std::string&>());
  if (!id) return;
  // A wrong version fails the request at once, ahead of the generation test.
  if (version != kReaderBridgeProtocolVersion) {
    completeRequest(*id, ReaderBridgeFailure::protocolVersion(version));
    return;
  }
  const auto found = pending_.find(*id);
  if (found == pending_.end()) {
    ++ignoredLateReplyCount_;
    return;
  }
  if (found->second.generation != generation || generation != generation_) {
    ++ignoredLateReplyCount_;
    return;
  }
  const auto* ok = member(body, "ok");
  if (ok != nullptr && ok->is_boolean() && ok->get<bool>()) {
    const auto* result = member(body, "result");
    completeRequest(*id, result == nullptr ? nlohmann::json::object() : *result);
    return;
  }
  completeRequest(*id, ReaderBridgeFailure::runtime(errorPayload(member(body, "error"))));
}

void ReaderBridge::receiveEvent(const nlohmann::json& body, std::int64_t version,
                                std::uint64_t generation) {
  if (version != kReaderBridgeProtocolVersion || generation != generation_) return;
  const auto* name = member(body, "event");
  const auto* payload = member(body, "payload");
  if (name == nullptr || !name->is_string() || payload == nullptr || !payload->is_object()) return;
  const std::optional<ReaderBridgeEvent> event = eventNamed(name->get_ref<const std::string&>());
  if (!event) return;
  switch (*event) {
    case ReaderBridgeEvent::selectionAvailabilityChanged:
      if (auto parsed = parseSelectionAvailabilityChanged(*payload);
          parsed && onSelectionAvailabilityChanged) {
        onSelectionAvailabilityChanged(parsed->available, parsed->rect);
      }
      return;
    case ReaderBridgeEvent::annotationContextMenuRequested:
      if (auto parsed = parseAnnotationContextMenuRequested(*payload);
          parsed && onAnnotationContextMenuRequested) {
        onAnnotationContextMenuRequested(*parsed);
      }
      return;
    case ReaderBridgeEvent::locatorChanged:
      if (auto parsed = parseLocatorChanged(*payload); parsed && onLocatorChanged) {
        onLocatorChanged(std::move(*parsed));
      }
      return;
    case ReaderBridgeEvent::bookmarkVisibilityChanged:
      if (auto parsed = parseBookmarkVisibilityChanged(*payload);
          parsed && onBookmarkVisibilityChanged) {
        onBookmarkVisibilityChanged(std::move(*parsed));
      }
      return;
    case ReaderBridgeEvent::annotationResolutionChanged:
      if (auto parsed = parseAnnotationResolutionChanged(*payload);
          parsed && onAnnotationResolutionChanged) {
        onAnnotationResolutionChanged(std::move(parsed->resolvedIDs),
                                      std::move(parsed->unresolvedIDs));
      }
      return;
    case ReaderBridgeEvent::searchResults:
      if (auto parsed = parseSearchResults(*payload); parsed && onSearchResults) {
        onSearchResults(parsed->searchID, std::move(parsed->results), parsed->isComplete);
      }
      return;
    case ReaderBridgeEvent::linkActivated:
      if (auto parsed = parseLinkActivated(*payload); parsed && onLinkActivated) {
        onLinkActivated(std::move(*parsed));
      }
      return;
    case ReaderBridgeEvent::pageTurnRequested:
      if (auto parsed = parsePageTurnRequested(*payload); parsed && onPageTurnRequested) {
        onPageTurnRequested(*parsed);
      }
      return;
  }
}

// ---- Typed methods ----

template <typename Payload, typename Result>
async::Task<Result> ReaderBridge::call(ReaderBridgeMethod method, Payload payload) {
  // A coroutine, so that the generation is read when the request starts, not when it is made.
  co_return co_await query<Payload, Result>(std::string(methodName(method)), std::move(payload),
                                            kReaderBridgeRequestTimeout, Uuid::random(),
                                            generation_);
}

async::Task<OpenPublicationResult> ReaderBridge::open(OpenPublicationRequest request) {
  return call<OpenPublicationRequest, OpenPublicationResult>(ReaderBridgeMethod::open,
                                                             std::move(request));
}
async::Task<TableOfContentsResult> ReaderBridge::tableOfContents() {
  return call<EmptyBridgePayload, TableOfContentsResult>(ReaderBridgeMethod::tableOfContents, {});
}
async::Task<ReaderPositionResult> ReaderBridge::next() {
  return call<EmptyBridgePayload, ReaderPositionResult>(ReaderBridgeMethod::next, {});
}
async::Task<ReaderPositionResult> ReaderBridge::previous() {
  return call<EmptyBridgePayload, ReaderPositionResult>(ReaderBridgeMethod::previous, {});
}
async::Task<ReaderPositionResult> ReaderBridge::nextSection() {
  return call<EmptyBridgePayload, ReaderPositionResult>(ReaderBridgeMethod::nextSection, {});
}
async::Task<ReaderPositionResult> ReaderBridge::previousSection() {
  return call<EmptyBridgePayload, ReaderPositionResult>(ReaderBridgeMethod::previousSection, {});
}
async::Task<ReaderPositionResult> ReaderBridge::goTo(GoToRequest request) {
  return call<GoToRequest, ReaderPositionResult>(ReaderBridgeMethod::goTo, std::move(request));
}
async::Task<ReaderPositionResult> ReaderBridge::goTo(GoToLocatorRequest request) {
  return call<GoToLocatorRequest, ReaderPositionResult>(ReaderBridgeMethod::goTo,
                                                        std::move(request));
}
async::Task<Locator> ReaderBridge::currentLocator() {
  return call<EmptyBridgePayload, Locator>(ReaderBridgeMethod::currentLocator, {});
}
async::Task<CurrentSelectionResult> ReaderBridge::currentSelection() {
  return call<EmptyBridgePayload, CurrentSelectionResult>(ReaderBridgeMethod::currentSelection, {});
}
async::Task<ConfigureTypographyResult> ReaderBridge::configureTypography(
    ConfigureTypographyRequest request) {
  return call<ConfigureTypographyRequest, ConfigureTypographyResult>(
      ReaderBridgeMethod::configureTypography, std::move(request));
}
async::Task<ConfigureThemeResult> ReaderBridge::configureTheme(ConfigureThemeRequest request) {
  return call<ConfigureThemeRequest, ConfigureThemeResult>(ReaderBridgeMethod::configureTheme,
                                                           std::move(request));
}
async::Task<ConfigureReadingModeResult> ReaderBridge::configureReadingMode(
    ConfigureReadingModeRequest request) {
  return call<ConfigureReadingModeRequest, ConfigureReadingModeResult>(
      ReaderBridgeMethod::configureReadingMode, std::move(request));
}
async::Task<ConfigurePageLayoutResult> ReaderBridge::configurePageLayout(
    ConfigurePageLayoutRequest request) {
  return call<ConfigurePageLayoutRequest, ConfigurePageLayoutResult>(
      ReaderBridgeMethod::configurePageLayout, std::move(request));
}
async::Task<ConfigureScrolledContentWidthResult> ReaderBridge::configureScrolledContentWidth(
    ConfigureScrolledContentWidthRequest request) {
  return call<ConfigureScrolledContentWidthRequest, ConfigureScrolledContentWidthResult>(
      ReaderBridgeMethod::configureScrolledContentWidth, std::move(request));
}
async::Task<BookmarkVisibilityResult> ReaderBridge::configureBookmarkVisibility(
    ConfigureBookmarkVisibilityRequest request) {
  return call<ConfigureBookmarkVisibilityRequest, BookmarkVisibilityResult>(
      ReaderBridgeMethod::configureBookmarkVisibility, std::move(request));
}
async::Task<AnnotationRenderResult> ReaderBridge::addAnnotation(AnnotationRequest request) {
  return call<AnnotationRequest, AnnotationRenderResult>(ReaderBridgeMethod::addAnnotation,
                                                         std::move(request));
}
async::Task<AnnotationRenderResult> ReaderBridge::removeAnnotation(
    RemoveAnnotationRequest request) {
  return call<RemoveAnnotationRequest, AnnotationRenderResult>(ReaderBridgeMethod::removeAnnotation,
                                                               std::move(request));
}
async::Task<AnnotationRenderResult> ReaderBridge::pulseAnnotation(AnnotationPulseRequest request) {
  return call<AnnotationPulseRequest, AnnotationRenderResult>(ReaderBridgeMethod::pulseAnnotation,
                                                              std::move(request));
}
async::Task<StartSearchResult> ReaderBridge::startSearch(StartSearchRequest request) {
  return call<StartSearchRequest, StartSearchResult>(ReaderBridgeMethod::startSearch,
                                                     std::move(request));
}
async::Task<EmptyBridgePayload> ReaderBridge::cancelSearch(CancelSearchRequest request) {
  return call<CancelSearchRequest, EmptyBridgePayload>(ReaderBridgeMethod::cancelSearch,
                                                       std::move(request));
}

}  // namespace tomekeeper
