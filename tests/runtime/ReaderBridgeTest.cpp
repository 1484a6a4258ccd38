#include "runtime/ReaderBridge.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stop_token>

#include "FakeReaderBridgeTransport.h"

namespace tomekeeper {
namespace {

using namespace std::chrono_literals;
using testing::CallOutcome;
using testing::FakeReaderBridgeTransport;
using testing::iterateFor;
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

  // Waits until the request `id` has gone down to the page.
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

TEST_F(ReaderBridgeTest, SendsTheFiveKeyEnvelope) {
  bridge_->incrementGeneration();
  bridge_->incrementGeneration();
  auto outcome = startCall(bridge_->goTo(GoToRequest{"OEBPS/c1.xhtml#p"}));
  const json& envelope = awaitEnvelope();
  ASSERT_TRUE(envelope.is_object());
  EXPECT_EQ(envelope.size(), 5u);
  EXPECT_EQ(envelope["version"], 1);
  EXPECT_TRUE(Uuid::fromString(envelope["id"].get<std::string>()));
  EXPECT_EQ(envelope["id"].get<std::string>(),
            Uuid::fromString(envelope["id"].get<std::string>())->string());
  EXPECT_EQ(envelope["generation"], 2);
  EXPECT_EQ(envelope["method"], "goTo");
  EXPECT_EQ(envelope["payload"], json({{"href", "OEBPS/c1.xhtml#p"}}));
  bridge_->receiveMessage(successReply(envelope, kPosition));
  finish(outcome);
  ASSERT_TRUE(outcome->value);
  EXPECT_EQ(outcome->value->page, 3);
  EXPECT_EQ(outcome->value->pageCount, 9);
}

TEST_F(ReaderBridgeTest, EveryCallHasItsOwnIdentifier) {
  auto first = startCall(bridge_->next());
  auto second = startCall(bridge_->next());
  awaitEnvelope(2);
  EXPECT_NE(transport_->envelopes[0]["id"], transport_->envelopes[1]["id"]);
  EXPECT_EQ(transport_->envelopes[0]["payload"], json::object());
  bridge_->failAllPending(ReaderBridgeFailure(Case::readerClosed));
  finish(first);
  finish(second);
}

TEST_F(ReaderBridgeTest, AReplyWithVersionTwoFailsTheRequestAtOnce) {
  const Uuid id = Uuid::random();
  auto outcome = startQuery(id);
  json reply = successReply(awaitEnvelope(), kPosition);
  reply["version"] = 2;
  bridge_->receiveMessage(reply);
  ASSERT_EQ(failureCase(outcome), Case::protocolVersion);
  EXPECT_EQ(*outcome->failure, ReaderBridgeFailure::protocolVersion(2));
  EXPECT_EQ(bridge_->completionCount(id), 1);
}

TEST_F(ReaderBridgeTest, AVersionTwoReplyForAnUnknownIdOnlyCountsAsLate) {
  auto outcome = startQuery(Uuid::random());
  const json& envelope = awaitEnvelope();
  json reply = successReply(envelope, kPosition);
  reply["version"] = 2;
  reply["id"] = Uuid::random().string();
  bridge_->receiveMessage(reply);
  EXPECT_EQ(bridge_->ignoredLateReplyCount(), 1u);
  EXPECT_EQ(bridge_->pendingCount(), 1u);
  bridge_->receiveMessage(successReply(envelope, kPosition));
  finish(outcome);
  EXPECT_TRUE(outcome->value);
}

TEST_F(ReaderBridgeTest, AReplyWithoutGenerationIsDroppedAndTheRequestTimesOut) {
  auto outcome = startQuery(Uuid::random(), 150ms);
  json reply = successReply(awaitEnvelope(), kPosition);
  reply.erase("generation");
  bridge_->receiveMessage(reply);
  EXPECT_EQ(bridge_->pendingCount(), 1u);
  EXPECT_EQ(bridge_->ignoredLateReplyCount(), 0u);
  EXPECT_EQ(failureCase(outcome), Case::timedOut);
}

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

TEST_F(ReaderBridgeTest, AReplyWhoseGenerationDiffersFromTheRequestsIsIgnored) {
  const Uuid id = Uuid::random();
  auto outcome = startQuery(id);
  const json& envelope = awaitEnvelope();
  json reply = successReply(envelope, kPosition);
  reply["generation"] = 1;
  bridge_->receiveMessage(reply);
  EXPECT_EQ(bridge_->ignoredLateReplyCount(), 1u);
  EXPECT_TRUE(bridge_->isPending(id));
  // A proper reply later still finishes it.
  bridge_->receiveMessage(successReply(envelope, kPosition));
  finish(outcome);
  EXPECT_TRUE(outcome->value);
}

// A reply to a position query, changed by `change`, and how the query ends.
struct FaultyReplyCase {
  const char* name;
  std::function<void(json&)> change;
  Case expected;
  std::optional<BridgeErrorPayload> payload;
};

const BridgeErrorPayload kUnknownRuntimeError{"unknown", "Unknown reader runtime error",
                                              std::nullopt};

void PrintTo(const FaultyReplyCase& faulty, std::ostream* stream) {
  *stream << faulty.name;
}

class ReaderBridgeFaultyReplyTest : public ReaderBridgeTest,
                                    public ::testing::WithParamInterface<FaultyReplyCase> {};

TEST_P(ReaderBridgeFaultyReplyTest, FailsTheRequestAsItsFaultSays) {
  auto outcome = startQuery(Uuid::random());
  json reply = successReply(awaitEnvelope(), kPosition);
  GetParam().change(reply);
  bridge_->receiveMessage(reply);
  ASSERT_EQ(failureCase(outcome), GetParam().expected);
  if (GetParam().payload) EXPECT_EQ(outcome->failure->payload(), *GetParam().payload);
}

INSTANTIATE_TEST_SUITE_P(
    Replies, ReaderBridgeFaultyReplyTest,
    ::testing::Values(
        FaultyReplyCase{"AWrongVersionComesAheadOfTheGenerationTest",
                        [](json& reply) { reply["version"] = 2, reply["generation"] = 77; },
                        Case::protocolVersion, std::nullopt},
        FaultyReplyCase{"OkFalseWithoutErrorIsAnUnknownRuntimeFailure",
                        [](json& reply) { reply["ok"] = false, reply.erase("result"); },
                        Case::runtime, kUnknownRuntimeError},
        FaultyReplyCase{
            "TakesTheRuntimesErrorFieldsThatAreStrings",
            [](json& reply) {
              reply["ok"] = false;
              reply["error"] = {
                  {"code", "selection-too-long"}, {"message", "Too long"}, {"diagnostic", "d"}};
            },
            Case::runtime, BridgeErrorPayload{"selection-too-long", "Too long", std::string("d")}},
        FaultyReplyCase{
            "ErrorFieldsOfTheWrongTypeFallBackOneByOne",
            [](json& reply) {
              reply["ok"] = false;
              reply["error"] = {{"code", 5}, {"message", "kept"}, {"diagnostic", json::array()}};
            },
            Case::runtime, BridgeErrorPayload{"unknown", "kept", std::nullopt}},
        FaultyReplyCase{"AnErrorThatIsNoObjectFallsBackWhole",
                        [](json& reply) { reply["ok"] = false, reply["error"] = "boom"; },
                        Case::runtime, kUnknownRuntimeError},
        FaultyReplyCase{"OkAsTheStringTrueTakesTheFailurePath",
                        [](json& reply) { reply["ok"] = "true"; }, Case::runtime, std::nullopt},
        FaultyReplyCase{"OkMissingTakesTheFailurePath", [](json& reply) { reply.erase("ok"); },
                        Case::runtime, std::nullopt},
        FaultyReplyCase{"OkOneTakesTheFailurePath", [](json& reply) { reply["ok"] = 1; },
                        Case::runtime, std::nullopt},
        FaultyReplyCase{"ASuccessWithoutResultIsNoPosition",
                        [](json& reply) { reply.erase("result"); }, Case::malformedResponse,
                        std::nullopt}),
    [](const ::testing::TestParamInfo<FaultyReplyCase>& info) { return info.param.name; });

TEST_F(ReaderBridgeTest, ASuccessWithoutResultDecodesFromAnEmptyObject) {
  auto empty = startCall(bridge_->cancelSearch(CancelSearchRequest{Uuid::random()}));
  json reply = successReply(awaitEnvelope(), json::object());
  reply.erase("result");
  bridge_->receiveMessage(reply);
  finish(empty);
  EXPECT_TRUE(empty->value);
}

TEST_F(ReaderBridgeTest, AResultThatIsNoObjectIsNoEmptyPayload) {
  for (const json& result : {json("text"), json(5), json(true), json(nullptr), json::array()}) {
    auto outcome = startCall(bridge_->cancelSearch(CancelSearchRequest{Uuid::random()}));
    const std::size_t sent = transport_->envelopes.size() + 1;
    bridge_->receiveMessage(successReply(awaitEnvelope(sent), result));
    EXPECT_EQ(failureCase(outcome), Case::malformedResponse) << result.dump();
  }
}

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

TEST_F(ReaderBridgeTest, ACancellationAfterCompletionLeavesNoEntry) {
  const Uuid id = Uuid::random();
  auto outcome = startQuery(id);
  bridge_->receiveMessage(successReply(awaitEnvelope(), kPosition));
  finish(outcome);
  bridge_->cancelRequest(id);
  EXPECT_EQ(bridge_->cancelledBeforeRegistrationCount(), 0u);
  EXPECT_EQ(bridge_->completionCount(id), 1);
  EXPECT_EQ(bridge_->ignoredLateReplyCount(), 0u);
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

TEST_F(ReaderBridgeTest, ADuplicateReplyCountsAsLate) {
  const Uuid id = Uuid::random();
  auto outcome = startQuery(id);
  const json reply = successReply(awaitEnvelope(), kPosition);
  bridge_->receiveMessage(reply);
  bridge_->receiveMessage(reply);
  finish(outcome);
  EXPECT_TRUE(outcome->value);
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
}

TEST_F(ReaderBridgeTest, ACallAfterTheResetReadsTheNewGeneration) {
  bridge_->incrementGeneration();
  bridge_->failAllPending(ReaderBridgeFailure(Case::webContentProcessTerminated));
  auto outcome = startCall(bridge_->next());
  const json& envelope = awaitEnvelope();
  EXPECT_EQ(envelope["generation"], 1);
  bridge_->receiveMessage(successReply(envelope, kPosition));
  finish(outcome);
  EXPECT_TRUE(outcome->value);
}

TEST_F(ReaderBridgeTest, AGoneTransportClosesTheRequest) {
  transport_.reset();
  auto outcome = startCall(bridge_->next());
  EXPECT_EQ(failureCase(outcome), Case::readerClosed);
}

TEST_F(ReaderBridgeTest, AnUnavailablePageClosesTheRequest) {
  transport_->available = false;
  auto outcome = startCall(bridge_->next());
  EXPECT_EQ(failureCase(outcome), Case::readerClosed);
  EXPECT_TRUE(transport_->envelopes.empty());
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

TEST_F(ReaderBridgeTest, DropsMessagesThatBreakTheEnvelopeRules) {
  const Uuid id = Uuid::random();
  auto outcome = startQuery(id, 300ms);
  const json good = successReply(awaitEnvelope(), kPosition);
  std::vector<json> broken;
  broken.push_back(json::array({good}));
  broken.push_back("response");
  for (const char* key : {"kind", "version", "generation", "id"}) {
    json message = good;
    message.erase(key);
    broken.push_back(message);
  }
  const std::pair<const char*, json> wrongValues[] = {
      {"kind", 1},
      {"kind", "Response"},
      {"kind", "reply"},
      {"version", "1"},
      {"version", 1.5},
      {"version", json(18446744073709551615ULL)},
      {"generation", "0"},
      {"generation", -1},
      {"generation", 0.5},
      {"generation", nullptr},
      {"id", 12},
      {"id", "not-a-uuid"},
      {"id", "{" + id.string() + "}"},
  };
  for (const auto& [key, value] : wrongValues) {
    json message = good;
    message[key] = value;
    broken.push_back(message);
  }
  for (const json& message : broken) bridge_->receiveMessage(message);
  EXPECT_TRUE(bridge_->isPending(id));
  EXPECT_EQ(bridge_->ignoredLateReplyCount(), 0u);
  EXPECT_EQ(failureCase(outcome), Case::timedOut);
}

TEST_F(ReaderBridgeTest, AcceptsVersionAndGenerationWrittenAsWholeFloats) {
  auto outcome = startQuery(Uuid::random());
  json reply = successReply(awaitEnvelope(), kPosition);
  reply["version"] = 1.0;
  reply["generation"] = 0.0;
  bridge_->receiveMessage(reply);
  finish(outcome);
  EXPECT_TRUE(outcome->value);
}

TEST_F(ReaderBridgeTest, AcceptsTheIdentifierInLowerCase) {
  auto outcome = startQuery(Uuid::random());
  json reply = successReply(awaitEnvelope(), kPosition);
  std::string id = reply["id"];
  for (char& character : id) character = static_cast<char>(std::tolower(character));
  reply["id"] = id;
  bridge_->receiveMessage(reply);
  finish(outcome);
  EXPECT_TRUE(outcome->value);
}

TEST_F(ReaderBridgeTest, ReleasingTheBridgeClosesItsPendingRequests) {
  auto outcome = startQuery(Uuid::random());
  awaitEnvelope();
  std::weak_ptr<ReaderBridge> weak = bridge_;
  bridge_.reset();
  EXPECT_TRUE(weak.expired());
  EXPECT_EQ(failureCase(outcome), Case::readerClosed);
}

TEST_F(ReaderBridgeTest, EveryTypedMethodSendsItsNameAndPayload) {
  const Locator locator{.cfi = std::nullopt, .spineHref = "c1.xhtml", .spineIndex = 1};
  const Uuid id = Uuid::random();
  const json idPayload = {{"id", id.string()}};
  // Each call, the method it names and, where the test pins it, its payload.
  const std::vector<std::tuple<std::function<void()>, std::string, std::optional<json>>> calls = {
      {[&] { startCall(bridge_->open(OpenPublicationRequest{})); }, "open", std::nullopt},
      {[&] { startCall(bridge_->tableOfContents()); }, "tableOfContents", json::object()},
      {[&] { startCall(bridge_->next()); }, "next", json::object()},
      {[&] { startCall(bridge_->previous()); }, "previous", json::object()},
      {[&] { startCall(bridge_->nextSection()); }, "nextSection", json::object()},
      {[&] { startCall(bridge_->previousSection()); }, "previousSection", json::object()},
      {[&] { startCall(bridge_->goTo(GoToRequest{"a.xhtml"})); }, "goTo",
       json({{"href", "a.xhtml"}})},
      {[&] { startCall(bridge_->goTo(GoToLocatorRequest{locator})); }, "goTo",
       json({{"locator", {{"spineHref", "c1.xhtml"}, {"spineIndex", 1}}}})},
      {[&] { startCall(bridge_->currentLocator()); }, "currentLocator", json::object()},
      {[&] { startCall(bridge_->currentSelection()); }, "currentSelection", json::object()},
      {[&] { startCall(bridge_->configureTypography(ConfigureTypographyRequest{})); },
       "configureTypography", std::nullopt},
      {[&] { startCall(bridge_->configureTheme(ConfigureThemeRequest{})); }, "configureTheme",
       std::nullopt},
      {[&] { startCall(bridge_->configureReadingMode({ReadingMode::scrolled})); },
       "configureReadingMode", json({{"mode", "scrolled"}})},
      {[&] { startCall(bridge_->configurePageLayout({PageLayout::doublePage})); },
       "configurePageLayout", json({{"layout", "doublePage"}})},
      {[&] {
         startCall(bridge_->configureScrolledContentWidth({ScrolledContentWidth::wide, 960}));
       },
       "configureScrolledContentWidth", json({{"preset", "wide"}, {"maxInlineSize", 960}})},
      {[&] {
         startCall(bridge_->configureBookmarkVisibility({{{id, locator}}}));
       },
       "configureBookmarkVisibility", std::nullopt},
      {[&] {
         startCall(bridge_->addAnnotation({{id, locator, "text", AnnotationColor::yellow}}));
       },
       "addAnnotation", std::nullopt},
      {[&] { startCall(bridge_->removeAnnotation({id})); }, "removeAnnotation", idPayload},
      {[&] { startCall(bridge_->pulseAnnotation({id})); }, "pulseAnnotation", idPayload},
      {[&] {
         startCall(bridge_->startSearch({id, "whale"}));
       },
       "startSearch", json({{"searchID", id.string()}, {"query", "whale"}})},
      {[&] { startCall(bridge_->cancelSearch({id})); }, "cancelSearch",
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
  iterateFor(10ms);
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
  bridge_->onLocatorChanged = [&](Locator locator) {
    EXPECT_EQ(locator.spineHref, "c2.xhtml");
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
  const json locator = {{"spineHref", "c2.xhtml"}, {"spineIndex", 1}};
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

TEST_F(ReaderBridgeTest, DropsEventsOfAnotherGenerationOrVersion) {
  int calls = 0;
  bridge_->onLocatorChanged = [&](Locator) { ++calls; };
  const json payload = {{"locator", {{"spineHref", "c.xhtml"}, {"spineIndex", 0}}}};
  bridge_->incrementGeneration();
  bridge_->receiveMessage(event("locatorChanged", payload, 0));
  bridge_->receiveMessage(event("locatorChanged", payload, 2));
  json wrongVersion = event("locatorChanged", payload, 1);
  wrongVersion["version"] = 2;
  bridge_->receiveMessage(wrongVersion);
  EXPECT_EQ(calls, 0);
  bridge_->receiveMessage(event("locatorChanged", payload, 1));
  EXPECT_EQ(calls, 1);
}

TEST_F(ReaderBridgeTest, DropsEventsWithoutAPayloadObjectOrAKnownName) {
  int calls = 0;
  bridge_->onSelectionAvailabilityChanged = [&](bool, std::optional<ReaderSelectionRect>) {
    ++calls;
  };
  json missing = event("selectionAvailabilityChanged", json::object());
  missing.erase("payload");
  bridge_->receiveMessage(missing);
  bridge_->receiveMessage(event("selectionAvailabilityChanged", json::array({true})));
  bridge_->receiveMessage(event("selectionAvailabilityChanged", nullptr));
  json nameless = event("selectionAvailabilityChanged", {{"available", true}});
  nameless["event"] = 3;
  bridge_->receiveMessage(nameless);
  bridge_->receiveMessage(event("SelectionAvailabilityChanged", {{"available", true}}));
  bridge_->receiveMessage(event("unknownEvent", {{"available", true}}));
  EXPECT_EQ(calls, 0);
  bridge_->receiveMessage(event("selectionAvailabilityChanged", {{"available", false}}));
  EXPECT_EQ(calls, 1);
}

TEST_F(ReaderBridgeTest, AnEventWithoutItsCallbackIsDropped) {
  bridge_->receiveMessage(
      event("locatorChanged", {{"locator", {{"spineHref", "c"}, {"spineIndex", 0}}}}));
  EXPECT_EQ(bridge_->ignoredLateReplyCount(), 0u);
}

TEST_F(ReaderBridgeTest, AnEventDoesNotFinishARequest) {
  const Uuid id = Uuid::random();
  auto outcome = startQuery(id);
  json forged = successReply(awaitEnvelope(), kPosition);
  forged["kind"] = "event";
  bridge_->receiveMessage(forged);
  EXPECT_TRUE(bridge_->isPending(id));
  bridge_->failAllPending(ReaderBridgeFailure(Case::readerClosed));
  finish(outcome);
}

}  // namespace
}  // namespace tomekeeper
