#include "views/BookmarkFeedback.h"

namespace tomekeeper {

std::string bookmarkFeedbackText(BookmarkFeedback feedback) {
  switch (feedback) {
    case BookmarkFeedback::added:
      return "Bookmark added";
    case BookmarkFeedback::removed:
      return "Bookmark removed";
    case BookmarkFeedback::failed:
      return "Couldn\u2019t update bookmark";
  }
  return {};
}

const char* bookmarkFeedbackIconName(BookmarkFeedback feedback) {
  switch (feedback) {
    case BookmarkFeedback::added:
      return "user-bookmarks-symbolic";
    case BookmarkFeedback::removed:
      return "edit-delete-symbolic";
    case BookmarkFeedback::failed:
      return "dialog-warning-symbolic";
  }
  return "";
}

}  // namespace tomekeeper
