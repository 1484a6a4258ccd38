#pragma once

#include <optional>
#include <string>
#include <string_view>

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
