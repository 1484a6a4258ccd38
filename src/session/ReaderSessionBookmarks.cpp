// Bookmarks: toggling one at the current location, removing and jumping to one, and the set of
// bookmarks on the visible page, which only the runtime can tell.

#include <algorithm>
#include <utility>

#include "session/ReaderSession.h"

namespace tomekeeper {

async::Task<void> ReaderSession::reloadBookmarks() {
  std::vector<Bookmark> reloaded = co_await bookmarkRepository_->bookmarks(*fingerprint_);
  bookmarks_.set(std::move(reloaded));
}

async::Task<std::optional<BookmarkToggle>> ReaderSession::toggleBookmark() {
  if (state_.value() != State::ready) co_return std::nullopt;
  const auto keepAlive = shared_from_this();
  std::exception_ptr failure;
  std::optional<Bookmark> existing;
  try {
    const Locator current = co_await bridge().currentLocator();
    const std::vector<Bookmark>& list = bookmarks_.value();
    const auto found = std::find_if(list.begin(), list.end(), [&](const Bookmark& bookmark) {
      return bookmark.locator == current;
    });
    if (found != list.end()) {
      existing = *found;
    } else {
      Bookmark bookmark{Uuid::random(), fingerprint_.value_or(""), current, bookmarkTitle(current),
                        Date::now()};
      if (bookmarkRepository_ && fingerprint_) {
        co_await bookmarkRepository_->save(bookmark);
        co_await reloadBookmarks();
      } else {
        std::vector<Bookmark> appended = bookmarks_.value();
        appended.push_back(std::move(bookmark));
        bookmarks_.set(std::move(appended));
      }
      co_await refreshBookmarkVisibility();
    }
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) throw recordFailure(failure);
  if (existing) {
    co_await removeBookmark(std::move(*existing));
    co_return BookmarkToggle::removed;
  }
  co_return BookmarkToggle::added;
}

async::Task<void> ReaderSession::removeBookmark(Bookmark bookmark) {
  if (state_.value() != State::ready) co_return;
  const auto keepAlive = shared_from_this();
  std::exception_ptr failure;
  try {
    if (bookmarkRepository_ && fingerprint_) {
      co_await bookmarkRepository_->deleteBookmark(bookmark.id, *fingerprint_);
      co_await reloadBookmarks();
    } else {
      std::vector<Bookmark> remaining = bookmarks_.value();
      std::erase_if(remaining, [&](const Bookmark& entry) { return entry.id == bookmark.id; });
      bookmarks_.set(std::move(remaining));
    }
    co_await refreshBookmarkVisibility();
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) throw recordFailure(failure);
}

async::Task<void> ReaderSession::goToBookmark(Bookmark bookmark) {
  if (state_.value() != State::ready || bookmark.bookFingerprint != fingerprint_) co_return;
  co_await jump(bridge().goTo(GoToLocatorRequest{bookmark.locator}));
}

// Raw: the open decides what its failure means; the commands record it themselves.
async::Task<void> ReaderSession::refreshBookmarkVisibility() {
  ConfigureBookmarkVisibilityRequest request;
  for (const Bookmark& bookmark : bookmarks_.value()) {
    request.bookmarks.push_back(BookmarkVisibilityCandidate{bookmark.id, bookmark.locator});
  }
  const BookmarkVisibilityResult result =
      co_await bridge().configureBookmarkVisibility(std::move(request));
  visibleBookmarkIDs_.set(
      std::set<Uuid>(result.visibleBookmarkIDs.begin(), result.visibleBookmarkIDs.end()));
}

void ReaderSession::handleBookmarkVisibilityChanged(std::set<Uuid> visibleIDs) {
  if (state_.value() != State::ready || visibleIDs == visibleBookmarkIDs_.value()) return;
  visibleBookmarkIDs_.set(std::move(visibleIDs));
}

}  // namespace tomekeeper
