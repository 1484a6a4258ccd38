#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace tomekeeper {

// The rules of a highlight's note text.
struct AnnotationNote {
  // The most user-perceived characters (extended grapheme clusters) a note may hold.
  static constexpr std::size_t kMaximumGraphemeCount = 4000;

  // `text` without white space and line breaks (Unicode White_Space) at either end.
  static std::string trimmed(const std::string& text);

  // The number of extended grapheme clusters of UTF-8 `text` (ICU).
  static std::size_t graphemeCount(const std::string& text);

  // The note to store for the edited `text`: trimmed, absent when that leaves nothing. Absent
  // result and `exceedsLimit` true when the trimmed text is longer than the maximum.
  struct Outcome {
    std::optional<std::string> note;
    bool exceedsLimit = false;
  };
  static Outcome fromEditedText(const std::string& text);
};

}  // namespace tomekeeper
