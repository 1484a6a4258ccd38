#pragma once

#include <glib.h>

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include <nlohmann/json.hpp>

#include "async/MainContext.h"
#include "async/Spawn.h"
#include "async/Task.h"
#include "runtime/ReaderBridge.h"
#include "runtime/ReaderBridgeTransport.h"

namespace tomekeeper::testing {

// A page that records each request and answers the evaluation as told, without a web view.
class FakeReaderBridgeTransport final : public ReaderBridgeTransport {
 public:
  bool available = true;
  ReaderBridgeDelivery delivery = ReaderBridgeDelivery::evaluated;
  std::vector<nlohmann::json> envelopes;
  // Called with each envelope as it is evaluated, to let a test answer at once.
  std::function<void(const nlohmann::json&)> onDeliver;

  bool isAvailable() const override { return available; }
  void deliver(nlohmann::json envelope, std::function<void(ReaderBridgeDelivery)> done) override {
    envelopes.push_back(envelope);
    if (onDeliver) onDeliver(envelope);
    async::postToMain([done = std::move(done), result = delivery] { done(result); });
  }
};

// Iterates the main context until `condition` holds or `limit` passes; returns the condition.
inline bool iterateUntil(const std::function<bool()>& condition,
                         std::chrono::milliseconds limit = std::chrono::seconds(5)) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    g_main_context_iteration(nullptr, FALSE);
    if (!condition()) g_usleep(200);
  }
  return true;
}

// Iterates the main context for `duration`.
inline void iterateFor(std::chrono::milliseconds duration) {
  iterateUntil([] { return false; }, duration);
}

// What a call ended with.
template <typename Result>
struct CallOutcome {
  bool finished = false;
  std::optional<Result> value;
  std::optional<ReaderBridgeFailure> failure;
};

template <>
struct CallOutcome<void> {
  bool finished = false;
  std::exception_ptr error;
};

template <typename Result>
async::Task<void> captureCall(async::Task<Result> call,
                              std::shared_ptr<CallOutcome<Result>> outcome) {
  try {
    outcome->value.emplace(co_await std::move(call));
  } catch (const ReaderBridgeFailure& failure) {
    outcome->failure.emplace(failure);
  }
  outcome->finished = true;
}

inline async::Task<void> captureCall(async::Task<void> call,
                                     std::shared_ptr<CallOutcome<void>> outcome) {
  try {
    co_await std::move(call);
  } catch (...) {
    outcome->error = std::current_exception();
  }
  outcome->finished = true;
}

// Starts `call` in the background and gives the place where its outcome will appear.
template <typename Result>
std::shared_ptr<CallOutcome<Result>> startCall(async::Task<Result> call,
                                               std::stop_token stopToken = {}) {
  auto outcome = std::make_shared<CallOutcome<Result>>();
  async::spawn(captureCall(std::move(call), outcome), std::move(stopToken));
  return outcome;
}

// A reply to `envelope` as the forwarder delivers it.
inline nlohmann::json successReply(const nlohmann::json& envelope, nlohmann::json result) {
  return {{"kind", "response"},   {"version", 1},
          {"id", envelope["id"]}, {"generation", envelope["generation"]},
          {"ok", true},           {"result", std::move(result)}};
}

}  // namespace tomekeeper::testing
