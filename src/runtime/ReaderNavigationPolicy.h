#pragma once

#include <optional>
#include <string_view>

namespace tomekeeper {

// What the web view host does with a navigation.
enum class ReaderNavigationDecision { allow, cancel, openExternally };

// How a navigation was started, as far as the policy cares.
enum class ReaderNavigationTrigger { linkActivated, other };

// Whether a response is the main frame's document.
enum class ReaderResponseTarget { mainFrameDocument, otherResource };

// The decision on a navigation action, taken before anything is requested. WebKitGTK does not
// say which frame a navigation action targets, so the frame rules are split: here a link
// click to an http, https, mailto or tel address opens externally, which the host's owner
// must ask the reader about first (the runtime page carries no such links; book pages do),
// runtime URLs and publication routes go on, "about" (exactly) goes on, and everything else -
// other schemes, other hosts, web addresses reached any other way - is cancelled, so nothing
// leaves the machine. Which frame may hold what is enforced by decideReaderResponse. Pure.
ReaderNavigationDecision decideReaderNavigation(std::optional<std::string_view> url,
                                                ReaderNavigationTrigger trigger);

// The decision on a response of the private scheme, where WebKit tells the main frame's
// document apart: the main frame holds only runtime URLs, no other frame may hold a runtime
// page (an HTML or XHTML document under /runtime/), and a book's response in another frame is
// either an HTML or XHTML document or of a passive type (publicationContentKind): an SVG or XML
// document of the book is never a frame's document. Subresources pass. Pure.
ReaderNavigationDecision decideReaderResponse(std::string_view url, std::string_view mimeType,
                                              ReaderResponseTarget target);

}  // namespace tomekeeper
