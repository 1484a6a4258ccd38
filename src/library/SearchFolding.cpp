#include "library/SearchFolding.h"

#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

namespace tomekeeper {

namespace {

// Typographic quotes that a reader types as the plain ones.
UChar32 plainQuote(UChar32 codePoint) {
  switch (codePoint) {
    case 0x2018:
    case 0x2019:
    case 0x02BC:
      return '\'';
    case 0x201C:
    case 0x201D:
      return '"';
    default:
      return codePoint;
  }
}

bool isDiacriticMark(UChar32 codePoint) {
  return (U_GET_GC_MASK(codePoint) & U_GC_M_MASK) != 0 &&
         u_hasBinaryProperty(codePoint, UCHAR_DIACRITIC);
}

}  // namespace

std::string foldForSearch(std::string_view text) {
  const icu::UnicodeString source = icu::UnicodeString::fromUTF8(
      icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* decomposition = icu::Normalizer2::getNFKDInstance(status);
  icu::UnicodeString decomposed =
      U_SUCCESS(status) ? decomposition->normalize(source, status) : source;
  if (U_FAILURE(status)) decomposed = source;

  icu::UnicodeString kept;
  bool pendingSpace = false;
  for (int32_t index = 0; index < decomposed.length(); index = decomposed.moveIndex32(index, 1)) {
    const UChar32 codePoint = decomposed.char32At(index);
    if (u_isUWhiteSpace(codePoint)) {
      pendingSpace = !kept.isEmpty();
      continue;
    }
    if (isDiacriticMark(codePoint) ||
        u_hasBinaryProperty(codePoint, UCHAR_DEFAULT_IGNORABLE_CODE_POINT)) {
      continue;
    }
    if (pendingSpace) kept.append(static_cast<UChar>(' '));
    pendingSpace = false;
    kept.append(plainQuote(codePoint));
  }
  kept.foldCase();
  std::string folded;
  kept.toUTF8String(folded);
  return folded;
}

bool foldedContains(std::string_view folded, std::string_view foldedNeedle) {
  return folded.find(foldedNeedle) != std::string_view::npos;
}

}  // namespace tomekeeper
