#include "session/PageLabel.h"

#include <algorithm>

namespace tomekeeper {

std::optional<std::string> pageLabel(ReadingMode readingMode,
                                     const std::optional<ReaderPositionResult>& position,
                                     std::int64_t effectiveColumnCount) {
  if (readingMode != ReadingMode::paginated || !position || position->pageCount < 1) {
    return std::nullopt;
  }
  const std::string word = effectiveColumnCount > 1 ? "Spread" : "Page";
  const std::int64_t page = std::clamp<std::int64_t>(position->page, 1, position->pageCount);
  return word + " " + std::to_string(page) + " / " + std::to_string(position->pageCount);
}

}  // namespace tomekeeper
