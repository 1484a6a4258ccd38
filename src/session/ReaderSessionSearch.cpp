// Contents and search: jumps to contents entries and search hits, and the search itself, whose
// batches are kept only while they belong to the search that runs.

#include <unordered_set>
#include <utility>

#include "session/AnnotationNote.h"
#include "session/ReaderSession.h"

namespace tomekeeper {

std::vector<TableOfContentsOutlineNode> ReaderSession::tableOfContentsOutline() const {
  return outline(tableOfContents_.value());
}

async::Task<void> ReaderSession::goToTableOfContentsEntry(std::string href) {
  if (state_.value() != State::ready) co_return;
  co_await jump(bridge().goTo(GoToRequest{std::move(href)}));
}

async::Task<void> ReaderSession::goToSearchResult(PublicationSearchResult result) {
  if (state_.value() != State::ready) co_return;
  co_await jump(bridge().goTo(GoToLocatorRequest{std::move(result.locator)}));
}

async::Task<void> ReaderSession::startSearch(std::string query) {
  if (state_.value() != State::ready) co_return;
  const auto keepAlive = shared_from_this();
  const std::string trimmed = AnnotationNote::trimmed(query);
  std::exception_ptr failure;
  try {
    co_await cancelSearch();
  } catch (const ReaderError&) {
    // Recorded by the cancellation; the new search goes on.
  }
  if (trimmed.empty()) co_return;

  const Uuid searchID = Uuid::random();
  activeSearchID_.set(searchID);
  searchResults_.set({});
  isSearchComplete_.set(false);
  try {
    co_await bridge().startSearch(StartSearchRequest{searchID, trimmed});
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) {
    if (activeSearchID_.value() == searchID) {
      activeSearchID_.set(std::nullopt);
      isSearchComplete_.set(true);
    }
    throw recordFailure(failure);
  }
}

async::Task<void> ReaderSession::cancelSearch() {
  if (state_.value() != State::ready) co_return;
  const std::optional<Uuid> running = activeSearchID_.value();
  activeSearchID_.set(std::nullopt);
  searchResults_.set({});
  isSearchComplete_.set(true);
  if (!running) co_return;
  const auto keepAlive = shared_from_this();
  std::exception_ptr failure;
  try {
    co_await bridge().cancelSearch(CancelSearchRequest{*running});
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) throw recordFailure(failure);
}

void ReaderSession::handleSearchResults(Uuid searchID, std::vector<PublicationSearchResult> results,
                                        bool isComplete) {
  // Late batches of a former search, and foreign ones, fall out here.
  if (state_.value() != State::ready || activeSearchID_.value() != searchID) return;
  std::vector<PublicationSearchResult> merged = searchResults_.value();
  std::unordered_set<std::string> seen;
  for (const PublicationSearchResult& result : merged) seen.insert(result.id);
  for (PublicationSearchResult& result : results) {
    if (seen.insert(result.id).second) merged.push_back(std::move(result));
  }
  searchResults_.set(std::move(merged));
  if (isComplete) {
    activeSearchID_.set(std::nullopt);
    isSearchComplete_.set(true);
  }
}

}  // namespace tomekeeper
