// Position tracking: the page and section commands, the immediate and the delayed save of the
// locator, the page label and the location log.

#include <utility>

#include "async/Sleep.h"
#include "async/Spawn.h"
#include "session/PageLabel.h"
#include "session/ReaderSession.h"

namespace tomekeeper {

async::Task<void> ReaderSession::navigate(async::Task<ReaderPositionResult> call) {
  const auto keepAlive = shared_from_this();
  std::exception_ptr failure;
  try {
    ReaderPositionResult position = co_await std::move(call);
    position_.set(std::move(position));
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) throw recordFailure(failure);
  co_await refreshAndSaveLocator();
}

async::Task<void> ReaderSession::nextPage() {
  return navigate(bridge().next());
}

async::Task<void> ReaderSession::previousPage() {
  return navigate(bridge().previous());
}

async::Task<void> ReaderSession::nextSection() {
  return navigate(bridge().nextSection());
}

async::Task<void> ReaderSession::previousSection() {
  return navigate(bridge().previousSection());
}

async::Task<void> ReaderSession::refreshAndSaveLocator() {
  const auto keepAlive = shared_from_this();
  std::exception_ptr failure;
  try {
    Locator current = co_await bridge().currentLocator();
    locator_.set(current);
    if (fingerprint_ && positionRepository_) {
      shouldPersistCurrentLocatorOnClose_ = true;
      const std::shared_ptr<ReadingPositionRepository> repository = positionRepository_;
      co_await repository->save(current, *fingerprint_);
      logLocation("navigation.saved", current);
    }
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) throw recordFailure(failure);
}

std::optional<std::string> ReaderSession::pageLabel() const {
  return tomekeeper::pageLabel(readingMode_.value(), position_.value(),
                               layoutReport_.effectiveColumnCount.value());
}

void ReaderSession::handleLocatorChanged(Locator locator) {
  if (state_.value() != State::ready || !fingerprint_ || !positionRepository_) return;
  locator_.set(locator);
  logLocation("runtime.event", locator);
  shouldPersistCurrentLocatorOnClose_ = true;
  if (locatorPersistenceTask_) locatorPersistenceTask_->request_stop();
  locatorPersistenceTask_.emplace();
  async::spawn(saveAfterQuietTime(weak_from_this(), positionRepository_, *fingerprint_,
                                  std::move(locator), locatorSaveDelay_),
               locatorPersistenceTask_->get_token());
}

async::Task<void> ReaderSession::saveAfterQuietTime(
    std::weak_ptr<ReaderSession> session, std::shared_ptr<ReadingPositionRepository> repository,
    std::string fingerprint, Locator locator, std::chrono::steady_clock::duration delay) {
  std::exception_ptr failure;
  try {
    co_await async::sleepFor(delay);
    co_await async::checkCancellation();
    co_await repository->save(locator, fingerprint);
  } catch (const async::OperationCancelled&) {
    // A newer event, close or a clearing of the reading data took over: no trace.
    co_return;
  } catch (...) {
    failure = std::current_exception();
  }
  const std::shared_ptr<ReaderSession> alive = session.lock();
  if (!alive) co_return;
  if (failure) {
    alive->recordFailure(failure);
  } else {
    alive->logLocation("runtime.saved", locator);
  }
}

void ReaderSession::logLocation(std::string_view stage) {
  logLocation(stage, locator_.value());
}

void ReaderSession::logLocation(std::string_view stage, const std::optional<Locator>& locator) {
  if (!locationDiagnosticsSetting_->isEnabled()) return;
  LocationLogEntry entry;
  entry.sessionID = locationDiagnosticID_;
  entry.stage = std::string(stage);
  entry.locator = locator;
  entry.position = position_.value();
  entry.viewport = host_->viewportSize();
  entry.readingMode = readingMode_.value();
  entry.pageLayout = pageLayout_.value();
  locationDiagnosticLog_->write(locationLogLine(entry));
}

namespace {

async::Task<void> turnPage(std::weak_ptr<ReaderSession> weak, ReaderNavigationDirection direction) {
  const std::shared_ptr<ReaderSession> session = weak.lock();
  if (!session || session->state().value() != ReaderSession::State::ready) co_return;
  try {
    if (direction == ReaderNavigationDirection::next) {
      co_await session->nextPage();
    } else {
      co_await session->previousPage();
    }
  } catch (const ReaderError&) {
    // Already in `error`, which is how a key's failure reaches the reader.
  }
}

}  // namespace

void ReaderSession::startPageTurn(ReaderNavigationDirection direction) {
  if (direction == ReaderNavigationDirection::towardLeft ||
      direction == ReaderNavigationDirection::towardRight) {
    const auto& publication = publication_.value();
    const bool readsFromRight = publication && publication->pageProgressionDirection == "rtl";
    const bool towardLeft = direction == ReaderNavigationDirection::towardLeft;
    direction = towardLeft == readsFromRight ? ReaderNavigationDirection::next
                                             : ReaderNavigationDirection::previous;
  }
  async::spawn(turnPage(weak_from_this(), direction));
}

void ReaderSession::handleNavigationKey(ReaderNavigationDirection direction) {
  startPageTurn(direction);
}

bool ReaderSession::handlePaginationKey(ReaderNavigationDirection direction) {
  if (state_.value() != State::ready || readingMode_.value() != ReadingMode::paginated) {
    return false;
  }
  startPageTurn(direction);
  return true;
}

}  // namespace tomekeeper
