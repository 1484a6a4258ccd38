#pragma once

#include <webkit/webkit.h>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "async/Task.h"
#include "model/Uuid.h"
#include "platform/GObjectHandle.h"
#include "runtime/PublicationManifestListing.h"
#include "runtime/PublicationResourceProvider.h"

namespace tomekeeper {

// Serves the "tomekeeper" scheme for one web view: the reader runtime under /runtime/ and the
// publications registered under their ids, nothing else. Requests of other web views never
// reach it, so a window's pages can name only that window's publications. Files are read on
// the background pool; a response carries status 200, Content-Type, Cache-Control "no-store"
// and, for a book's HTML documents, the content policy. A file of a book that its manifest does
// not list is answered with 404. The documents of several spine items come in one response
// through the batch route (parsePublicationSectionBatchRoute; see readSectionBatch), which
// spares the page a round trip per section when it reads a whole book. A request that was stopped
// (its web view went away, its load was cancelled, or cancelAllLoads ran) is never answered.
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
    unsigned status = 200;  // 206 for a range, 404 for an unlisted file, 416 for a bad range
    std::optional<std::string> contentRange;
    bool acceptsRanges = false;  // served as stored, so a range of it can be asked for
  };

  // A registered publication: where it lies, and what of it may be served (absent for a
  // directory without a container document, all of which may be).
  struct Publication {
    PublicationResourceProvider provider;
    std::shared_ptr<const PublicationManifestListing> manifest;
  };

  // Which provider answers a URL, with which path and policy use.
  struct Target {
    PublicationResourceProvider provider;
    std::string path;
    ContentSecurityPolicyUse policyUse;
    std::shared_ptr<const PublicationManifestListing> manifest;  // absent: no listing to hold to
  };

  static std::shared_ptr<PublicationSchemeHandler> create();
  ~PublicationSchemeHandler();
  PublicationSchemeHandler(const PublicationSchemeHandler&) = delete;
  PublicationSchemeHandler& operator=(const PublicationSchemeHandler&) = delete;

  // Sends the scheme's requests of `webView` here from now on. The scheme is registered on
  // the default web context at the first call of the process.
  void attach(WebKitWebView* webView);

  // Makes the publication extracted at `root` reachable under `publicationID`, reading its
  // container and package documents for the files it lists (PublicationManifestListing).
  // Throws PublicationResourceErrorError(unavailable) for an unusable root or a container or
  // package document that cannot be read.
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
  // PublicationResourceErrorError for a refused path (notListed for a file that the target's
  // manifest does not list), std::system_error when the file cannot be read.
  // With `rangeHeader` (a request's Range) naming one byte range of a file served as stored,
  // only that range is read: status 206 with its Content-Range, or 416 when the range lies past
  // the end. Any other Range header, or one for a rewritten file, gets the whole file.
  static Payload readPayload(const Target& target,
                             const std::optional<std::string>& rangeHeader = std::nullopt);

  // What one batch may name, and what its documents may weigh together on disk. The page parses
  // a batch in one go on the thread that turns its pages, so a batch stays small enough to parse
  // within a frame; a page asking for more is refused and asks for halves.
  static constexpr std::size_t kMaximumSectionBatchItems = 256;
  static constexpr std::size_t kMaximumSectionBatchBytes = 1024U * 1024U;

  // Reads the documents of `publication` that `resourcePaths` name (route paths, percent-encoded),
  // each as readPayload serves it alone, into one response: status 200 with a JSON array of their
  // texts in the order asked, decoded as the page decodes a single document (a byte order mark
  // chooses UTF-8 or UTF-16 and goes; bytes that are not UTF-8 become U+FFFD). Refused whole, with
  // a plain-text reason: 400 for no path or more than kMaximumSectionBatchItems; 403 for a path
  // that is not the document of an itemref of the spine, or one that is missing (or a publication
  // without a manifest listing); 413 when the files together pass kMaximumSectionBatchBytes; 422
  // for UTF-16 that does not convert. Every answer carries the content policy. Runs off the main
  // executor; throws std::system_error when a file cannot be read.
  static Payload readSectionBatch(const Publication& publication,
                                  const std::vector<std::string>& resourcePaths);

 private:
  PublicationSchemeHandler() = default;
  // Runs `read` on the background pool and answers the request with what it gives.
  static async::Task<void> runLoad(std::weak_ptr<PublicationSchemeHandler> handler,
                                   std::shared_ptr<GWeakRef> request,
                                   std::function<Payload()> read);
  void finishLoad(WebKitURISchemeRequest* request, const Payload* payload, GError* error);

  std::map<Uuid, Publication> publications_;
  std::optional<PublicationResourceProvider> runtimeProvider_;
  // Loads under way, by the identity of their request.
  std::map<WebKitURISchemeRequest*, std::stop_source> loads_;
  std::unique_ptr<GObjectWeakReference<WebKitWebView>> attachedWebView_;
};

}  // namespace tomekeeper
