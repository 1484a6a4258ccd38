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
  std::string resourcePath;  // percent-decoded once, as the URL's path; never empty

  bool operator==(const PublicationSchemeRoute&) const = default;
};

// The route of `url`, or absent when the scheme is not exactly "tomekeeper", the host not
// exactly "publication", the path does not decode, its second piece is no UUID, or no resource
// path follows. Inner empty pieces ("a//b.html") are kept for the provider to refuse. A query
// or fragment is ignored. Pure; any thread.
std::optional<PublicationSchemeRoute> parsePublicationSchemeRoute(std::string_view url);

// The path behind "/runtime/" of `url` when it is a runtime URL with a non-empty runtime path
// ("tomekeeper://publication/runtime/index.html" gives "index.html"); absent otherwise.
std::optional<std::string> parseRuntimeResourcePath(std::string_view url);

}  // namespace tomekeeper
