#include "runtime/PublicationSchemeHandler.h"

#include <fcntl.h>
#include <libsoup/soup.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>
#include <system_error>
#include <utility>

#include "async/BackgroundPool.h"
#include "async/Spawn.h"
#include "runtime/GObjectHandle.h"
#include "runtime/PrefixedCSSDocumentRewriter.h"
#include "runtime/PrefixedCSSRewriter.h"
#include "runtime/PublicationSchemeRoute.h"

namespace tomekeeper {

namespace {

GQuark publicationResourceErrorQuark() {
  return g_quark_from_static_string("PublicationResourceError");
}

// Every web view's handler, by web view. Main executor only.
std::map<WebKitWebView*, std::weak_ptr<PublicationSchemeHandler>>& handlersByWebView() {
  static std::map<WebKitWebView*, std::weak_ptr<PublicationSchemeHandler>> handlers;
  return handlers;
}

void failRequest(WebKitURISchemeRequest* request, GQuark domain, int code, const char* message) {
  GError* error = g_error_new_literal(domain, code, message);
  webkit_uri_scheme_request_finish_error(request, error);
  g_error_free(error);
}

void failWithoutPermission(WebKitURISchemeRequest* request) {
  failRequest(request, G_IO_ERROR, G_IO_ERROR_PERMISSION_DENIED, "noPermissionsToReadFile");
}

void dispatchSchemeRequest(WebKitURISchemeRequest* request, gpointer) {
  WebKitWebView* webView = webkit_uri_scheme_request_get_web_view(request);
  const auto& handlers = handlersByWebView();
  const auto found = handlers.find(webView);
  const std::shared_ptr<PublicationSchemeHandler> handler =
      found == handlers.end() ? nullptr : found->second.lock();
  if (!handler) {
    failWithoutPermission(request);
    return;
  }
  handler->start(request);
}

void forgetWebView(gpointer webView, GObject*) {
  handlersByWebView().erase(static_cast<WebKitWebView*>(webView));
}

// Told by GObject when WebKit lets go of a request: if it was still loading, it was stopped.
void requestFinalized(gpointer data, GObject* request) {
  auto* handler = static_cast<std::weak_ptr<PublicationSchemeHandler>*>(data);
  if (const auto strong = handler->lock()) {
    strong->stop(reinterpret_cast<WebKitURISchemeRequest*>(request));
  }
  delete handler;
}

std::string readWholeFile(const std::filesystem::path& path) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), "open");
  std::string data;
  struct stat status {};
  if (fstat(descriptor, &status) == 0 && status.st_size > 0) {
    data.reserve(static_cast<std::size_t>(status.st_size));
  }
  char buffer[64 * 1024];
  while (true) {
    const ssize_t count = ::read(descriptor, buffer, sizeof buffer);
    if (count < 0) {
      if (errno == EINTR) continue;
      const int error = errno;
      ::close(descriptor);
      throw std::system_error(error, std::generic_category(), "read");
    }
    if (count == 0) break;
    data.append(buffer, static_cast<std::size_t>(count));
  }
  ::close(descriptor);
  return data;
}

enum class StyleCarrier { none, styleSheet, markupDocument };

StyleCarrier servedStyleCarrier(std::string_view mimeType) {
  std::string essence(mimeType.substr(0, mimeType.find(';')));
  for (char& character : essence) character = g_ascii_tolower(character);
  while (!essence.empty() && g_ascii_isspace(essence.back())) essence.pop_back();
  if (essence == "text/css") return StyleCarrier::styleSheet;
  if (essence == "application/xhtml+xml" || essence == "image/svg+xml" ||
      essence == "text/html") {
    return StyleCarrier::markupDocument;
  }
  return StyleCarrier::none;
}

}  // namespace

std::shared_ptr<PublicationSchemeHandler> PublicationSchemeHandler::create() {
  return std::shared_ptr<PublicationSchemeHandler>(new PublicationSchemeHandler());
}

PublicationSchemeHandler::~PublicationSchemeHandler() {
  cancelAllLoads();
  // A web view that is already gone has removed its entry itself.
  if (attachedWebView_) {
    if (const auto webView = attachedWebView_->lock()) {
      g_object_weak_unref(G_OBJECT(webView.get()), forgetWebView, webView.get());
      handlersByWebView().erase(webView.get());
    }
  }
}

void PublicationSchemeHandler::attach(WebKitWebView* webView) {
  static std::once_flag registered;
  std::call_once(registered, [] {
    webkit_web_context_register_uri_scheme(webkit_web_context_get_default(),
                                           std::string(kPublicationScheme).c_str(),
                                           dispatchSchemeRequest, nullptr, nullptr);
  });
  attachedWebView_ = std::make_unique<GObjectWeakReference<WebKitWebView>>(webView);
  handlersByWebView()[webView] = weak_from_this();
  g_object_weak_ref(G_OBJECT(webView), forgetWebView, webView);
}

void PublicationSchemeHandler::registerPublication(const Uuid& publicationID,
                                                   const std::filesystem::path& root) {
  providers_.insert_or_assign(publicationID, PublicationResourceProvider(root));
}

void PublicationSchemeHandler::setRuntimeProvider(PublicationResourceProvider provider) {
  runtimeProvider_ = std::move(provider);
}

std::optional<PublicationSchemeHandler::Target> PublicationSchemeHandler::target(
    std::string_view url) const {
  const std::optional<std::string> resolved = publicationSchemeURLWithResolvedPath(url);
  if (!resolved) return std::nullopt;
  if (runtimeProvider_) {
    if (std::optional<std::string> path = parseRuntimeResourcePath(*resolved)) {
      return Target{*runtimeProvider_, std::move(*path), ContentSecurityPolicyUse::omitted};
    }
  }
  if (std::optional<PublicationSchemeRoute> route = parsePublicationSchemeRoute(*resolved)) {
    const auto found = providers_.find(route->publicationID);
    if (found != providers_.end()) {
      return Target{found->second, std::move(route->resourcePath),
                    ContentSecurityPolicyUse::applied};
    }
    return std::nullopt;
  }
  // A link that climbed past the container root, or began with "/", has lost the id; it can
  // only be meant for the one publication this web view shows.
  if (providers_.size() == 1) {
    if (std::optional<std::string> path = parseContainerRootResourcePath(*resolved)) {
      return Target{providers_.begin()->second, std::move(*path),
                    ContentSecurityPolicyUse::applied};
    }
  }
  return std::nullopt;
}

void PublicationSchemeHandler::cancelAllLoads() {
  std::map<WebKitURISchemeRequest*, std::stop_source> loads = std::exchange(loads_, {});
  for (auto& [request, load] : loads) load.request_stop();
}

void PublicationSchemeHandler::start(WebKitURISchemeRequest* request) {
  const char* uri = webkit_uri_scheme_request_get_uri(request);
  if (uri == nullptr) {
    failWithoutPermission(request);
    return;
  }
  std::optional<Target> found = target(uri);
  if (!found) {
    failWithoutPermission(request);
    return;
  }
  auto weakRequest = std::shared_ptr<GWeakRef>(new GWeakRef, [](GWeakRef* reference) {
    g_weak_ref_clear(reference);
    delete reference;
  });
  g_weak_ref_init(weakRequest.get(), request);
  g_object_weak_ref(G_OBJECT(request), requestFinalized,
                    new std::weak_ptr<PublicationSchemeHandler>(weak_from_this()));
  std::stop_source load;
  const std::stop_token token = load.get_token();
  loads_.insert_or_assign(request, std::move(load));
  async::spawn(runLoad(weak_from_this(), std::move(weakRequest), std::move(*found)), token);
}

void PublicationSchemeHandler::stop(WebKitURISchemeRequest* request) {
  const auto found = loads_.find(request);
  if (found == loads_.end()) return;
  std::stop_source load = std::move(found->second);
  loads_.erase(found);
  load.request_stop();
}

PublicationSchemeHandler::Payload PublicationSchemeHandler::readPayload(const Target& target) {
  const PublicationResource resource = target.provider.resource(target.path, target.policyUse);
  Payload payload{readWholeFile(resource.fileURL), resource.mimeType,
                  resource.contentSecurityPolicy};
  // A book's CSS is served with its EPUB prefixed properties in their standard forms; the
  // runtime's own files are served as they are.
  if (target.policyUse == ContentSecurityPolicyUse::applied) {
    switch (servedStyleCarrier(payload.mimeType)) {
      case StyleCarrier::styleSheet:
        payload.data = PrefixedCSSRewriter::rewriteStyleSheet(payload.data);
        break;
      case StyleCarrier::markupDocument:
        payload.data = PrefixedCSSDocumentRewriter::rewriteDocument(payload.data);
        break;
      case StyleCarrier::none:
        break;
    }
  }
  return payload;
}

async::Task<void> PublicationSchemeHandler::runLoad(std::weak_ptr<PublicationSchemeHandler> handler,
                                                    std::shared_ptr<GWeakRef> weakRequest,
                                                    Target target) {
  std::optional<Payload> payload;
  GError* error = nullptr;
  try {
    payload = co_await async::runInBackground([target] { return readPayload(target); });
  } catch (const async::OperationCancelled&) {
    co_return;  // stopped before the read began
  } catch (const PublicationResourceErrorError& refusal) {
    error = g_error_new_literal(publicationResourceErrorQuark(),
                                static_cast<int>(refusal.failure()), refusal.what());
  } catch (const std::system_error& readFailure) {
    error = g_error_new_literal(G_IO_ERROR, g_io_error_from_errno(readFailure.code().value()),
                                readFailure.what());
  } catch (const std::exception& other) {
    error = g_error_new_literal(G_IO_ERROR, G_IO_ERROR_FAILED, other.what());
  }
  const auto strongHandler = handler.lock();
  const auto request = GObjectHandle<WebKitURISchemeRequest>::adopt(
      static_cast<WebKitURISchemeRequest*>(g_weak_ref_get(weakRequest.get())));
  if (strongHandler && request) {
    strongHandler->finishLoad(request.get(), payload ? &*payload : nullptr, error);
  }
  if (error != nullptr) g_error_free(error);
}

void PublicationSchemeHandler::finishLoad(WebKitURISchemeRequest* request, const Payload* payload,
                                          GError* error) {
  // A request whose entry is gone was stopped and must not be touched again.
  if (loads_.erase(request) == 0) return;
  if (payload == nullptr) {
    webkit_uri_scheme_request_finish_error(request, error);
    return;
  }
  GBytes* bytes = g_bytes_new(payload->data.data(), payload->data.size());
  const auto stream =
      GObjectHandle<GInputStream>::adopt(g_memory_input_stream_new_from_bytes(bytes));
  g_bytes_unref(bytes);
  const auto response = GObjectHandle<WebKitURISchemeResponse>::adopt(
      webkit_uri_scheme_response_new(stream.get(), static_cast<gint64>(payload->data.size())));
  if (!response) {
    failRequest(request, G_IO_ERROR, G_IO_ERROR_FAILED, "badServerResponse");
    return;
  }
  webkit_uri_scheme_response_set_status(response.get(), 200, "OK");
  webkit_uri_scheme_response_set_content_type(response.get(), payload->mimeType.c_str());
  SoupMessageHeaders* headers = soup_message_headers_new(SOUP_MESSAGE_HEADERS_RESPONSE);
  soup_message_headers_append(headers, "Content-Type", payload->mimeType.c_str());
  soup_message_headers_append(headers, "Cache-Control", "no-store");
  // The served type is the one the policy was decided by; the web view must not guess another.
  soup_message_headers_append(headers, "X-Content-Type-Options", "nosniff");
  if (payload->contentSecurityPolicy) {
    soup_message_headers_append(headers, "Content-Security-Policy",
                                payload->contentSecurityPolicy->c_str());
  }
  webkit_uri_scheme_response_set_http_headers(response.get(), headers);  // takes the headers
  webkit_uri_scheme_request_finish_with_response(request, response.get());
}

}  // namespace tomekeeper
