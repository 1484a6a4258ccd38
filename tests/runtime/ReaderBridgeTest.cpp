#include "runtime/ReaderBridge.h"

#include <gtest/gtest.h>

#include <stop_token>

#include "FakeReaderBridgeTransport.h"

namespace tomekeeper {
namespace {

using namespace std::chrono_literals;
using testing::CallOutcome;
using testing::FakeReaderBridgeTransport;
using testing::iterateUntil;
using testing::startCall;
using testing::successReply;
using Case = ReaderBridgeFailure::Case;
using json = nlohmann::json;

const json kPosition = {
    {"spineIndex", 2}, {"page", 3}, {"pageCount", 9}, {"atStart", false}, {"atEnd", false}};

class ReaderBridgeTest : public ::testing::Test {
 protected:
  std::shared_ptr<CallOutcome<ReaderPositionResult>> startQuery(
      Uuid id, std::chrono::milliseconds timeout = 10s, std::stop_token stopToken = {}) {
    return startCall(bridge_->query<EmptyBridgePayload, ReaderPositionResult>(
                         "next", {}, timeout, id, bridge_->generation()),
                     std::move(stopToken));
  }

  // Waits until `count` requests have gone down to the page; gives the last of them.
  const json& awaitEnvelope(std::size_t count = 1) {
    EXPECT_TRUE(iterateUntil([&] { return transport_->envelopes.size() >= count; }));
    return transport_->envelopes.at(count - 1);
  }

  // Sends a request after the one under test and fails it: once it has reached the page, the
  // main context has run past anything the earlier one could still have sent.
  void expectOnlyTheSentinelWasSent() {
    auto sentinel = startCall(bridge_->tableOfContents());
    awaitEnvelope();
    EXPECT_EQ(transport_->envelopes.size(), 1u);
    EXPECT_EQ(transport_->envelopes.front()["method"], "tableOfContents");
    bridge_->failAllPending(ReaderBridgeFailure(Case::readerClosed));
    finish(sentinel);
  }

  template <typename Result>
  void finish(const std::shared_ptr<CallOutcome<Result>>& outcome) {
    ASSERT_TRUE(iterateUntil([&] { return outcome->finished; }));
  }

  template <typename Result>
  Case failureCase(const std::shared_ptr<CallOutcome<Result>>& outcome) {
    finish(outcome);
    EXPECT_TRUE(outcome->failure.has_value());
    return outcome->failure ? outcome->failure->failureCase() : Case::cancelled;
  }

  std::shared_ptr<FakeReaderBridgeTransport> transport_ =
      std::make_shared<FakeReaderBridgeTransport>();
  std::shared_ptr<ReaderBridge> bridge_ = ReaderBridge::create(transport_);
};

TEST_F(ReaderBridgeTest, SendsTheFiveKeyEnvelopeEachCallWithItsOwnIdentifier) {
  bridge_->incrementGeneration();
  bridge_->incrementGeneration();
  auto outcome = startCall(bridge_->goTo(GoToRequest{"OEBPS/c1.xhtml#p"}));
  auto second = startCall(bridge_->next());
  const json envelope = awaitEnvelope();
  ASSERT_TRUE(envelope.is_object());
  EXPECT_EQ(envelope.size(), 5u);
  EXPECT_EQ(envelope["version"], 1);
  EXPECT_TRUE(Uuid::fromString(envelope["id"].get<std::string>()));
  EXPECT_EQ(envelope["id"].get<std::string>(),
            Uuid::fromString(envelope["id"].get<std::string>())->string());
  EXPECT_EQ(envelope["generation"], 2);
  EXPECT_EQ(envelope["method"], "goTo");
  EXPECT_EQ(envelope["payload"], json({{"href", "OEBPS/c1.xhtml#p"}}));
  EXPECT_NE(awaitEnvelope(2)["id"], envelope["id"]);
  bridge_->receiveMessage(successReply(envelope, kPosition));
  finish(outcome);
  ASSERT_TRUE(outcome->value);
  EXPECT_EQ(outcome->value->page, 3);
  EXPECT_EQ(outcome->value->pageCount, 9);
  bridge_->failAllPending(ReaderBridgeFailure(Case::readerClosed));
  finish(second);
}

// ---- Replies: a good reply to a position query, changed, and what becomes of the query ----

enum class Fate { accepted, dropped, countedLate, failed };

struct ReplyCase {
  const char* name;
  std::function<void(json&)> change;
  Fate fate;
  std::optional<ReaderBridgeFailure> failure = std::nullopt;
};

void PrintTo(const ReplyCase& reply, std::ostream* stream) {
  *stream << reply.name;
}

std::function<void(json&)> withField(const char* key, json value) {
  return [key, value](json& reply) { reply[key] = value; };
}
std::function<void(json&)> withoutField(const char* key) {
  return [key](json& reply) { reply.erase(key); };
}
std::function<void(json&)> failingWith(json error) {
  return [error](json& reply) {
    reply["ok"] = false;
    reply.erase("result");
    if (!error.is_null()) reply["error"] = error;
  };
}

const ReaderBridgeFailure kUnknownRuntimeError = ReaderBridgeFailure::runtime(
    BridgeErrorPayload{"unknown", "Unknown reader runtime error", std::nullopt});
const ReaderBridgeFailure kMalformed(Case::malformedResponse);

class ReaderBridgeReplyTest : public ReaderBridgeTest,
                              public ::testing::WithParamInterface<ReplyCase> {};

// A reply that is dropped or counted late leaves the query pending: the proper reply that
// follows still finishes it, once.
TEST_P(ReaderBridgeReplyTest, EndsTheQueryAsTheReplySays) {
  const ReplyCase& reply = GetParam();
  const Uuid id = Uuid::random();
  auto outcome = startQuery(id);
  const json good = successReply(awaitEnvelope(), kPosition);
  json changed = good;
  reply.change(changed);
  bridge_->receiveMessage(changed);
  switch (reply.fate) {
    case Fate::accepted:
      finish(outcome);
      EXPECT_TRUE(outcome->value);
      break;
    case Fate::failed:
      finish(outcome);
      ASSERT_TRUE(outcome->failure);
      EXPECT_EQ(*outcome->failure, *reply.failure);
      break;
    case Fate::dropped:
    case Fate::countedLate:
      EXPECT_TRUE(bridge_->isPending(id));
      bridge_->receiveMessage(good);
      finish(outcome);
      EXPECT_TRUE(outcome->value);
      break;
  }
  EXPECT_EQ(bridge_->ignoredLateReplyCount(), reply.fate == Fate::countedLate ? 1u : 0u);
  EXPECT_EQ(bridge_->completionCount(id), 1);
}

INSTANTIATE_TEST_SUITE_P(
    Replies, ReaderBridgeReplyTest,
    ::testing::Values(
        ReplyCase{"AcceptsVersionAndGenerationWrittenAsWholeFloats",
                  [](json& reply) { reply["version"] = 1.0, reply["generation"] = 0.0; },
                  Fate::accepted},
        ReplyCase{"AcceptsTheIdentifierInLowerCase",
                  [](json& reply) {
                    std::string id = reply["id"];
                    for (char& character : id) {
                      character = static_cast<char>(std::tolower(character));
                    }
                    reply["id"] = id;
                  },
                  Fate::accepted},
        ReplyCase{"AReplyWithVersionTwoFailsTheRequestAtOnce", withField("version", 2),
                  Fate::failed, ReaderBridgeFailure::protocolVersion(2)},
        ReplyCase{"AWrongVersionComesAheadOfTheGenerationTest",
                  [](json& reply) { reply["version"] = 2, reply["generation"] = 77; }, Fate::failed,
                  ReaderBridgeFailure::protocolVersion(2)},
        ReplyCase{"AVersionTwoReplyForAnUnknownIdOnlyCountsAsLate",
                  [](json& reply) { reply["version"] = 2, reply["id"] = Uuid::random().string(); },
                  Fate::countedLate},
        ReplyCase{"AReplyWhoseGenerationDiffersFromTheRequestsCountsAsLate",
                  withField("generation", 1), Fate::countedLate},
        ReplyCase{"OkFalseWithoutErrorIsAnUnknownRuntimeFailure", failingWith(nullptr),
                  Fate::failed, kUnknownRuntimeError},
        ReplyCase{
            "TakesTheRuntimesErrorFieldsThatAreStrings",
            failingWith(
                {{"code", "selection-too-long"}, {"message", "Too long"}, {"diagnostic", "d"}}),
            Fate::failed, ReaderBridgeFailure::runtime({"selection-too-long", "Too long", "d"})},
        ReplyCase{"ErrorFieldsOfTheWrongTypeFallBackOneByOne",
                  failingWith({{"code", 5}, {"message", "kept"}, {"diagnostic", json::array()}}),
                  Fate::failed, ReaderBridgeFailure::runtime({"unknown", "kept", std::nullopt})},
        ReplyCase{"AnErrorThatIsNoObjectFallsBackWhole", failingWith("boom"), Fate::failed,
                  kUnknownRuntimeError},
        ReplyCase{"OkAsTheStringTrueTakesTheFailurePath", withField("ok", "true"), Fate::failed,
                  kUnknownRuntimeError},
        ReplyCase{"OkMissingTakesTheFailurePath", withoutField("ok"), Fate::failed,
                  kUnknownRuntimeError},
        ReplyCase{"OkOneTakesTheFailurePath", withField("ok", 1), Fate::failed,
                  kUnknownRuntimeError},
        ReplyCase{"ASuccessWithoutResultIsNoPosition", withoutField("result"), Fate::failed,
                  kMalformed},
        ReplyCase{"AnEventWithTheRequestsFieldsFinishesNothing", withField("kind", "event"),
                  Fate::dropped},
        ReplyCase{"DropsAReplyThatIsAnArray", [](json& reply) { reply = json::array({reply}); },
                  Fate::dropped},
        ReplyCase{"DropsAReplyThatIsAString", [](json& reply) { reply = "response"; },
                  Fate::dropped},
        ReplyCase{"DropsAReplyWithoutKind", withoutField("kind"), Fate::dropped},
        ReplyCase{"DropsAReplyWithoutVersion", withoutField("version"), Fate::dropped},
        ReplyCase{"DropsAReplyWithoutGeneration", withoutField("generation"), Fate::dropped},
        ReplyCase{"DropsAReplyWithoutId", withoutField("id"), Fate::dropped},
        ReplyCase{"DropsAKindThatIsANumber", withField("kind", 1), Fate::dropped},
        ReplyCase{"DropsAKindInAnotherCase", withField("kind", "Response"), Fate::dropped},
        ReplyCase{"DropsAnUnknownKind", withField("kind", "reply"), Fate::dropped},
        ReplyCase{"DropsAVersionWrittenAsText", withField("version", "1"), Fate::dropped},
        ReplyCase{"DropsAFractionalVersion", withField("version", 1.5), Fate::dropped},
        ReplyCase{"DropsAVersionBeyondTheSignedIntegers",
                  withField("version", json(18446744073709551615ULL)), Fate::dropped},
        ReplyCase{"DropsAGenerationWrittenAsText", withField("generation", "0"), Fate::dropped},
        ReplyCase{"DropsANegativeGeneration", withField("generation", -1), Fate::dropped},
        ReplyCase{"DropsAFractionalGeneration", withField("generation", 0.5), Fate::dropped},
        ReplyCase{"DropsANullGeneration", withField("generation", nullptr), Fate::dropped},
        ReplyCase{"DropsAnIdThatIsANumber", withField("id", 12), Fate::dropped},
        ReplyCase{"DropsAnIdThatIsNoUuid", withField("id", "not-a-uuid"), Fate::dropped},
        ReplyCase{"DropsAnIdInBraces",
                  [](json& reply) { reply["id"] = "{" + reply["id"].get<std::string>() + "}"; },
                  Fate::dropped}),
    [](const ::testing::TestParamInfo<ReplyCase>& info) { return info.param.name; });

TEST_F(ReaderBridgeTest, AReplyFromAnOlderGenerationCountsAsLateAndFinishesNothing) {
  const Uuid id = Uuid::random();
  auto outcome = startQuery(id, 200ms);
  const json reply = successReply(awaitEnvelope(), kPosition);
  bridge_->incrementGeneration();
  bridge_->receiveMessage(reply);
  EXPECT_EQ(bridge_->ignoredLateReplyCount(), 1u);
  EXPECT_TRUE(bridge_->isPending(id));
  EXPECT_EQ(failureCase(outcome), Case::timedOut);
}

TEST_F(ReaderBridgeTest, AnEmptyResultDecodesFromAMissingResultButNotFromANonObject) {
  auto empty = startCall(bridge_->cancelSearch(CancelSearchRequest{Uuid::random()}));
  json reply = successReply(awaitEnvelope(), json::object());
  reply.erase("result");
  bridge_->receiveMessage(reply);
  finish(empty);
  EXPECT_TRUE(empty->value);
  for (const json& result : {json("text"), json(5), json(true), json(nullptr), json::array()}) {
    auto outcome = startCall(bridge_->cancelSearch(CancelSearchRequest{Uuid::random()}));
    const std::size_t sent = transport_->envelopes.size() + 1;
    bridge_->receiveMessage(successReply(awaitEnvelope(sent), result));
    EXPECT_EQ(failureCase(outcome), Case::malformedResponse) << result.dump();
  }
}

// ---- Cancellation, timeouts and resets ----

TEST_F(ReaderBridgeTest, ACancellationThatOvertakesRegistrationLeavesTheRequestUnsent) {
  const Uuid id = Uuid::random();
  bridge_->cancelRequest(id);
  EXPECT_EQ(bridge_->cancelledBeforeRegistrationCount(), 1u);
  auto outcome = startQuery(id);
  EXPECT_EQ(failureCase(outcome), Case::cancelled);
  EXPECT_EQ(bridge_->completionCount(id), 1);
  EXPECT_EQ(bridge_->cancelledBeforeRegistrationCount(), 0u);
  EXPECT_EQ(bridge_->pendingCount(), 0u);
  expectOnlyTheSentinelWasSent();
}

TEST_F(ReaderBridgeTest, AnAlreadyCancelledTaskSendsNothing) {
  std::stop_source source;
  source.request_stop();
  const Uuid id = Uuid::random();
  auto outcome = startQuery(id, 10s, source.get_token());
  EXPECT_EQ(failureCase(outcome), Case::cancelled);
  expectOnlyTheSentinelWasSent();
  EXPECT_EQ(bridge_->completionCount(id), 1);
  // The posted cancellation found the id finished and left nothing behind.
  EXPECT_EQ(bridge_->cancelledBeforeRegistrationCount(), 0u);
}

TEST_F(ReaderBridgeTest, StoppingTheCallerCancelsAPendingRequest) {
  std::stop_source source;
  const Uuid id = Uuid::random();
  auto outcome = startQuery(id, 10s, source.get_token());
  const json reply = successReply(awaitEnvelope(), kPosition);
  source.request_stop();
  EXPECT_EQ(failureCase(outcome), Case::cancelled);
  bridge_->receiveMessage(reply);
  EXPECT_EQ(bridge_->ignoredLateReplyCount(), 1u);
  EXPECT_EQ(bridge_->completionCount(id), 1);
}

TEST_F(ReaderBridgeTest, ACancellationOrADuplicateAfterTheReplyChangesNothing) {
  const Uuid id = Uuid::random();
  auto outcome = startQuery(id);
  const json reply = successReply(awaitEnvelope(), kPosition);
  bridge_->receiveMessage(reply);
  finish(outcome);
  EXPECT_TRUE(outcome->value);
  bridge_->cancelRequest(id);
  EXPECT_EQ(bridge_->cancelledBeforeRegistrationCount(), 0u);
  EXPECT_EQ(bridge_->ignoredLateReplyCount(), 0u);
  bridge_->receiveMessage(reply);
  EXPECT_EQ(bridge_->ignoredLateReplyCount(), 1u);
  EXPECT_EQ(bridge_->completionCount(id), 1);
}

TEST_F(ReaderBridgeTest, AReplyAfterTheTimeoutOnlyCountsAsLate) {
  const Uuid id = Uuid::random();
  auto outcome = startQuery(id, 50ms);
  const json reply = successReply(awaitEnvelope(), kPosition);
  EXPECT_EQ(failureCase(outcome), Case::timedOut);
  bridge_->receiveMessage(reply);
  EXPECT_EQ(bridge_->ignoredLateReplyCount(), 1u);
  EXPECT_EQ(bridge_->completionCount(id), 1);
}

TEST_F(ReaderBridgeTest, AReplyCancelsTheTimeout) {
  const Uuid id = Uuid::random();
  auto outcome = startQuery(id, 60ms);
  bridge_->receiveMessage(successReply(awaitEnvelope(), kPosition));
  finish(outcome);
  // A query started later with a longer timeout times out after the first one's would have
  // fired, which would have counted as a late completion.
  EXPECT_EQ(failureCase(startQuery(Uuid::random(), 90ms)), Case::timedOut);
  EXPECT_EQ(bridge_->ignoredLateReplyCount(), 0u);
  EXPECT_EQ(bridge_->completionCount(id), 1);
}

TEST_F(ReaderBridgeTest, FailAllPendingFailsEveryPendingRequestAtOnce) {
  auto first = startQuery(Uuid::random(), 100ms);
  auto second = startQuery(Uuid::random(), 100ms);
  auto third = startCall(bridge_->currentLocator());
  awaitEnvelope(3);
  bridge_->incrementGeneration();
  bridge_->failAllPending(ReaderBridgeFailure(Case::navigationReset));
  EXPECT_EQ(bridge_->pendingCount(), 0u);
  EXPECT_EQ(failureCase(first), Case::navigationReset);
  EXPECT_EQ(failureCase(second), Case::navigationReset);
  EXPECT_EQ(failureCase(third), Case::navigationReset);
  // Past the old requests' timeouts (a later and longer one has run out), none fired.
  EXPECT_EQ(failureCase(startQuery(Uuid::random(), 150ms)), Case::timedOut);
  EXPECT_EQ(bridge_->ignoredLateReplyCount(), 0u);
  // A call after the reset carries the new generation and is answered in it.
  auto after = startCall(bridge_->next());
  const json& envelope = awaitEnvelope(5);
  EXPECT_EQ(envelope["generation"], 1);
  bridge_->receiveMessage(successReply(envelope, kPosition));
  finish(after);
  EXPECT_TRUE(after->value);
}

TEST_F(ReaderBridgeTest, ReleasingTheBridgeClosesItsPendingRequests) {
  auto outcome = startQuery(Uuid::random());
  awaitEnvelope();
  std::weak_ptr<ReaderBridge> weak = bridge_;
  bridge_.reset();
  EXPECT_TRUE(weak.expired());
  EXPECT_EQ(failureCase(outcome), Case::readerClosed);
}

// ---- A page that cannot take the request ----

TEST_F(ReaderBridgeTest, AGoneOrUnavailablePageClosesTheRequestUnsent) {
  transport_->available = false;
  EXPECT_EQ(failureCase(startCall(bridge_->next())), Case::readerClosed);
  EXPECT_TRUE(transport_->envelopes.empty());
  transport_.reset();
  EXPECT_EQ(failureCase(startCall(bridge_->next())), Case::readerClosed);
}

TEST_F(ReaderBridgeTest, AFailedEvaluationIsMalformedAndNotATimeout) {
  transport_->delivery = ReaderBridgeDelivery::failed;
  auto outcome = startQuery(Uuid::random(), 5s);
  const auto started = std::chrono::steady_clock::now();
  EXPECT_EQ(failureCase(outcome), Case::malformedResponse);
  EXPECT_LT(std::chrono::steady_clock::now() - started, 4s);
}

TEST_F(ReaderBridgeTest, APayloadThatCannotBeEncodedIsMalformedAndUnsent) {
  auto outcome = startCall(bridge_->goTo(GoToRequest{"bad \xff text"}));
  EXPECT_EQ(failureCase(outcome), Case::malformedResponse);
  expectOnlyTheSentinelWasSent();
}

TEST_F(ReaderBridgeTest, EveryTypedMethodSendsItsNameAndPayload) {
  const Locator locator{.cfi = std::nullopt, .spineHref = "c1.xhtml", .spineIndex = 1};
  const Uuid id = Uuid::random();
  const json idPayload = {{"id", id.string()}};
  const json none = json::object();
  std::vector<std::function<bool()>> finished;
  const auto track = [&](auto outcome) {
    finished.push_back([outcome] { return outcome->finished; });
  };
  // Each call, the method it names and, where the test pins it whole, its payload.
  const std::vector<std::tuple<std::function<void()>, std::string, std::optional<json>>> calls = {
      {[&] { track(startCall(bridge_->open(OpenPublicationRequest{}))); }, "open", std::nullopt},
      {[&] { track(startCall(bridge_->tableOfContents())); }, "tableOfContents", none},
      {[&] { track(startCall(bridge_->next())); }, "next", none},
      {[&] { track(startCall(bridge_->previous())); }, "previous", none},
      {[&] { track(startCall(bridge_->nextSection())); }, "nextSection", none},
      {[&] { track(startCall(bridge_->previousSection())); }, "previousSection", none},
      {[&] { track(startCall(bridge_->goTo(GoToRequest{"a.xhtml"}))); }, "goTo",
       json({{"href", "a.xhtml"}})},
      {[&] { track(startCall(bridge_->goTo(GoToLocatorRequest{locator}))); }, "goTo",
       json({{"locator", {{"spineHref", "c1.xhtml"}, {"spineIndex", 1}}}})},
      {[&] { track(startCall(bridge_->currentLocator())); }, "currentLocator", none},
      {[&] { track(startCall(bridge_->currentSelection())); }, "currentSelection", none},
      {[&] { track(startCall(bridge_->configureTypography(ConfigureTypographyRequest{}))); },
       "configureTypography", std::nullopt},
      {[&] { track(startCall(bridge_->configureTheme(ConfigureThemeRequest{}))); },
       "configureTheme", std::nullopt},
      {[&] { track(startCall(bridge_->configureReadingMode({ReadingMode::scrolled}))); },
       "configureReadingMode", json({{"mode", "scrolled"}})},
      {[&] { track(startCall(bridge_->configurePageLayout({PageLayout::doublePage}))); },
       "configurePageLayout", json({{"layout", "doublePage"}})},
      {[&] {
         track(
             startCall(bridge_->configureScrolledContentWidth({ScrolledContentWidth::wide, 960})));
       },
       "configureScrolledContentWidth", json({{"preset", "wide"}, {"maxInlineSize", 960}})},
      {[&] {
         track(startCall(bridge_->configureBookmarkVisibility({{{id, locator}}})));
       },
       "configureBookmarkVisibility", std::nullopt},
      {[&] {
         track(startCall(bridge_->addAnnotation({{id, locator, "text", AnnotationColor::yellow}})));
       },
       "addAnnotation", std::nullopt},
      {[&] { track(startCall(bridge_->removeAnnotation({id}))); }, "removeAnnotation", idPayload},
      {[&] { track(startCall(bridge_->pulseAnnotation({id}))); }, "pulseAnnotation", idPayload},
      {[&] {
         track(startCall(bridge_->startSearch({id, "whale"})));
       },
       "startSearch", json({{"searchID", id.string()}, {"query", "whale"}})},
      {[&] { track(startCall(bridge_->cancelSearch({id}))); }, "cancelSearch",
       json({{"searchID", id.string()}})},
  };
  for (const auto& [call, method, payload] : calls) call();
  awaitEnvelope(calls.size());
  for (std::size_t index = 0; index < calls.size(); ++index) {
    const auto& [call, method, payload] = calls[index];
    SCOPED_TRACE(method + " (call " + std::to_string(index) + ")");
    const json& envelope = transport_->envelopes[index];
    EXPECT_EQ(envelope["method"], method);
    if (payload) EXPECT_EQ(envelope["payload"], *payload);
  }
  const auto payload = [&](std::size_t index) { return transport_->envelopes[index]["payload"]; };
  EXPECT_TRUE(payload(0)["publication"].contains("packageURL"));
  EXPECT_TRUE(payload(10).contains("font"));
  EXPECT_TRUE(payload(10).contains("pageMargins"));
  EXPECT_TRUE(payload(11).contains("theme"));
  EXPECT_EQ(payload(15)["bookmarks"][0]["id"], id.string());
  EXPECT_EQ(payload(16)["annotation"]["color"], "yellow");
  EXPECT_EQ(payload(16)["annotation"]["selectedText"], "text");
  bridge_->failAllPending(ReaderBridgeFailure(Case::readerClosed));
  for (const auto& done : finished) EXPECT_TRUE(iterateUntil(done));
}

// ---- Events ----

json event(const std::string& name, json payload, std::uint64_t generation = 0) {
  return {{"kind", "event"},
          {"version", 1},
          {"generation", generation},
          {"event", name},
          {"payload", std::move(payload)}};
}

TEST_F(ReaderBridgeTest, EventsReachTheirCallbacks) {
  const Uuid first = Uuid::random();
  const Uuid second = Uuid::random();
  const json locator = {{"spineHref", "c2.xhtml"}, {"spineIndex", 1}};
  // Before its callback is set, an event is dropped and counts as nothing.
  bridge_->receiveMessage(event("locatorChanged", {{"locator", locator}}));
  EXPECT_EQ(bridge_->ignoredLateReplyCount(), 0u);
  std::vector<std::string> received;
  bridge_->onSelectionAvailabilityChanged = [&](bool available,
                                                std::optional<ReaderSelectionRect> rect) {
    EXPECT_TRUE(available);
    ASSERT_TRUE(rect);
    EXPECT_EQ(*rect, (ReaderSelectionRect{1, 2, 3, 4}));
    received.push_back("selection");
  };
  bridge_->onAnnotationContextMenuRequested = [&](ReaderAnnotationContextMenuRequest request) {
    EXPECT_EQ(request, (ReaderAnnotationContextMenuRequest{first, 10.5, 20}));
    received.push_back("menu");
  };
  bridge_->onLocatorChanged = [&](Locator changed) {
    EXPECT_EQ(changed.spineHref, "c2.xhtml");
    received.push_back("locator");
  };
  bridge_->onBookmarkVisibilityChanged = [&](std::set<Uuid> visible) {
    EXPECT_EQ(visible, (std::set<Uuid>{first, second}));
    received.push_back("bookmarks");
  };
  bridge_->onAnnotationResolutionChanged = [&](std::set<Uuid> resolved, std::set<Uuid> unresolved) {
    EXPECT_EQ(resolved, std::set<Uuid>{first});
    EXPECT_EQ(unresolved, std::set<Uuid>{second});
    received.push_back("resolution");
  };
  bridge_->onSearchResults = [&](Uuid searchID, std::vector<PublicationSearchResult> results,
                                 bool isComplete) {
    EXPECT_EQ(searchID, first);
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].excerpt, "a whale");
    EXPECT_TRUE(isComplete);
    received.push_back("search");
  };
  bridge_->receiveMessage(
      event("selectionAvailabilityChanged",
            {{"available", true}, {"rect", {{"x", 1}, {"y", 2}, {"width", 3}, {"height", 4}}}}));
  bridge_->receiveMessage(
      event("annotationContextMenuRequested", {{"id", first.string()}, {"x", 10.5}, {"y", 20}}));
  bridge_->receiveMessage(event("locatorChanged", {{"locator", locator}}));
  bridge_->receiveMessage(
      event("bookmarkVisibilityChanged",
            {{"visibleBookmarkIDs", {first.string(), second.string(), first.string()}}}));
  bridge_->receiveMessage(
      event("annotationResolutionChanged",
            {{"resolvedIDs", {first.string()}}, {"unresolvedIDs", {second.string()}}}));
  bridge_->receiveMessage(
      event("searchResults",
            {{"searchID", first.string()},
             {"isComplete", true},
             {"results", {{{"id", "r1"}, {"locator", locator}, {"excerpt", "a whale"}}}}}));
  EXPECT_EQ(received, (std::vector<std::string>{"selection", "menu", "locator", "bookmarks",
                                                "resolution", "search"}));
}

// Each broken event is dropped; the good one after them is the sentinel that they were read.
TEST_F(ReaderBridgeTest, DropsEventsOfAnotherGenerationOrVersionOrWithoutPayloadOrKnownName) {
  std::vector<bool> received;
  bridge_->onSelectionAvailabilityChanged =
      [&](bool available, std::optional<ReaderSelectionRect>) { received.push_back(available); };
  bridge_->incrementGeneration();
  const json payload = {{"available", true}};
  const auto changed = [&](const std::function<void(json&)>& change) {
    json message = event("selectionAvailabilityChanged", payload, 1);
    change(message);
    return message;
  };
  const std::pair<const char*, json> broken[] = {
      {"older generation", event("selectionAvailabilityChanged", payload, 0)},
      {"newer generation", event("selectionAvailabilityChanged", payload, 2)},
      {"version 2", changed([](json& message) { message["version"] = 2; })},
      {"no payload", changed([](json& message) { message.erase("payload"); })},
      {"payload array", event("selectionAvailabilityChanged", json::array({true}), 1)},
      {"payload null", event("selectionAvailabilityChanged", nullptr, 1)},
      {"name a number", changed([](json& message) { message["event"] = 3; })},
      {"name in another case", event("SelectionAvailabilityChanged", payload, 1)},
      {"unknown name", event("unknownEvent", payload, 1)},
  };
  for (const auto& [name, message] : broken) {
    SCOPED_TRACE(name);
    bridge_->receiveMessage(message);
    EXPECT_TRUE(received.empty());
  }
  bridge_->receiveMessage(event("selectionAvailabilityChanged", {{"available", false}}, 1));
  EXPECT_EQ(received, std::vector<bool>{false});
}

}  // namespace
}  // namespace tomekeeper
