#include "runtime/ReaderNavigationPolicy.h"

#include <glib.h>

#include <string>

#include "runtime/PublicationResourceProvider.h"
#include "runtime/PublicationSchemeRoute.h"

namespace tomekeeper {

namespace {

// The scheme of `url` (before the first ":"), or empty when it has none.
std::string_view schemeOf(std::string_view url) {
  const std::size_t colon = url.find(':');
  if (colon == std::string_view::npos || colon == 0) return {};
  const std::string_view scheme = url.substr(0, colon);
  if (!g_ascii_isalpha(scheme.front())) return {};
  for (const char character : scheme) {
    if (!g_ascii_isalnum(character) && character != '+' && character != '-' && character != '.') {
      return {};
    }
  }
  return scheme;
}

// The schemes of addresses that a reader may take out of the book, once they agree: the web,
// mail and telephone. Anything else (file, data, javascript, another application's scheme) is
// never handed to the desktop.
bool isLeavingScheme(std::string_view scheme) {
  std::string lower(scheme);
  for (char& character : lower) character = g_ascii_tolower(character);
  return lower == "http" || lower == "https" || lower == "mailto" || lower == "tel";
}

// The type without parameters, in lower case.
std::string mimeEssence(std::string_view mimeType) {
  std::string essence(mimeType.substr(0, mimeType.find(';')));
  for (char& character : essence) character = g_ascii_tolower(character);
  while (!essence.empty() && g_ascii_isspace(essence.back())) essence.pop_back();
  return essence;
}

}  // namespace

ReaderNavigationDecision decideReaderNavigation(std::optional<std::string_view> url,
                                                ReaderNavigationTrigger trigger) {
  if (!url || url->empty()) return ReaderNavigationDecision::cancel;
  const std::string_view scheme = schemeOf(*url);
  if (trigger == ReaderNavigationTrigger::linkActivated && isLeavingScheme(scheme)) {
    return ReaderNavigationDecision::openExternally;
  }
  if (parsePublicationSchemeRoute(*url) || parseRuntimeResourcePath(*url)) {
    return ReaderNavigationDecision::allow;
  }
  if (scheme == "about") return ReaderNavigationDecision::allow;
  return ReaderNavigationDecision::cancel;
}

ReaderNavigationDecision decideReaderResponse(std::string_view url, std::string_view mimeType,
                                              ReaderResponseTarget target) {
  const bool runtime = parseRuntimeResourcePath(url).has_value();
  if (target == ReaderResponseTarget::mainFrameDocument) {
    return runtime ? ReaderNavigationDecision::allow : ReaderNavigationDecision::cancel;
  }
  const std::string essence = mimeEssence(mimeType);
  const bool framedType = essence == "text/html" || essence == "application/xhtml+xml";
  if (runtime && framedType) return ReaderNavigationDecision::cancel;
  // A book document that the runtime does not frame (SVG, XML, anything unknown) is no frame's
  // document either, whoever asked for it.
  if (!runtime && parsePublicationSchemeRoute(url) && !framedType &&
      publicationContentKind(essence) == PublicationContentKind::document) {
    return ReaderNavigationDecision::cancel;
  }
  return ReaderNavigationDecision::allow;
}

}  // namespace tomekeeper
