#pragma once

#include <webkit/webkit.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

#include "async/Completion.h"
#include "async/Task.h"
#include "model/Uuid.h"
#include "platform/GObjectHandle.h"
#include "runtime/PublicationSchemeHandler.h"
#include "runtime/ReaderBridge.h"
#include "runtime/ReaderBridgeFailure.h"
#include "runtime/ReaderNavigationPolicy.h"

namespace tomekeeper {

// The script world in which the forwarder runs and the message handler lives. Page script
// cannot reach it, so the page's one way up is a message to its own window on one of the two
// channels.
inline constexpr std::string_view kReaderBridgeScriptWorld = "TomekeeperPrivilegedBridge";
// The message handler that receives the forwarded replies and events.
inline constexpr std::string_view kReaderBridgeMessageHandler = "readerBridge";
// The forwarder, injected at document start in the main frame of that world. The runtime page
// posts each reply and event to its own window under a channel; the forwarder takes only
// messages whose source is that window (a book's frame shares the page's origin, and its posts
// name the frame as their source), stops them there so that no page listener pays for reading
// them, spreads `kind` last so the page cannot choose it, and posts JSON text: a posted object
// would be serialized for the UI process, rebuilt there as a JavaScript value and only then
// written as JSON, three passes over a batch of search results where one will do. Text longer
// than kMaximumReaderMessageBytes could hold stays in the web process; the bridge checks the
// exact limits.
inline constexpr std::string_view kReaderBridgeForwarderScript =
    "(() => {\n"
    "  window.addEventListener('message', event => {\n"
    "    if (event.source !== window) return;\n"
    "    const message = event.data;\n"
    "    if (!message || typeof message !== 'object') return;\n"
    "    const kind = message.channel === 'tomekeeper-bridge-response' ? 'response'\n"
    "        : message.channel === 'tomekeeper-bridge-event' ? 'event' : undefined;\n"
    "    if (kind === undefined) return;\n"
    "    event.stopImmediatePropagation();\n"
    "    const value = message.detail;\n"
    "    if (!value || typeof value !== 'object') return;\n"
    "    const text = JSON.stringify({...value, kind});\n"
    "    if (text.length > 16 * 1024 * 1024) return;\n"
    "    window.webkit.messageHandlers.readerBridge.postMessage(text);\n"
    "  }, true);\n"
    "})();";
// The body of the function that delivers each request, in the page world. The envelope travels
// as JSON text and is parsed there: WebKitGTK refuses any GVariant argument that holds an array
// (or a maybe), and payloads such as a font's fallback stack or the bookmark candidates are
// arrays. The runtime still receives the envelope as a plain object.
inline constexpr std::string_view kReaderBridgeRequestFunctionBody =
    "window.readerRuntime.receive(JSON.parse(request))";

// The size of the web view's bounds, in its own units; zero before it is laid out.
struct ReaderWebViewSize {
  double width = 0;
  double height = 0;
};

// Owns the web view of one reading window with its bridge and scheme handler. It sets the view
// up so that a hostile book has no way out (the forwarder in its own world, the private scheme
// per view, every navigation decided), loads the reader runtime, and turns the view's life
// events into the bridge's generation resets: a provisional navigation fails pending requests
// with navigationReset, a dead web process with webContentProcessTerminated, close with
// readerClosed. The standard context menu never shows: the page asks for the highlight menu
// over the bridge, with the point, and the shell shows it.
//
// Made with create() and owned by the session; confined to the main executor. Tasks that
// outlive a call hold it weakly. Releasing it closes it.
class ReaderWebViewHost : public std::enable_shared_from_this<ReaderWebViewHost> {
 public:
  static std::shared_ptr<ReaderWebViewHost> create();
  ~ReaderWebViewHost();
  ReaderWebViewHost(const ReaderWebViewHost&) = delete;
  ReaderWebViewHost& operator=(const ReaderWebViewHost&) = delete;

  WebKitWebView* webView() const noexcept { return webView_.get(); }
  const std::shared_ptr<ReaderBridge>& bridge() const noexcept { return bridge_; }
  const std::shared_ptr<PublicationSchemeHandler>& schemeHandler() const noexcept {
    return schemeHandler_;
  }
  bool isClosed() const noexcept { return isClosed_; }

  // Called with an address out of the book (http, https, mailto, tel) that the reader clicked;
  // the navigation itself is cancelled. Set by the session, whose opener asks the reader before
  // anything leaves.
  std::function<void(std::string url)> onExternalLink;

  // Makes a publication's extracted files reachable under its id. Throws the provider's
  // PublicationResourceErrorError for an unusable root.
  void registerPublication(const Uuid& publicationID, const std::filesystem::path& root);

  // Loads the reader runtime from `runtimeDirectory` and returns when its page has finished
  // loading. Throws ReaderWebViewHostFailureError: closed after close(), alreadyLoading while
  // another load runs (which goes on), runtimeLoadFailed, runtimeLoadTimedOut after `timeout`,
  // webContentProcessTerminated; or the provider's error for an unusable directory, in which
  // case no load begins.
  async::Task<void> prepareRuntime(std::filesystem::path runtimeDirectory,
                                   std::chrono::steady_clock::duration timeout);

  ReaderWebViewSize viewSize() const;

  // Stops loading, cancels the scheme's loads, fails pending requests with readerClosed, ends
  // a runtime load with closed and removes the message handler. Idempotent. From then on every
  // navigation is cancelled.
  void close();

 private:
  ReaderWebViewHost() = default;
  void configure();
  void completeRuntimeLoad(std::optional<ReaderWebViewHostFailure> failure);
  static async::Task<void> runRuntimeLoadTimeout(std::weak_ptr<ReaderWebViewHost> host,
                                                 std::chrono::steady_clock::duration timeout);

  static void handleLoadChanged(WebKitWebView* webView, WebKitLoadEvent event, gpointer data);
  static gboolean handleLoadFailed(WebKitWebView* webView, WebKitLoadEvent event, const char* uri,
                                   GError* error, gpointer data);
  static void handleWebProcessTerminated(WebKitWebView* webView,
                                         WebKitWebProcessTerminationReason reason, gpointer data);
  static gboolean handleDecidePolicy(WebKitWebView* webView, WebKitPolicyDecision* decision,
                                     WebKitPolicyDecisionType type, gpointer data);
  static gboolean handleContextMenu(WebKitWebView* webView, WebKitContextMenu* menu,
                                    WebKitHitTestResult* hit, gpointer data);
  static void handleScriptMessage(WebKitUserContentManager* manager, JSCValue* value,
                                  gpointer data);

  GObjectHandle<WebKitUserContentManager> contentManager_;
  GObjectHandle<WebKitWebView> webView_;
  std::shared_ptr<ReaderBridgeTransport> transport_;
  std::shared_ptr<ReaderBridge> bridge_;
  std::shared_ptr<PublicationSchemeHandler> schemeHandler_;
  bool isClosed_ = false;
  bool messageHandlerRegistered_ = false;
  // Set by a failed load of the current navigation, so that its finish is no success.
  bool currentLoadFailed_ = false;
  std::shared_ptr<async::Completion<void>> runtimeLoadCompletion_;
  std::optional<std::stop_source> runtimeLoadTimeout_;
};

}  // namespace tomekeeper
