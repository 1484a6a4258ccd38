// Feeds arbitrary bytes to the rewriter of the CSS in XHTML and SVG documents and checks what
// must hold for any document: one that cannot hold a prefixed name (no "epub-" and no
// reference) comes back as it was, and a second rewrite changes nothing, so what the first
// wrote back is read again as the CSS it rewrote.
#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "runtime/PrefixedCSSDocumentRewriter.h"

namespace {

bool mayHoldPrefixedName(std::string_view text) {
  std::string lowered(text);
  std::transform(lowered.begin(), lowered.end(), lowered.begin(),
                 [](unsigned char character) { return std::tolower(character); });
  return lowered.find("epub-") != std::string::npos || lowered.find('&') != std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view document(reinterpret_cast<const char*>(data), size);
  const std::string once = tomekeeper::PrefixedCSSDocumentRewriter::rewriteDocument(document);
  if (!mayHoldPrefixedName(document) && once != document) std::abort();
  if (tomekeeper::PrefixedCSSDocumentRewriter::rewriteDocument(once) != once) std::abort();
  return 0;
}
