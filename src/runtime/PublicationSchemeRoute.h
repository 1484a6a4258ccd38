#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/Uuid.h"

namespace tomekeeper {

// The private scheme through which the web view reaches the reader runtime and the books.
inline constexpr std::string_view kPublicationScheme = "tomekeeper";
inline constexpr std::string_view kPublicationSchemeHost = "publication";
// The base of every publication's URLs.
inline constexpr std::string_view kPublicationSchemeBaseURL = "tomekeeper://publication/";
// The reader runtime's entry page.
inline constexpr std::string_view kReaderRuntimeEntryURL =
    "tomekeeper://publication/runtime/index.html";

// A request for one resource of one registered publication:
// "tomekeeper://publication/<UUID>/<resource path>".
struct PublicationSchemeRoute {
  Uuid publicationID;
  std::string resourcePath;  // still percent-encoded, as the URL's path; never empty

  bool operator==(const PublicationSchemeRoute&) const = default;
};

// A request for the documents of several spine items of one registered publication at once:
// "tomekeeper://publication/<UUID>/?section=<path>&section=<path>...", each path the item's
// resource path as a route holds it, percent-encoded once more as a query value. The empty
// resource path after the id names no file, so no book's file can take this route's place.
struct PublicationSectionBatchRoute {
  Uuid publicationID;
  std::vector<std::string> resourcePaths;  // in the order asked, still percent-encoded

  bool operator==(const PublicationSectionBatchRoute&) const = default;
};

// The batch route of `url`, or absent when `url` is not exactly this scheme's and host's
// "/<UUID>/" followed by a query of "section" parameters alone, at least one, each of whose
// values decodes to a non-empty path. A fragment is ignored. How many paths it may name is the
// handler's to decide. Pure; any thread.
std::optional<PublicationSectionBatchRoute> parsePublicationSectionBatchRoute(std::string_view url);

// The route of `url`, or absent when the scheme is not exactly "tomekeeper", the host not
// exactly "publication", the path does not decode, its second piece is no UUID, or no resource
// path follows. Inner empty pieces ("a//b.html") are kept for the provider to refuse. A query
// or fragment is ignored. Pure; any thread.
std::optional<PublicationSchemeRoute> parsePublicationSchemeRoute(std::string_view url);

// `path`, pieces separated by "/" and no leading "/", with its dot pieces resolved as the URL
// standard resolves them: "." and "%2e" pieces go, and ".." (also ".%2e", "%2e." and "%2e%2e",
// in any case) takes the piece before it away, never climbing above the first piece; a dot
// piece at the end leaves an empty last piece. Pieces stay encoded. Pure; any thread.
std::string withDotPiecesResolved(std::string_view path);

// `url` with the dot pieces of its path resolved as the URL standard resolves them: "." and
// "%2e" pieces go, and ".." (also ".%2e", "%2e." and "%2e%2e", in any case) takes the piece
// before it away, never climbing above the host's root; a query or fragment is dropped and the
// pieces stay encoded. Absent when the scheme or host is not exactly this scheme's. The web view
// resolves a book's links so already; this makes the handler hold to it whatever reaches it.
// Pure; any thread.
std::optional<std::string> publicationSchemeURLWithResolvedPath(std::string_view url);

// The path, percent-encoded as a route's resource path is, of a URL of this scheme whose first
// piece is neither a publication id nor "runtime": what a book's link becomes once its ".."
// steps have climbed past the container root or when it starts with "/". Absent for other URLs
// and for an empty path or one that does not decode. Pure; any thread.
std::optional<std::string> parseContainerRootResourcePath(std::string_view url);

// The path behind "/runtime/" of `url` when it is a runtime URL with a non-empty runtime path
// ("tomekeeper://publication/runtime/index.html" gives "index.html"); absent otherwise.
std::optional<std::string> parseRuntimeResourcePath(std::string_view url);

}  // namespace tomekeeper
