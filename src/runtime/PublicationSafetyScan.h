#pragma once

#include <cstddef>
#include <filesystem>
#include <set>
#include <stop_token>
#include <string>
#include <string_view>

#include "opening/PublicationIntakeFindings.h"
#include "runtime/PublicationManifestListing.h"
#include "runtime/PublicationResourceProvider.h"

namespace tomekeeper {

// What the documents of one book try to do, every one of which the reader blocks: run script
// (script elements, event-handler attributes, javascript: addresses), reach the web (addresses
// in src, href, srcset, poster and data, CSS url() and @import), submit forms, refresh or
// redirect (meta refresh), and show frames, objects and embeds. Documents that are not well
// formed XML are counted apart: they are shown as HTML, and their attempts are not counted.
// Links out of the book (a and area) are no attempt: following one asks the reader first. They
// are counted apart too. A reference that loads a file of the book which its manifest does not
// list (src, href, data, poster, srcset, url() and @import; not a link, not a form's action) is
// counted too: the reader answers it with "not found", so the page shows without that file.
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
  std::size_t unlistedReferences = 0;
  // The paths, from the book's root, of the unlisted files named, the first
  // kMaximumListedUnlistedPaths of them; percent-encoded as the references give them.
  std::set<std::string> unlistedPaths;
  // What the book's intake found before any document was read. The scan leaves it empty; the
  // holder of the prepared book fills it in.
  PublicationIntakeFindings intake;

  bool triedScript() const noexcept {
    return scriptElements + eventHandlerAttributes + javascriptURLs > 0;
  }
  bool triedTheWeb() const noexcept { return webReferences > 0; }
  bool operator==(const PublicationSafetyReport&) const = default;
};

inline constexpr std::size_t kMaximumListedWebAddresses = 200;
inline constexpr std::size_t kMaximumListedUnlistedPaths = 200;

// Where a scanned document or style sheet sits in its extracted book, so that its relative
// references can be resolved (as the reader's scheme resolves them: "/" from the root, ".."
// stopping there) and held to the manifest. A reference counts as unlisted only when it names a
// file that exists in the book; one that names nothing is merely broken. Borrows `provider` and
// `listing`, which must outlive every scan given this context.
struct PublicationReferenceContext {
  const PublicationResourceProvider& provider;
  const PublicationManifestListing& listing;
  // The path of the scanned file from the book's root, percent-encoded ("OEBPS/text/c1.xhtml").
  std::string documentPath;
};

// Counts what the XHTML, SVG or XML document `text` tries into `report`; a document that is not
// well formed, or declares entities, counts as unreadable. Without `references` nothing outside
// the text is read and no reference counts as unlisted; with it, each relative reference is
// looked up in the book (file metadata only).
void scanPublicationDocument(std::string_view text, PublicationSafetyReport& report,
                             const PublicationReferenceContext* references = nullptr);
// Counts the web references of the style sheet `text` (url() and @import) into `report`, and
// its unlisted ones when `references` is given.
void scanPublicationStyleSheet(std::string_view text, PublicationSafetyReport& report,
                               const PublicationReferenceContext* references = nullptr);

// Scans every document and style sheet under the extracted book at `root`, by the type its
// name gives, following no symbolic link, and holds their references to the manifest that
// `root`'s container names. A root without a container, or whose container or package document
// cannot be read, has no manifest to hold to: nothing there counts as unlisted (the reader
// refuses such a book elsewhere, with its own error). Blocking file reads: call it on the
// background pool. Stops early, with what it counted so far, when `stopToken` is stopped. Throws
// std::filesystem::filesystem_error when `root` cannot be listed.
PublicationSafetyReport scanPublicationSafety(const std::filesystem::path& root,
                                              std::stop_token stopToken = {});

}  // namespace tomekeeper
