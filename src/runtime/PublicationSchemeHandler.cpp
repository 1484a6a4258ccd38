#include "runtime/PublicationSchemeHandler.h"

#include <fcntl.h>
#include <libsoup/soup.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "async/BackgroundPool.h"
#include "async/Spawn.h"
#include "platform/GObjectHandle.h"
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

// An open file, closed when it goes.
class OpenFile {
 public:
  explicit OpenFile(const std::filesystem::path& path)
      : descriptor_(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW)) {
    if (descriptor_ < 0) throw std::system_error(errno, std::generic_category(), "open");
  }
  ~OpenFile() { ::close(descriptor_); }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  std::size_t size() const {
    struct stat status {};
    if (fstat(descriptor_, &status) != 0) {
      throw std::system_error(errno, std::generic_category(), "fstat");
    }
    return static_cast<std::size_t>(status.st_size);
  }

  // Up to `length` bytes from `offset`; fewer only at the end of the file.
  std::string read(std::size_t offset, std::size_t length) const {
    std::string data;
    data.reserve(std::min<std::size_t>(length, 64U * 1024U * 1024U));
    char buffer[64 * 1024];
    while (data.size() < length) {
      const ssize_t count =
          ::pread(descriptor_, buffer, std::min(sizeof buffer, length - data.size()),
                  static_cast<off_t>(offset + data.size()));
      if (count < 0) {
        if (errno == EINTR) continue;
        throw std::system_error(errno, std::generic_category(), "read");
      }
      if (count == 0) break;
      data.append(buffer, static_cast<std::size_t>(count));
    }
    return data;
  }

 private:
  int descriptor_;
};

// The one byte range that a Range header asks of a file of `size` bytes, inclusive at both
// ends, as libsoup reads the header. Absent when the header is not a valid "bytes=" header or
// asks for several ranges: the whole file is then the answer, as HTTP allows.
struct ByteRangeSelection {
  bool satisfiable;
  std::size_t first;
  std::size_t last;
};

std::optional<ByteRangeSelection> selectByteRange(const std::string& header, std::size_t size) {
  SoupMessageHeaders* headers = soup_message_headers_new(SOUP_MESSAGE_HEADERS_REQUEST);
  soup_message_headers_append(headers, "Range", header.c_str());
  SoupRange* ranges = nullptr;
  int count = 0;
  std::optional<ByteRangeSelection> selection;
  if (soup_message_headers_get_ranges(headers, static_cast<goffset>(size), &ranges, &count)) {
    if (count == 1) {
      const goffset first = std::max<goffset>(ranges[0].start, 0);
      const goffset last = std::min<goffset>(ranges[0].end, static_cast<goffset>(size) - 1);
      selection = first <= last && first < static_cast<goffset>(size)
                      ? ByteRangeSelection{true, static_cast<std::size_t>(first),
                                           static_cast<std::size_t>(last)}
                      : ByteRangeSelection{false, 0, 0};
    }
    soup_message_headers_free_ranges(headers, ranges);
  }
  soup_message_headers_unref(headers);
  return selection;
}

enum class StyleCarrier { none, styleSheet, markupDocument };

StyleCarrier servedStyleCarrier(std::string_view mimeType) {
  std::string essence(mimeType.substr(0, mimeType.find(';')));
  for (char& character : essence) character = g_ascii_tolower(character);
  while (!essence.empty() && g_ascii_isspace(essence.back())) essence.pop_back();
  if (essence == "text/css") return StyleCarrier::styleSheet;
  if (essence == "application/xhtml+xml" || essence == "image/svg+xml" || essence == "text/html") {
    return StyleCarrier::markupDocument;
  }
  return StyleCarrier::none;
}

// A document's bytes as the page's decoding of it alone gives its text, in UTF-8: a byte order
// mark decides the encoding and goes (UTF-16 is converted), anything else is taken as UTF-8.
// Absent for UTF-16 that does not convert.
std::optional<std::string> textAsThePageDecodesIt(std::string bytes) {
  const auto startsWith = [&](std::string_view mark) {
    return std::string_view(bytes).substr(0, mark.size()) == mark;
  };
  if (startsWith("\xEF\xBB\xBF")) return bytes.substr(3);
  const char* encoding = startsWith("\xFF\xFE")   ? "UTF-16LE"
                         : startsWith("\xFE\xFF") ? "UTF-16BE"
                                                  : nullptr;
  if (encoding == nullptr) return bytes;
  gsize written = 0;
  gchar* converted = g_convert(bytes.data() + 2, static_cast<gssize>(bytes.size() - 2), "UTF-8",
                               encoding, nullptr, &written, nullptr);
  if (converted == nullptr) return std::nullopt;
  std::string text(converted, written);
  g_free(converted);
  return text;
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
  PublicationResourceProvider provider(root);
  std::optional<PublicationManifestListing> manifest = PublicationManifestListing::read(provider);
  publications_.insert_or_assign(
      publicationID, Publication{std::move(provider),
                                 manifest ? std::make_shared<const PublicationManifestListing>(
                                                std::move(*manifest))
                                          : nullptr});
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
      return Target{*runtimeProvider_, std::move(*path), ContentSecurityPolicyUse::omitted,
                    nullptr};
    }
  }
  if (std::optional<PublicationSchemeRoute> route = parsePublicationSchemeRoute(*resolved)) {
    const auto found = publications_.find(route->publicationID);
    if (found != publications_.end()) {
      return Target{found->second.provider, std::move(route->resourcePath),
                    ContentSecurityPolicyUse::applied, found->second.manifest};
    }
    return std::nullopt;
  }
  // A link that climbed past the container root, or began with "/", has lost the id; it can
  // only be meant for the one publication this web view shows.
  if (publications_.size() == 1) {
    if (std::optional<std::string> path = parseContainerRootResourcePath(*resolved)) {
      const Publication& only = publications_.begin()->second;
      return Target{only.provider, std::move(*path), ContentSecurityPolicyUse::applied,
                    only.manifest};
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
  std::function<Payload()> read;
  if (std::optional<PublicationSectionBatchRoute> batch = parsePublicationSectionBatchRoute(uri)) {
    const auto found = publications_.find(batch->publicationID);
    if (found == publications_.end()) {
      failWithoutPermission(request);
      return;
    }
    read = [publication = found->second, paths = std::move(batch->resourcePaths)] {
      return readSectionBatch(publication, paths);
    };
  } else {
    std::optional<Target> found = target(uri);
    if (!found) {
      failWithoutPermission(request);
      return;
    }
    std::optional<std::string> rangeHeader;
    if (SoupMessageHeaders* headers = webkit_uri_scheme_request_get_http_headers(request)) {
      if (const char* range = soup_message_headers_get_one(headers, "Range")) rangeHeader = range;
    }
    read = [target = std::move(*found), rangeHeader = std::move(rangeHeader)] {
      return readPayload(target, rangeHeader);
    };
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
  async::spawn(runLoad(weak_from_this(), std::move(weakRequest), std::move(read)), token);
}

void PublicationSchemeHandler::stop(WebKitURISchemeRequest* request) {
  const auto found = loads_.find(request);
  if (found == loads_.end()) return;
  std::stop_source load = std::move(found->second);
  loads_.erase(found);
  load.request_stop();
}

PublicationSchemeHandler::Payload PublicationSchemeHandler::readPayload(
    const Target& target, const std::optional<std::string>& rangeHeader) {
  const PublicationResource resource = target.provider.resource(target.path, target.policyUse);
  if (target.manifest && !target.manifest->lists(resource.fileURL)) {
    throwFailure(PublicationResourceError::notListed);
  }
  const OpenFile file(resource.fileURL);
  const std::size_t size = file.size();
  const StyleCarrier carrier = target.policyUse == ContentSecurityPolicyUse::applied
                                   ? servedStyleCarrier(resource.mimeType)
                                   : StyleCarrier::none;
  Payload payload{{}, resource.mimeType, resource.contentSecurityPolicy, 200, std::nullopt, false};
  // Media seek by asking for byte ranges. A file that is rewritten as it is served has no
  // stable bytes to take a range of, so it always comes whole.
  if (carrier == StyleCarrier::none) {
    payload.acceptsRanges = true;
    if (rangeHeader) {
      if (const std::optional<ByteRangeSelection> range = selectByteRange(*rangeHeader, size)) {
        if (range->satisfiable) {
          payload.data = file.read(range->first, range->last - range->first + 1);
        }
        // A file that shrank since its size was taken leaves nothing to send.
        if (payload.data.empty()) {
          payload.status = 416;
          payload.contentRange = "bytes */" + std::to_string(size);
          return payload;
        }
        payload.status = 206;
        payload.contentRange = "bytes " + std::to_string(range->first) + "-" +
                               std::to_string(range->first + payload.data.size() - 1) + "/" +
                               std::to_string(size);
        return payload;
      }
    }
  }
  payload.data = file.read(0, size);
  // A book's CSS is served with its EPUB prefixed properties in their standard forms; the
  // runtime's own files are served as they are.
  switch (carrier) {
    case StyleCarrier::styleSheet:
      payload.data = PrefixedCSSRewriter::rewriteStyleSheet(payload.data);
      break;
    case StyleCarrier::markupDocument:
      payload.data = PrefixedCSSDocumentRewriter::rewriteDocument(payload.data);
      break;
    case StyleCarrier::none:
      break;
  }
  return payload;
}

PublicationSchemeHandler::Payload PublicationSchemeHandler::readSectionBatch(
    const Publication& publication, const std::vector<std::string>& resourcePaths) {
  const auto refusal = [](unsigned status, std::string reason) {
    return Payload{
        std::move(reason), "text/plain", std::string(kPublicationContentSecurityPolicy), status,
        std::nullopt,      false};
  };
  if (resourcePaths.empty() || resourcePaths.size() > kMaximumSectionBatchItems) {
    return refusal(
        400, "a batch names from 1 to " + std::to_string(kMaximumSectionBatchItems) + " sections");
  }
  if (!publication.manifest) return refusal(403, "the publication has no spine to serve");
  std::vector<Target> targets;
  std::size_t totalBytes = 0;
  for (const std::string& resourcePath : resourcePaths) {
    Target target{publication.provider, withDotPiecesResolved(resourcePath),
                  ContentSecurityPolicyUse::applied, publication.manifest};
    std::filesystem::path file;
    try {
      file = target.provider.resource(target.path, target.policyUse).fileURL;
    } catch (const PublicationResourceErrorError&) {
      return refusal(403, "not a section of the book: " + resourcePath);
    }
    if (!publication.manifest->isSpineItem(file)) {
      return refusal(403, "not a section of the book: " + resourcePath);
    }
    totalBytes += OpenFile(file).size();
    if (totalBytes > kMaximumSectionBatchBytes) {
      return refusal(413, "the sections weigh more than " +
                              std::to_string(kMaximumSectionBatchBytes) + " bytes together");
    }
    targets.push_back(std::move(target));
  }
  nlohmann::json texts = nlohmann::json::array();
  for (const Target& target : targets) {
    std::optional<std::string> text = textAsThePageDecodesIt(readPayload(target).data);
    if (!text) return refusal(422, "a section does not decode: " + target.path);
    texts.push_back(std::move(*text));
  }
  return Payload{texts.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace),
                 "application/json",
                 std::string(kPublicationContentSecurityPolicy),
                 200,
                 std::nullopt,
                 false};
}

async::Task<void> PublicationSchemeHandler::runLoad(std::weak_ptr<PublicationSchemeHandler> handler,
                                                    std::shared_ptr<GWeakRef> weakRequest,
                                                    std::function<Payload()> read) {
  std::optional<Payload> payload;
  GError* error = nullptr;
  try {
    payload = co_await async::runInBackground(std::move(read));
  } catch (const async::OperationCancelled&) {
    co_return;  // stopped before the read began
  } catch (const PublicationResourceErrorError& refusal) {
    // A file the book does not list is simply not there for its pages.
    if (refusal.failure() == PublicationResourceError::notListed) {
      payload = Payload{{},  "text/plain", std::string(kPublicationContentSecurityPolicy),
                        404, std::nullopt, false};
    } else {
      error = g_error_new_literal(publicationResourceErrorQuark(),
                                  static_cast<int>(refusal.failure()), refusal.what());
    }
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
  webkit_uri_scheme_response_set_status(response.get(), payload->status,
                                        soup_status_get_phrase(payload->status));
  webkit_uri_scheme_response_set_content_type(response.get(), payload->mimeType.c_str());
  SoupMessageHeaders* headers = soup_message_headers_new(SOUP_MESSAGE_HEADERS_RESPONSE);
  soup_message_headers_append(headers, "Content-Type", payload->mimeType.c_str());
  soup_message_headers_append(headers, "Cache-Control", "no-store");
  if (payload->acceptsRanges) soup_message_headers_append(headers, "Accept-Ranges", "bytes");
  if (payload->contentRange) {
    soup_message_headers_append(headers, "Content-Range", payload->contentRange->c_str());
  }
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
