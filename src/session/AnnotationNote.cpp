#include "session/AnnotationNote.h"

#include <memory>

#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

namespace tomekeeper {

std::string AnnotationNote::trimmed(const std::string& text) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
  const auto length = static_cast<int32_t>(text.size());
  int32_t start = 0;
  while (start < length) {
    int32_t next = start;
    UChar32 character;
    U8_NEXT(bytes, next, length, character);
    if (character < 0 || !u_isUWhiteSpace(character)) break;
    start = next;
  }
  int32_t end = length;
  while (end > start) {
    int32_t previous = end;
    UChar32 character;
    U8_PREV(bytes, start, previous, character);
    if (character < 0 || !u_isUWhiteSpace(character)) break;
    end = previous;
  }
  return text.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(end - start));
}

std::size_t AnnotationNote::graphemeCount(const std::string& text) {
  const icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(text);
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::BreakIterator> iterator(
      icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
  if (U_FAILURE(status) || !iterator) return static_cast<std::size_t>(unicode.countChar32());
  iterator->setText(unicode);
  std::size_t count = 0;
  iterator->first();
  while (iterator->next() != icu::BreakIterator::DONE) ++count;
  return count;
}

AnnotationNote::Outcome AnnotationNote::fromEditedText(const std::string& text) {
  std::string note = trimmed(text);
  if (graphemeCount(note) > kMaximumGraphemeCount) return {std::nullopt, true};
  if (note.empty()) return {std::nullopt, false};
  return {std::move(note), false};
}

}  // namespace tomekeeper
