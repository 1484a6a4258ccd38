#include "runtime/PublicationSchemeRoute.h"

#include <vector>

#include "runtime/PercentDecoding.h"

namespace tomekeeper {

namespace {

constexpr std::string_view kRuntimePrefix = "/runtime/";

// The path of a URL of this scheme and host, compared exactly (no user, no port, no other
// spelling), still percent-encoded: the provider decodes it once, so a "%25" in a file's name
// stays a "%". Absent when the URL is of another kind or its path does not decode.
std::optional<std::string> encodedSchemePath(std::string_view url) {
  std::string prefix(kPublicationScheme);
  prefix += "://";
  prefix += kPublicationSchemeHost;
  if (url.substr(0, prefix.size()) != prefix) return std::nullopt;
  url.remove_prefix(prefix.size());
  const std::size_t pathEnd = url.find_first_of("?#");
  const std::string_view path = url.substr(0, pathEnd);
  if (path.empty() || path.front() != '/' || !percentDecoded(path)) return std::nullopt;
  return std::string(path);
}

std::string schemePrefix() {
  std::string prefix(kPublicationScheme);
  prefix += "://";
  prefix += kPublicationSchemeHost;
  return prefix;
}

std::string asciiLowercased(std::string_view text) {
  std::string lower(text);
  for (char& character : lower) {
    if (character >= 'A' && character <= 'Z') character = static_cast<char>(character - 'A' + 'a');
  }
  return lower;
}

bool isSingleDotPiece(std::string_view piece) {
  const std::string lower = asciiLowercased(piece);
  return lower == "." || lower == "%2e";
}

bool isDoubleDotPiece(std::string_view piece) {
  const std::string lower = asciiLowercased(piece);
  return lower == ".." || lower == ".%2e" || lower == "%2e." || lower == "%2e%2e";
}

}  // namespace

std::string withDotPiecesResolved(std::string_view path) {
  std::vector<std::string_view> pieces;
  while (true) {
    const std::size_t slash = path.find('/');
    const std::string_view piece = path.substr(0, slash);
    const bool last = slash == std::string_view::npos;
    if (isDoubleDotPiece(piece)) {
      if (!pieces.empty()) pieces.pop_back();
      if (last) pieces.emplace_back();
    } else if (isSingleDotPiece(piece)) {
      if (last) pieces.emplace_back();
    } else {
      pieces.push_back(piece);
    }
    if (last) break;
    path.remove_prefix(slash + 1);
  }
  std::string resolved;
  for (std::size_t index = 0; index < pieces.size(); ++index) {
    if (index > 0) resolved += '/';
    resolved += pieces[index];
  }
  return resolved;
}

std::optional<std::string> publicationSchemeURLWithResolvedPath(std::string_view url) {
  const std::string prefix = schemePrefix();
  if (url.substr(0, prefix.size()) != prefix) return std::nullopt;
  url.remove_prefix(prefix.size());
  const std::string_view path = url.substr(0, url.find_first_of("?#"));
  if (path.empty() || path.front() != '/') return std::nullopt;
  return prefix + "/" + withDotPiecesResolved(path.substr(1));
}

std::optional<std::string> parseContainerRootResourcePath(std::string_view url) {
  if (parsePublicationSchemeRoute(url)) return std::nullopt;
  std::optional<std::string> path = encodedSchemePath(url);
  if (!path || path->size() < 2) return std::nullopt;
  const std::string_view firstPiece = std::string_view(*path).substr(1, path->find('/', 1) - 1);
  if (firstPiece == "runtime" || Uuid::fromString(firstPiece)) return std::nullopt;
  return path->substr(1);
}

std::optional<PublicationSchemeRoute> parsePublicationSchemeRoute(std::string_view url) {
  const std::optional<std::string> path = encodedSchemePath(url);
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

std::optional<PublicationSectionBatchRoute> parsePublicationSectionBatchRoute(
    std::string_view url) {
  const std::string prefix = schemePrefix() + "/";
  if (url.substr(0, prefix.size()) != prefix) return std::nullopt;
  url.remove_prefix(prefix.size());
  url = url.substr(0, url.find('#'));
  const std::size_t query = url.find("/?");
  if (query == std::string_view::npos) return std::nullopt;
  const std::optional<Uuid> publicationID = Uuid::fromString(url.substr(0, query));
  if (!publicationID) return std::nullopt;
  std::string_view parameters = url.substr(query + 2);
  constexpr std::string_view kSectionParameter = "section=";
  PublicationSectionBatchRoute route{*publicationID, {}};
  while (true) {
    const std::size_t ampersand = parameters.find('&');
    const std::string_view parameter = parameters.substr(0, ampersand);
    if (parameter.substr(0, kSectionParameter.size()) != kSectionParameter) return std::nullopt;
    std::optional<std::string> path = percentDecoded(parameter.substr(kSectionParameter.size()));
    if (!path || path->empty()) return std::nullopt;
    route.resourcePaths.push_back(std::move(*path));
    if (ampersand == std::string_view::npos) break;
    parameters.remove_prefix(ampersand + 1);
  }
  return route;
}

std::optional<std::string> parseRuntimeResourcePath(std::string_view url) {
  std::optional<std::string> path = encodedSchemePath(url);
  if (!path || path->compare(0, kRuntimePrefix.size(), kRuntimePrefix) != 0) return std::nullopt;
  std::string runtimePath = path->substr(kRuntimePrefix.size());
  if (runtimePath.empty()) return std::nullopt;
  return runtimePath;
}

}  // namespace tomekeeper
