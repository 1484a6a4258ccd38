#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <nlohmann/json.hpp>

#include "async/Completion.h"
#include "async/Task.h"
#include "model/JSONCoding.h"
#include "model/Uuid.h"
#include "runtime/BridgeMessages.h"
#include "runtime/ReaderBridgeCatalogue.h"
#include "runtime/ReaderBridgeFailure.h"
#include "runtime/ReaderBridgeTransport.h"

namespace tomekeeper {

// The most that one message from the page may be: its JSON text in bytes (a batch of search
// results or a long book's contents take a few hundred kilobytes), and the nesting of its
// arrays and objects, as the stores allow.
inline constexpr std::size_t kMaximumReaderMessageBytes = 16 * 1024 * 1024;
inline constexpr int kMaximumReaderMessageDepth = 64;

// The one channel between a reading session and the reader runtime in its web view: requests
// with a timeout go down through the transport, replies and events come up through
// receiveMessage. The runtime is untrusted: every message is checked field by field, and one
// that fails is dropped or becomes a typed failure of one request; nothing from the page can
// throw out of receiveMessage, finish a request twice, or reach the session from an earlier
// page load (generation).
//
// Made with create() and owned by the web view host. Confined to the main executor: every
// member is called there, and every callback runs there. Tasks that outlive a call (timeouts,
// deliveries, cancellations) hold the bridge weakly. Calls fail with ReaderBridgeFailure.
class ReaderBridge : public std::enable_shared_from_this<ReaderBridge> {
 public:
  // What finishes a request: the runtime's decoded result, or why there is none.
  using RequestResult = std::variant<nlohmann::json, ReaderBridgeFailure>;

  static std::shared_ptr<ReaderBridge> create(std::weak_ptr<ReaderBridgeTransport> transport);
  // Fails the requests still pending with readerClosed, so that no caller waits forever.
  ~ReaderBridge();
  ReaderBridge(const ReaderBridge&) = delete;
  ReaderBridge& operator=(const ReaderBridge&) = delete;

  // ---- Event callbacks, set by the session before the runtime loads ----
  std::function<void(bool available, std::optional<ReaderSelectionRect> rect)>
      onSelectionAvailabilityChanged;
  std::function<void(ReaderAnnotationContextMenuRequest request)> onAnnotationContextMenuRequested;
  std::function<void(std::set<Uuid> resolved, std::set<Uuid> unresolved)>
      onAnnotationResolutionChanged;
  std::function<void(Locator locator)> onLocatorChanged;
  std::function<void(std::set<Uuid> visibleBookmarkIDs)> onBookmarkVisibilityChanged;
  std::function<void(Uuid searchID, std::vector<PublicationSearchResult> results, bool isComplete)>
      onSearchResults;
  // A link to a section of the book was clicked; the session goes there and remembers whence.
  std::function<void(std::string url)> onLinkActivated;
  std::function<void(PageTurnDirection direction)> onPageTurnRequested;

  // ---- Typed methods: each sends one request with the 10-second timeout ----
  async::Task<OpenPublicationResult> open(OpenPublicationRequest request);
  async::Task<TableOfContentsResult> tableOfContents();
  async::Task<ReaderPositionResult> next();
  async::Task<ReaderPositionResult> previous();
  async::Task<ReaderPositionResult> nextSection();
  async::Task<ReaderPositionResult> previousSection();
  async::Task<ReaderPositionResult> goTo(GoToRequest request);
  async::Task<ReaderPositionResult> goTo(GoToLocatorRequest request);
  async::Task<Locator> currentLocator();
  async::Task<CurrentSelectionResult> currentSelection();
  async::Task<ConfigureTypographyResult> configureTypography(ConfigureTypographyRequest request);
  async::Task<ConfigureThemeResult> configureTheme(ConfigureThemeRequest request);
  async::Task<ConfigureReadingModeResult> configureReadingMode(ConfigureReadingModeRequest request);
  async::Task<ConfigurePageLayoutResult> configurePageLayout(ConfigurePageLayoutRequest request);
  async::Task<ConfigureScrolledContentWidthResult> configureScrolledContentWidth(
      ConfigureScrolledContentWidthRequest request);
  async::Task<BookmarkVisibilityResult> configureBookmarkVisibility(
      ConfigureBookmarkVisibilityRequest request);
  async::Task<AnnotationRenderResult> addAnnotation(AnnotationRequest request);
  async::Task<AnnotationRenderResult> removeAnnotation(RemoveAnnotationRequest request);
  async::Task<AnnotationRenderResult> pulseAnnotation(AnnotationPulseRequest request);
  async::Task<StartSearchResult> startSearch(StartSearchRequest request);
  async::Task<EmptyBridgePayload> cancelSearch(CancelSearchRequest request);

  // Sends `method` with `payload` under the given id and generation and decodes the reply as
  // Result. A stop request on the awaiting task's token cancels it (ReaderBridgeFailure
  // cancelled). The bridge must be alive when the task starts; afterwards the call holds it
  // weakly. Throws ReaderBridgeFailure only.
  template <typename Payload, typename Result>
  async::Task<Result> query(std::string method, Payload payload,
                            std::chrono::steady_clock::duration timeout, Uuid id,
                            std::uint64_t generation);

  // Finishes the request `id` with `result`, once: a second finish, or one for an unknown id,
  // only counts in ignoredLateReplyCount.
  void completeRequest(const Uuid& id, RequestResult result);
  // Cancels the request `id`; one not yet registered is refused at registration.
  void cancelRequest(const Uuid& id);
  // Fails every request pending at the moment of the call with `failure`.
  void failAllPending(const ReaderBridgeFailure& failure);
  // Entry of the message handler: one reply or event forwarded from the page. Never throws
  // for anything that the page sends; a malformed message is dropped without a log.
  void receiveMessage(const nlohmann::json& body);
  // Entry of the message handler for the JSON text that the forwarder posts: text longer than
  // kMaximumReaderMessageBytes, nested deeper than kMaximumReaderMessageDepth, not JSON or not
  // an object is dropped before anything reads it, and counted; anything else goes on to
  // receiveMessage. Never throws for anything that the page sends.
  void receiveMessageText(std::string_view text);

  // The page-load epoch. Only the web view host raises it.
  std::uint64_t generation() const noexcept { return generation_; }
  void incrementGeneration() noexcept { ++generation_; }

  // Observations of the bookkeeping, for diagnostics and tests.
  std::size_t ignoredLateReplyCount() const noexcept { return ignoredLateReplyCount_; }
  // Messages that receiveMessageText dropped for their size, depth or form.
  std::size_t droppedMessageCount() const noexcept { return droppedMessageCount_; }
  // How many times `id` was finished; absent when it never was.
  std::optional<int> completionCount(const Uuid& id) const;
  bool isPending(const Uuid& id) const { return pending_.contains(id); }
  std::size_t pendingCount() const noexcept { return pending_.size(); }
  std::size_t cancelledBeforeRegistrationCount() const noexcept {
    return cancelledBeforeRegistration_.size();
  }

 private:
  struct Pending {
    std::uint64_t generation = 0;
    std::stop_source timeout;
    std::shared_ptr<async::Completion<nlohmann::json>> finish;
  };

  explicit ReaderBridge(std::weak_ptr<ReaderBridgeTransport> transport);

  // One typed method of the catalogue, in this generation, with the catalogue's timeout.
  template <typename Payload, typename Result>
  async::Task<Result> call(ReaderBridgeMethod method, Payload payload);

  async::Task<nlohmann::json> queryValue(std::string method, std::optional<nlohmann::json> payload,
                                         std::chrono::steady_clock::duration timeout, Uuid id,
                                         std::uint64_t generation);
  void send(const Uuid& id, const std::string& method, std::uint64_t generation,
            std::optional<nlohmann::json> payload);
  void receiveReply(const nlohmann::json& body, std::int64_t version, std::uint64_t generation);
  void receiveEvent(const nlohmann::json& body, std::int64_t version, std::uint64_t generation);
  static async::Task<void> runTimeout(std::weak_ptr<ReaderBridge> bridge, Uuid id,
                                      std::chrono::steady_clock::duration timeout);

  std::weak_ptr<ReaderBridgeTransport> transport_;
  std::map<Uuid, Pending> pending_;
  std::set<Uuid> cancelledBeforeRegistration_;
  std::uint64_t generation_ = 0;
  std::size_t ignoredLateReplyCount_ = 0;
  std::size_t droppedMessageCount_ = 0;
  std::map<Uuid, int> completionCounts_;
};

namespace detail {

// The payload as a plain JSON object after a trip through text, or absent when the record
// cannot be encoded (a string that is not UTF-8) or does not encode as an object.
template <typename Payload>
std::optional<nlohmann::json> encodeBridgePayload(const Payload& payload) noexcept {
  try {
    const nlohmann::json encoded = payload;
    nlohmann::json plain = nlohmann::json::parse(encoded.dump());
    if (!plain.is_object()) return std::nullopt;
    return plain;
  } catch (...) {
    return std::nullopt;
  }
}

// A reply's result decoded as Result; malformedResponse unless it is an object or array that
// decodes.
template <typename Result>
Result decodeBridgeResult(const nlohmann::json& value) {
  if (!isValidJSONDocument(value)) {
    throw ReaderBridgeFailure(ReaderBridgeFailure::Case::malformedResponse);
  }
  try {
    return decodeJSON<Result>(value);
  } catch (const JSONDecodingError&) {
  } catch (const nlohmann::json::exception&) {
  }
  throw ReaderBridgeFailure(ReaderBridgeFailure::Case::malformedResponse);
}

}  // namespace detail

template <typename Payload, typename Result>
async::Task<Result> ReaderBridge::query(std::string method, Payload payload,
                                        std::chrono::steady_clock::duration timeout, Uuid id,
                                        std::uint64_t generation) {
  std::optional<nlohmann::json> encoded = detail::encodeBridgePayload(payload);
  const nlohmann::json value =
      co_await queryValue(std::move(method), std::move(encoded), timeout, id, generation);
  co_return detail::decodeBridgeResult<Result>(value);
}

}  // namespace tomekeeper
