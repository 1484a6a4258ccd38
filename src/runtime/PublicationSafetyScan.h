#pragma once

#include <cstddef>
#include <filesystem>
#include <set>
#include <stop_token>
#include <string>
#include <string_view>

namespace tomekeeper {

// What the documents of one book try to do, every one of which the reader blocks: run script
// (script elements, event-handler attributes, javascript: addresses), reach the web (addresses
// in src, href, srcset, poster and data, CSS url() and @import), submit forms, refresh or
// redirect (meta refresh), and show frames, objects and embeds. Documents that are not well
// formed XML are counted apart: they are shown as HTML, and their attempts are not counted.
// Links out of the book (a and area) are no attempt: following one asks the reader first. They
// are counted apart too.
struct PublicationSafetyReport {
  std::size_t scriptElements = 0;
  std::size_t eventHandlerAttributes = 0;
  std::size_t javascriptURLs = 0;
  std::size_t webReferences = 0;
  std::size_t forms = 0;
  std::size_t metaRefreshes = 0;
  std::size_t frames = 0;
  std::size_t objectsAndEmbeds = 0;
  std::size_t unreadableDocuments = 0;
  std::size_t webLinks = 0;
  // The web addresses named, the first kMaximumListedWebAddresses of them in name order.
  std::set<std::string> webAddresses;

  bool triedScript() const noexcept {
    return scriptElements + eventHandlerAttributes + javascriptURLs > 0;
  }
  bool triedTheWeb() const noexcept { return webReferences > 0; }
  bool operator==(const PublicationSafetyReport&) const = default;
};

inline constexpr std::size_t kMaximumListedWebAddresses = 200;

// Counts what the XHTML, SVG or XML document `text` tries into `report`; a document that is not
// well formed, or declares entities, counts as unreadable. Nothing outside the text is read.
void scanPublicationDocument(std::string_view text, PublicationSafetyReport& report);
// Counts the web references of the style sheet `text` (url() and @import) into `report`.
void scanPublicationStyleSheet(std::string_view text, PublicationSafetyReport& report);

// Scans every document and style sheet under the extracted book at `root`, by the type its
// name gives, following no symbolic link. Blocking file reads: call it on the background pool.
// Stops early, with what it counted so far, when `stopToken` is stopped. Throws
// std::filesystem::filesystem_error when `root` cannot be listed.
PublicationSafetyReport scanPublicationSafety(const std::filesystem::path& root,
                                              std::stop_token stopToken = {});

}  // namespace tomekeeper
