#include "model/Bookmark.h"

#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "model/Hashing.h"
#include "model/JSONCoding.h"

namespace tomekeeper {

namespace {

constexpr std::int32_t kTitleCharacterLimit = 80;

// `text` without white space and line breaks at either end. The Unicode White_Space property
// is exactly the space separators, the line and paragraph separators, U+0009 to U+000D and
// U+0085: the blanks a person would not count as part of an excerpt.
icu::UnicodeString trimmedOfWhiteSpace(const icu::UnicodeString& text) {
  std::int32_t start = 0;
  std::int32_t end = text.length();
  while (start < end && u_isUWhiteSpace(text.char32At(start))) start = text.moveIndex32(start, 1);
  while (end > start) {
    const std::int32_t previous = text.moveIndex32(end, -1);
    if (!u_isUWhiteSpace(text.char32At(previous))) break;
    end = previous;
  }
  return icu::UnicodeString(text, start, end - start);
}

// The first `limit` grapheme clusters of `text`, so that no emoji, flag or letter with its
// combining marks is cut apart.
icu::UnicodeString leadingCharacters(const icu::UnicodeString& text, std::int32_t limit) {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::BreakIterator> characters(
      icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
  if (U_FAILURE(status)) return text;  // ICU without its break data; keep the whole excerpt
  characters->setText(text);
  std::int32_t end = characters->first();
  for (std::int32_t count = 0; count < limit; ++count) {
    const std::int32_t next = characters->next();
    if (next == icu::BreakIterator::DONE) break;
    end = next;
  }
  return icu::UnicodeString(text, 0, end);
}

}  // namespace

std::string bookmarkTitle(const Locator& locator) {
  if (locator.excerpt) {
    const icu::UnicodeString trimmed =
        trimmedOfWhiteSpace(icu::UnicodeString::fromUTF8(locator.excerpt->exact));
    if (!trimmed.isEmpty()) {
      std::string title;
      leadingCharacters(trimmed, kTitleCharacterLimit).toUTF8String(title);
      return title;
    }
  }
  if (!locator.totalProgression || !std::isfinite(*locator.totalProgression)) return "Bookmark";
  const double progression = std::clamp(*locator.totalProgression, 0.0, 1.0);
  // std::round rounds halves away from zero.
  const auto percent = static_cast<long long>(std::round(progression * 100.0));
  return "Bookmark at " + std::to_string(percent) + "%";
}

void to_json(nlohmann::json& json, const Bookmark& bookmark) {
  json = nlohmann::json::object();
  json["id"] = bookmark.id;
  json["bookFingerprint"] = bookmark.bookFingerprint;
  json["locator"] = bookmark.locator;
  json["title"] = bookmark.title;
  json["createdAt"] = bookmark.createdAt;
}

void from_json(const nlohmann::json& json, Bookmark& bookmark) {
  requireJSONObject(json, "Bookmark");
  bookmark = Bookmark{
      .id = decodeRequiredField<Uuid>(json, "id"),
      .bookFingerprint = decodeRequiredField<std::string>(json, "bookFingerprint"),
      .locator = decodeRequiredField<Locator>(json, "locator"),
      .title = decodeRequiredField<std::string>(json, "title"),
      .createdAt = decodeRequiredField<Date>(json, "createdAt"),
  };
}

}  // namespace tomekeeper

std::size_t std::hash<tomekeeper::Bookmark>::operator()(
    const tomekeeper::Bookmark& bookmark) const noexcept {
  return tomekeeper::hashFields(bookmark.id, bookmark.bookFingerprint, bookmark.locator,
                                bookmark.title, bookmark.createdAt);
}
