#include <utility>

#include "session/ReaderSession.h"

namespace tomekeeper {

async::Task<void> ReaderSession::jump(async::Task<ReaderPositionResult> call) {
  const auto keepAlive = shared_from_this();
  const std::optional<Locator> origin = locator_.value();
  co_await navigate(std::move(call));
  if (!origin) co_return;
  history_.recordJump(*origin);
  navigationAvailability_.set({history_.canGoBack(), history_.canGoForward()});
}

async::Task<void> ReaderSession::followLink(std::string url) {
  if (state_.value() != State::ready) co_return;
  co_await jump(bridge().goTo(GoToRequest{std::move(url)}));
}

async::Task<void> ReaderSession::goBack() {
  return revisit(&NavigationHistory::back);
}

async::Task<void> ReaderSession::goForward() {
  return revisit(&NavigationHistory::forward);
}

async::Task<void> ReaderSession::revisit(
    std::optional<Locator> (NavigationHistory::*step)(Locator)) {
  if (state_.value() != State::ready || !locator_.value()) co_return;
  const auto keepAlive = shared_from_this();
  const std::optional<Locator> target = (history_.*step)(*locator_.value());
  if (!target) co_return;
  navigationAvailability_.set({history_.canGoBack(), history_.canGoForward()});
  co_await navigate(bridge().goTo(GoToLocatorRequest{*target}));
}

}  // namespace tomekeeper
