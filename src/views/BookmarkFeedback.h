#pragma once

#include <string>

namespace tomekeeper {

// The note that appears over the page after a bookmark action.
enum class BookmarkFeedback { added, removed, failed };

// "Bookmark added", "Bookmark removed", "Couldn’t update bookmark".
std::string bookmarkFeedbackText(BookmarkFeedback feedback);
// The symbolic icon shown beside the text.
const char* bookmarkFeedbackIconName(BookmarkFeedback feedback);

}  // namespace tomekeeper
