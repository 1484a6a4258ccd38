#pragma once

#include <webkit/webkit.h>

#include <cstddef>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

#include "async/Task.h"
#include "model/Uuid.h"
#include "runtime/GObjectHandle.h"
#include "runtime/PublicationResourceProvider.h"

namespace tomekeeper {

// Serves the "tomekeeper" scheme for one web view: the reader runtime under /runtime/ and the
// publications registered under their ids, nothing else. Requests of other web views never
// reach it, so a window's pages can name only that window's publications. Files are read on
// the background pool; a response carries status 200, Content-Type, Cache-Control "no-store"
// and, for a book's HTML documents, the content policy. A request that was stopped (its web
// view went away, its load was cancelled, or cancelAllLoads ran) is never answered.
//
// Made with create() and owned by the web view host; confined to the main executor. Load
// tasks hold it weakly.
class PublicationSchemeHandler : public std::enable_shared_from_this<PublicationSchemeHandler> {
 public:
  // A file read for a request, carried from the background pool to the main executor.
  struct Payload {
    std::string data;
    std::string mimeType;
    std::optional<std::string> contentSecurityPolicy;
  };

  // Which provider answers a URL, with which path and policy use.
  struct Target {
    PublicationResourceProvider provider;
    std::string path;
    ContentSecurityPolicyUse policyUse;
  };

  static std::shared_ptr<PublicationSchemeHandler> create();
  ~PublicationSchemeHandler();
  PublicationSchemeHandler(const PublicationSchemeHandler&) = delete;
  PublicationSchemeHandler& operator=(const PublicationSchemeHandler&) = delete;

  // Sends the scheme's requests of `webView` here from now on. The scheme is registered on
  // the default web context at the first call of the process.
  void attach(WebKitWebView* webView);

  // Makes the publication extracted at `root` reachable under `publicationID`. Throws
  // PublicationResourceErrorError(unavailable) for an unusable root.
  void registerPublication(const Uuid& publicationID, const std::filesystem::path& root);
  // The provider of the /runtime/ tree; absent until the host prepares the runtime.
  void setRuntimeProvider(PublicationResourceProvider provider);

  // Where `url`, its dot pieces resolved as the URL standard does, leads: the runtime provider
  // for a runtime path once it is set (no policy), else a registered publication's provider
  // (with the policy). A path whose first piece is neither "runtime" nor a publication id is
  // taken from the container root of the only publication registered here (a book's link
  // whose ".." steps climbed past that root, or that began with "/"); with none or several
  // registered it leads nowhere. Absent otherwise.
  std::optional<Target> target(std::string_view url) const;

  // Forgets every load under way and cancels it; none of them will be answered.
  void cancelAllLoads();
  std::size_t loadCount() const noexcept { return loads_.size(); }

  // Entries from WebKit.
  void start(WebKitURISchemeRequest* request);
  void stop(WebKitURISchemeRequest* request);

  // Reads the resource of `target` into memory; a publication's style sheets and the CSS in
  // its XHTML, SVG and HTML documents come with their EPUB prefixed properties rewritten
  // (PrefixedCSSRewriter, PrefixedCSSDocumentRewriter). Runs off the main executor. Throws
  // PublicationResourceErrorError for a refused path, std::system_error when the file cannot
  // be read.
  static Payload readPayload(const Target& target);

 private:
  PublicationSchemeHandler() = default;
  static async::Task<void> runLoad(std::weak_ptr<PublicationSchemeHandler> handler,
                                   std::shared_ptr<GWeakRef> request, Target target);
  void finishLoad(WebKitURISchemeRequest* request, const Payload* payload, GError* error);

  std::map<Uuid, PublicationResourceProvider> providers_;
  std::optional<PublicationResourceProvider> runtimeProvider_;
  // Loads under way, by the identity of their request.
  std::map<WebKitURISchemeRequest*, std::stop_source> loads_;
  std::unique_ptr<GObjectWeakReference<WebKitWebView>> attachedWebView_;
};

}  // namespace tomekeeper
