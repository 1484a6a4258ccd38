#include "runtime/PublicationSchemeRoute.h"

#include <vector>

#include "runtime/PercentDecoding.h"

namespace tomekeeper {

namespace {

constexpr std::string_view kRuntimePrefix = "/runtime/";

// The percent-decoded path of a URL of this scheme and host, compared exactly: no user, no
// port, no other spelling. Absent when the URL is of another kind or its path does not decode.
std::optional<std::string> decodedSchemePath(std::string_view url) {
  std::string prefix(kPublicationScheme);
  prefix += "://";
  prefix += kPublicationSchemeHost;
  if (url.substr(0, prefix.size()) != prefix) return std::nullopt;
  url.remove_prefix(prefix.size());
  const std::size_t pathEnd = url.find_first_of("?#");
  const std::string_view path = url.substr(0, pathEnd);
  if (path.empty() || path.front() != '/') return std::nullopt;
  return percentDecoded(path);
}

}  // namespace

std::optional<PublicationSchemeRoute> parsePublicationSchemeRoute(std::string_view url) {
  const std::optional<std::string> path = decodedSchemePath(url);
  if (!path) return std::nullopt;
  std::vector<std::string_view> pieces;
  std::string_view rest(*path);
  while (true) {
    const std::size_t slash = rest.find('/');
    pieces.push_back(rest.substr(0, slash));
    if (slash == std::string_view::npos) break;
    rest.remove_prefix(slash + 1);
  }
  if (pieces.size() < 3 || !pieces[0].empty()) return std::nullopt;
  const std::optional<Uuid> publicationID = Uuid::fromString(pieces[1]);
  if (!publicationID) return std::nullopt;
  std::string resourcePath;
  for (std::size_t index = 2; index < pieces.size(); ++index) {
    if (index > 2) resourcePath += '/';
    resourcePath += pieces[index];
  }
  if (resourcePath.empty()) return std::nullopt;
  return PublicationSchemeRoute{*publicationID, std::move(resourcePath)};
}

std::optional<std::string> parseRuntimeResourcePath(std::string_view url) {
  std::optional<std::string> path = decodedSchemePath(url);
  if (!path || path->compare(0, kRuntimePrefix.size(), kRuntimePrefix) != 0) return std::nullopt;
  std::string runtimePath = path->substr(kRuntimePrefix.size());
  if (runtimePath.empty()) return std::nullopt;
  return runtimePath;
}

}  // namespace tomekeeper
