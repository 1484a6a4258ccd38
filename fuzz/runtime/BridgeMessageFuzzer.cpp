// Feeds arbitrary JSON documents to the bridge's message handler while requests are pending,
// with every event callback set. Nothing the page sends may throw, crash, or finish a request
// more than once.
#include <glib.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>

#include <nlohmann/json.hpp>

#include "async/Spawn.h"
#include "runtime/ReaderBridge.h"

namespace {

using namespace tomekeeper;

class SilentTransport final : public ReaderBridgeTransport {
 public:
  bool isAvailable() const override { return true; }
  void deliver(nlohmann::json, std::function<void(ReaderBridgeDelivery)>) override {}
};

async::Task<void> awaitQuietly(async::Task<ReaderPositionResult> call) {
  try {
    co_await std::move(call);
  } catch (const ReaderBridgeFailure&) {
  }
}

void drainMainContext() {
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const nlohmann::json body = nlohmann::json::parse(
      std::string_view(reinterpret_cast<const char*>(data), size), nullptr, false);
  if (body.is_discarded()) return 0;

  auto transport = std::make_shared<SilentTransport>();
  auto bridge = ReaderBridge::create(transport);
  bridge->onSelectionAvailabilityChanged = [](bool, std::optional<ReaderSelectionRect>) {};
  bridge->onAnnotationContextMenuRequested = [](ReaderAnnotationContextMenuRequest) {};
  bridge->onAnnotationResolutionChanged = [](std::set<Uuid>, std::set<Uuid>) {};
  bridge->onLocatorChanged = [](Locator) {};
  bridge->onBookmarkVisibilityChanged = [](std::set<Uuid>) {};
  bridge->onSearchResults = [](Uuid, std::vector<PublicationSearchResult>, bool) {};

  // Requests under the ids that the seeds use, so that replies can reach them.
  const Uuid ids[] = {*Uuid::fromString("E621E1F8-C36C-495A-93FC-0C247A3E6E5F"),
                      *Uuid::fromString("0B4B0D6C-6C6B-4D5A-8F5B-6A4C1F0E2D3C")};
  for (const Uuid& id : ids) {
    async::spawn(awaitQuietly(bridge->query<EmptyBridgePayload, ReaderPositionResult>(
        "next", {}, std::chrono::hours(1), id, 0)));
  }
  bridge->receiveMessage(body);
  bridge->receiveMessage(body);
  for (const Uuid& id : ids) {
    if (bridge->completionCount(id).value_or(0) > 1) std::abort();
  }
  bridge->failAllPending(ReaderBridgeFailure(ReaderBridgeFailure::Case::readerClosed));
  drainMainContext();
  return 0;
}
