// Feeds arbitrary bytes to the rewriter of EPUB's prefixed CSS, as a style sheet and as a style
// attribute, and checks what must hold for any text: a text without "-epub-" comes back as it
// was, only runs of name characters ever change (so no string, comment, url() or brace moves),
// and a second rewrite changes nothing.
#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "runtime/PrefixedCSSRewriter.h"

namespace {

bool containsPrefixIgnoringCase(std::string_view text) {
  std::string lowered(text);
  std::transform(lowered.begin(), lowered.end(), lowered.begin(),
                 [](unsigned char character) { return std::tolower(character); });
  return lowered.find("-epub-") != std::string::npos;
}

std::string withoutNameCharacters(std::string_view text) {
  std::string kept;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (!std::isalnum(byte) && byte != '-' && byte != '_') kept.push_back(character);
  }
  return kept;
}

void check(std::string_view input, std::string (*rewrite)(std::string_view)) {
  const std::string output = rewrite(input);
  if (!containsPrefixIgnoringCase(input) && output != input) std::abort();
  if (withoutNameCharacters(output) != withoutNameCharacters(input)) std::abort();
  if (rewrite(output) != output) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  check(text, &tomekeeper::PrefixedCSSRewriter::rewriteStyleSheet);
  check(text, &tomekeeper::PrefixedCSSRewriter::rewriteStyleAttribute);
  return 0;
}
