#include "runtime/ReaderWebViewHost.h"

#include <gio/gio.h>

#include <exception>
#include <utility>

#include "async/Sleep.h"
#include "async/Spawn.h"
#include "platform/GLibError.h"
#include "platform/GLibString.h"
#include "runtime/PublicationSchemeRoute.h"

namespace tomekeeper {

namespace {

using BridgeCase = ReaderBridgeFailure::Case;

// The bridge's downward path over a WebKit view, which it holds weakly.
class WebViewBridgeTransport final : public ReaderBridgeTransport {
 public:
  explicit WebViewBridgeTransport(WebKitWebView* webView) : webView_(webView) {}

  bool isAvailable() const override { return static_cast<bool>(webView_.lock()); }

  void deliver(nlohmann::json envelope, std::function<void(ReaderBridgeDelivery)> done) override {
    const auto webView = webView_.lock();
    if (!webView) {
      async::postToMain([done = std::move(done)] { done(ReaderBridgeDelivery::failed); });
      return;
    }
    GVariantBuilder arguments;
    g_variant_builder_init(&arguments, G_VARIANT_TYPE("a{sv}"));
    // The envelope passed JSON coding on its way here, so dumping it cannot fail.
    const std::string request = envelope.dump();
    g_variant_builder_add(&arguments, "{sv}", "request", g_variant_new_string(request.c_str()));
    const std::string body(kReaderBridgeRequestFunctionBody);
    // No world: the page's own, where window.readerRuntime lives.
    webkit_web_view_call_async_javascript_function(
        webView.get(), body.c_str(), static_cast<gssize>(body.size()),
        g_variant_builder_end(&arguments), nullptr, nullptr, nullptr, evaluated,
        new std::function<void(ReaderBridgeDelivery)>(std::move(done)));
  }

 private:
  static void evaluated(GObject* source, GAsyncResult* result, gpointer data) {
    std::unique_ptr<std::function<void(ReaderBridgeDelivery)>> done(
        static_cast<std::function<void(ReaderBridgeDelivery)>*>(data));
    GLibError error;
    // The function's value is not needed; only whether it ran.
    const auto value =
        GObjectHandle<JSCValue>::adopt(webkit_web_view_call_async_javascript_function_finish(
            WEBKIT_WEB_VIEW(source), result, error.out()));
    (*done)(error ? ReaderBridgeDelivery::failed : ReaderBridgeDelivery::evaluated);
  }

  GObjectWeakReference<WebKitWebView> webView_;
};

// Each view shows one page, the runtime's, which never navigates back and reads the book over a
// scheme it never caches: a browser's caches (the memory cache sized for many pages, the
// back-forward cache) would only hold memory. The model is the context's, shared by every view.
void useDocumentViewerCaches(WebKitWebView* webView) {
  webkit_web_context_set_cache_model(webkit_web_view_get_context(webView),
                                     WEBKIT_CACHE_MODEL_DOCUMENT_VIEWER);
}

std::optional<std::string_view> requestURI(WebKitNavigationAction* action) {
  WebKitURIRequest* request = webkit_navigation_action_get_request(action);
  if (request == nullptr) return std::nullopt;
  const char* uri = webkit_uri_request_get_uri(request);
  if (uri == nullptr) return std::nullopt;
  return std::string_view(uri);
}

}  // namespace

std::shared_ptr<ReaderWebViewHost> ReaderWebViewHost::create() {
  std::shared_ptr<ReaderWebViewHost> host(new ReaderWebViewHost());
  host->configure();
  return host;
}

void ReaderWebViewHost::configure() {
  const std::string world(kReaderBridgeScriptWorld);
  const std::string handlerName(kReaderBridgeMessageHandler);

  // The content controller of this window alone.
  contentManager_ =
      GObjectHandle<WebKitUserContentManager>::adopt(webkit_user_content_manager_new());

  // The scheme handler; it is attached to the view as soon as the view exists.
  schemeHandler_ = PublicationSchemeHandler::create();

  // The forwarder, at document start, main frame only, in its own world.
  const std::string source(kReaderBridgeForwarderScript);
  WebKitUserScript* script = webkit_user_script_new_for_world(
      source.c_str(), WEBKIT_USER_CONTENT_INJECT_TOP_FRAME,
      WEBKIT_USER_SCRIPT_INJECT_AT_DOCUMENT_START, world.c_str(), nullptr, nullptr);
  webkit_user_content_manager_add_script(contentManager_.get(), script);
  webkit_user_script_unref(script);

  // The web view with that controller.
  webView_ = GObjectHandle<WebKitWebView>::retain(WEBKIT_WEB_VIEW(
      g_object_new(WEBKIT_TYPE_WEB_VIEW, "user-content-manager", contentManager_.get(), nullptr)));
  schemeHandler_->attach(webView_.get());
  useDocumentViewerCaches(webView_.get());

  // The bridge, which reaches the view weakly.
  transport_ = std::make_shared<WebViewBridgeTransport>(webView_.get());
  bridge_ = ReaderBridge::create(transport_);

  // The message handler, in the forwarder's world only.
  messageHandlerRegistered_ =
      webkit_user_content_manager_register_script_message_handler(
          contentManager_.get(), handlerName.c_str(), world.c_str()) != FALSE;
  g_signal_connect(contentManager_.get(), ("script-message-received::" + handlerName).c_str(),
                   G_CALLBACK(handleScriptMessage), this);

  // This host decides the view's navigations and follows its life.
  g_signal_connect(webView_.get(), "decide-policy", G_CALLBACK(handleDecidePolicy), this);
  g_signal_connect(webView_.get(), "load-changed", G_CALLBACK(handleLoadChanged), this);
  g_signal_connect(webView_.get(), "load-failed", G_CALLBACK(handleLoadFailed), this);
  g_signal_connect(webView_.get(), "web-process-terminated", G_CALLBACK(handleWebProcessTerminated),
                   this);
  g_signal_connect(webView_.get(), "context-menu", G_CALLBACK(handleContextMenu), this);
}

ReaderWebViewHost::~ReaderWebViewHost() {
  close();
  g_signal_handlers_disconnect_by_data(webView_.get(), this);
  g_signal_handlers_disconnect_by_data(contentManager_.get(), this);
}

void ReaderWebViewHost::registerPublication(const Uuid& publicationID,
                                            const std::filesystem::path& root) {
  schemeHandler_->registerPublication(publicationID, root);
}

async::Task<void> ReaderWebViewHost::prepareRuntime(std::filesystem::path runtimeDirectory,
                                                    std::chrono::steady_clock::duration timeout) {
  if (isClosed_) throwFailure(ReaderWebViewHostFailure::closed);
  if (runtimeLoadCompletion_) throwFailure(ReaderWebViewHostFailure::alreadyLoading);
  schemeHandler_->setRuntimeProvider(PublicationResourceProvider(runtimeDirectory));

  const auto completion = std::make_shared<async::Completion<void>>();
  runtimeLoadCompletion_ = completion;
  runtimeLoadTimeout_.emplace();
  async::spawn(runRuntimeLoadTimeout(weak_from_this(), timeout), runtimeLoadTimeout_->get_token());
  webkit_web_view_load_uri(webView_.get(), std::string(kReaderRuntimeEntryURL).c_str());
  co_await *completion;
}

async::Task<void> ReaderWebViewHost::runRuntimeLoadTimeout(
    std::weak_ptr<ReaderWebViewHost> host, std::chrono::steady_clock::duration timeout) {
  try {
    co_await async::sleepFor(timeout);
  } catch (const async::OperationCancelled&) {
    co_return;
  }
  if (const auto strong = host.lock()) {
    strong->completeRuntimeLoad(ReaderWebViewHostFailure::runtimeLoadTimedOut);
  }
}

void ReaderWebViewHost::completeRuntimeLoad(std::optional<ReaderWebViewHostFailure> failure) {
  if (!runtimeLoadCompletion_) return;
  const auto completion = std::exchange(runtimeLoadCompletion_, nullptr);
  if (runtimeLoadTimeout_) {
    runtimeLoadTimeout_->request_stop();
    runtimeLoadTimeout_.reset();
  }
  if (failure) {
    completion->reject(std::make_exception_ptr(ReaderWebViewHostFailureError(*failure)));
  } else {
    completion->resolve();
  }
}

void ReaderWebViewHost::close() {
  if (isClosed_) return;
  isClosed_ = true;
  webkit_web_view_stop_loading(webView_.get());
  schemeHandler_->cancelAllLoads();
  bridge_->incrementGeneration();
  bridge_->failAllPending(ReaderBridgeFailure(BridgeCase::readerClosed));
  completeRuntimeLoad(ReaderWebViewHostFailure::closed);
  if (messageHandlerRegistered_) {
    webkit_user_content_manager_unregister_script_message_handler(
        contentManager_.get(), std::string(kReaderBridgeMessageHandler).c_str(),
        std::string(kReaderBridgeScriptWorld).c_str());
    messageHandlerRegistered_ = false;
  }
  // The life-event handlers go; the policy handler stays and from now on cancels everything,
  // because a view without one would allow any navigation.
  g_signal_handlers_disconnect_by_func(webView_.get(),
                                       reinterpret_cast<gpointer>(handleLoadChanged), this);
  g_signal_handlers_disconnect_by_func(webView_.get(), reinterpret_cast<gpointer>(handleLoadFailed),
                                       this);
  g_signal_handlers_disconnect_by_func(
      webView_.get(), reinterpret_cast<gpointer>(handleWebProcessTerminated), this);
  g_signal_handlers_disconnect_by_data(contentManager_.get(), this);
}

void ReaderWebViewHost::handleLoadChanged(WebKitWebView* webView, WebKitLoadEvent event,
                                          gpointer data) {
  auto* host = static_cast<ReaderWebViewHost*>(data);
  if (event == WEBKIT_LOAD_STARTED) {
    host->currentLoadFailed_ = false;
    host->bridge_->incrementGeneration();
    host->bridge_->failAllPending(ReaderBridgeFailure(BridgeCase::navigationReset));
    return;
  }
  if (event == WEBKIT_LOAD_FINISHED && !host->currentLoadFailed_) {
    const char* uri = webkit_web_view_get_uri(webView);
    if (uri != nullptr && parseRuntimeResourcePath(uri)) host->completeRuntimeLoad(std::nullopt);
  }
}

gboolean ReaderWebViewHost::handleLoadFailed(WebKitWebView*, WebKitLoadEvent event, const char*,
                                             GError*, gpointer data) {
  auto* host = static_cast<ReaderWebViewHost*>(data);
  host->currentLoadFailed_ = true;
  // Only a navigation that never committed ends a runtime load.
  if (event == WEBKIT_LOAD_STARTED) {
    host->completeRuntimeLoad(ReaderWebViewHostFailure::runtimeLoadFailed);
  }
  return TRUE;  // no error page
}

void ReaderWebViewHost::handleWebProcessTerminated(WebKitWebView*,
                                                   WebKitWebProcessTerminationReason,
                                                   gpointer data) {
  auto* host = static_cast<ReaderWebViewHost*>(data);
  host->bridge_->incrementGeneration();
  host->bridge_->failAllPending(ReaderBridgeFailure(BridgeCase::webContentProcessTerminated));
  host->completeRuntimeLoad(ReaderWebViewHostFailure::webContentProcessTerminated);
}

gboolean ReaderWebViewHost::handleDecidePolicy(WebKitWebView*, WebKitPolicyDecision* decision,
                                               WebKitPolicyDecisionType type, gpointer data) {
  auto* host = static_cast<ReaderWebViewHost*>(data);
  if (host->isClosed_) {
    webkit_policy_decision_ignore(decision);
    return TRUE;
  }
  if (type == WEBKIT_POLICY_DECISION_TYPE_RESPONSE) {
    auto* responseDecision = WEBKIT_RESPONSE_POLICY_DECISION(decision);
    WebKitURIResponse* response = webkit_response_policy_decision_get_response(responseDecision);
    const char* uri = response != nullptr ? webkit_uri_response_get_uri(response) : nullptr;
    const char* mimeType =
        response != nullptr ? webkit_uri_response_get_mime_type(response) : nullptr;
    const ReaderResponseTarget target =
        webkit_response_policy_decision_is_main_frame_main_resource(responseDecision)
            ? ReaderResponseTarget::mainFrameDocument
            : ReaderResponseTarget::otherResource;
    if (uri == nullptr || decideReaderResponse(uri, mimeType != nullptr ? mimeType : "", target) !=
                              ReaderNavigationDecision::allow) {
      webkit_policy_decision_ignore(decision);
    } else {
      webkit_policy_decision_use(decision);
    }
    return TRUE;
  }

  WebKitNavigationAction* action = webkit_navigation_policy_decision_get_navigation_action(
      WEBKIT_NAVIGATION_POLICY_DECISION(decision));
  const std::optional<std::string_view> uri = requestURI(action);
  const ReaderNavigationTrigger trigger =
      webkit_navigation_action_get_navigation_type(action) == WEBKIT_NAVIGATION_TYPE_LINK_CLICKED
          ? ReaderNavigationTrigger::linkActivated
          : ReaderNavigationTrigger::other;
  ReaderNavigationDecision verdict = decideReaderNavigation(uri, trigger);
  // A new window is never made; only a clicked web link leaves, through the system browser.
  if (type == WEBKIT_POLICY_DECISION_TYPE_NEW_WINDOW_ACTION &&
      verdict == ReaderNavigationDecision::allow) {
    verdict = ReaderNavigationDecision::cancel;
  }
  switch (verdict) {
    case ReaderNavigationDecision::allow:
      webkit_policy_decision_use(decision);
      break;
    case ReaderNavigationDecision::openExternally: {
      webkit_policy_decision_ignore(decision);
      if (host->onExternalLink) host->onExternalLink(std::string(*uri));
      break;
    }
    case ReaderNavigationDecision::cancel:
      webkit_policy_decision_ignore(decision);
      break;
  }
  return TRUE;
}

ReaderWebViewSize ReaderWebViewHost::viewSize() const {
  GtkWidget* view = GTK_WIDGET(webView_.get());
  return {static_cast<double>(gtk_widget_get_width(view)),
          static_cast<double>(gtk_widget_get_height(view))};
}

gboolean ReaderWebViewHost::handleContextMenu(WebKitWebView*, WebKitContextMenu*,
                                              WebKitHitTestResult*, gpointer) {
  return TRUE;  // the standard menu never shows; highlights have their own
}

void ReaderWebViewHost::handleScriptMessage(WebKitUserContentManager*, JSCValue* value,
                                            gpointer data) {
  auto* host = static_cast<ReaderWebViewHost*>(data);
  // The forwarder posts each message as JSON text.
  if (value == nullptr || !jsc_value_is_string(value)) return;
  const GLibString text(jsc_value_to_string(value));
  if (!text) return;
  try {
    host->bridge_->receiveMessageText(text.get());
  } catch (const std::exception& error) {
    // A session callback failed; the message handler must never unwind into WebKit.
    g_warning("A reader event handler failed: %s", error.what());
  }
}

}  // namespace tomekeeper
