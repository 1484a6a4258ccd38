#pragma once

#include <functional>

#include <nlohmann/json.hpp>

namespace tomekeeper {

// How evaluating a request in the page ended. The value that the page's function returned is
// never looked at: replies always come up by the message handler.
enum class ReaderBridgeDelivery { evaluated, failed };

// The downward path of the bridge: the page that requests are evaluated in. The web view host
// provides one over WebKit; tests provide a fake. Used on the main executor only.
class ReaderBridgeTransport {
 public:
  virtual ~ReaderBridgeTransport() = default;

  // Whether the page still exists (the web view has not gone away).
  virtual bool isAvailable() const = 0;

  // Evaluates window.readerRuntime.receive(request) in the page, with `envelope` as `request`.
  // Calls `done` exactly once, later, on the main executor, with evaluated when the call
  // returned (or its promise settled) and failed when it raised, was rejected, or the page
  // went away. `done` may outlive the transport and the bridge.
  virtual void deliver(nlohmann::json envelope, std::function<void(ReaderBridgeDelivery)> done) = 0;
};

}  // namespace tomekeeper
