#include <gtest/gtest.h>

#include <string>

#include "FakeReaderBridgeTransport.h"
#include "runtime/ReaderBridge.h"

namespace tomekeeper {
namespace {

using namespace std::chrono_literals;
using json = nlohmann::json;
using testing::iterateUntil;
using testing::startCall;
using testing::successReply;

// `result` with a field holding `levels` arrays, one inside the other: the reply, its result
// and the arrays make `levels` + 2 levels.
json nested(json result, int levels) {
  json inner = json::array();
  for (int level = 1; level < levels; ++level) inner = json::array({std::move(inner)});
  result["padding"] = std::move(inner);
  return result;
}

const json kHostileResult = {
    {"spineIndex", 0}, {"page", 7}, {"pageCount", 9}, {"atStart", false}, {"atEnd", false}};
const json kGoodResult = {
    {"spineIndex", 2}, {"page", 3}, {"pageCount", 9}, {"atStart", false}, {"atEnd", false}};

struct MessageCase {
  const char* name;
  // The message text for the pending request's envelope.
  std::string (*text)(const json& envelope);
  bool dropped;
};

class ReaderBridgeMessageLimitsTest : public ::testing::TestWithParam<MessageCase> {
 protected:
  std::shared_ptr<testing::FakeReaderBridgeTransport> transport_ =
      std::make_shared<testing::FakeReaderBridgeTransport>();
  std::shared_ptr<ReaderBridge> bridge_ = ReaderBridge::create(transport_);
};

// A hostile message for a pending request is dropped without touching it: the reply that
// follows, the sentinel, is the one that finishes it.
TEST_P(ReaderBridgeMessageLimitsTest, DropsWhatIsBeyondTheLimitsAndNothingElse) {
  auto outcome = startCall(bridge_->next());
  ASSERT_TRUE(iterateUntil([&] { return transport_->envelopes.size() == 1; }));
  const json envelope = transport_->envelopes.front();

  bridge_->receiveMessageText(GetParam().text(envelope));
  EXPECT_EQ(bridge_->droppedMessageCount(), GetParam().dropped ? 1u : 0u);
  bridge_->receiveMessageText(successReply(envelope, kGoodResult).dump());

  ASSERT_TRUE(iterateUntil([&] { return outcome->finished; }, 5s));
  ASSERT_TRUE(outcome->value);
  EXPECT_EQ(outcome->value->page, GetParam().dropped ? 3 : 7);
  EXPECT_EQ(bridge_->ignoredLateReplyCount(), GetParam().dropped ? 0u : 1u);
}

INSTANTIATE_TEST_SUITE_P(
    Messages, ReaderBridgeMessageLimitsTest,
    ::testing::Values(
        MessageCase{"NestedOneBeyondTheLimit",
                    [](const json& envelope) {
                      return successReply(envelope,
                                          nested(kHostileResult, kMaximumReaderMessageDepth - 1))
                          .dump();
                    },
                    true},
        MessageCase{"NestedAThousandDeep",
                    [](const json& envelope) {
                      return successReply(envelope, nested(kHostileResult, 1000)).dump();
                    },
                    true},
        MessageCase{"NestedToTheLimit",
                    [](const json& envelope) {
                      return successReply(envelope,
                                          nested(kHostileResult, kMaximumReaderMessageDepth - 2))
                          .dump();
                    },
                    false},
        MessageCase{"LongerThanTheLimit",
                    [](const json& envelope) {
                      json result = kHostileResult;
                      result["padding"] = std::string(kMaximumReaderMessageBytes, 'x');
                      return successReply(envelope, result).dump();
                    },
                    true},
        MessageCase{"LongButWithinTheLimit",
                    [](const json& envelope) {
                      json result = kHostileResult;
                      result["padding"] = std::string(kMaximumReaderMessageBytes - 1024, 'x');
                      return successReply(envelope, result).dump();
                    },
                    false},
        MessageCase{"CutShort",
                    [](const json& envelope) {
                      const std::string text = successReply(envelope, kHostileResult).dump();
                      return text.substr(0, text.size() - 1);
                    },
                    true},
        MessageCase{"AnArray",
                    [](const json& envelope) {
                      return json::array({successReply(envelope, kHostileResult)}).dump();
                    },
                    true},
        MessageCase{"NotJSON", [](const json&) { return std::string("reply"); }, true}),
    [](const ::testing::TestParamInfo<MessageCase>& info) { return info.param.name; });

}  // namespace
}  // namespace tomekeeper
