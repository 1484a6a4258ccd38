#include "app/TomekeeperAppDelegate.h"

#include "async/OperationCancelled.h"
#include "async/Sleep.h"
#include "async/Spawn.h"

namespace tomekeeper {

namespace {

async::Task<void> decideAfterSettlement(std::weak_ptr<TomekeeperAppDelegate> weakDelegate,
                                        std::function<void(TomekeeperAppDelegate&)> decide) {
  try {
    co_await async::sleepFor(TomekeeperAppDelegate::kLaunchEventSettlementDelay);
  } catch (const async::OperationCancelled&) {
    co_return;  // Files arrived and the decision was made with them.
  }
  if (auto delegate = weakDelegate.lock()) decide(*delegate);
}

}  // namespace

TomekeeperAppDelegate::TomekeeperAppDelegate(std::shared_ptr<DocumentOpenCoordinator> coordinator)
    : coordinator_(std::move(coordinator)) {}

TomekeeperAppDelegate::~TomekeeperAppDelegate() {
  if (initialLaunchPresentation_) initialLaunchPresentation_->request_stop();
}

void TomekeeperAppDelegate::applicationDidFinishLaunching() {
  didFinishLaunching_ = true;
  if (!pendingOpenURLs_.empty()) {
    flushLaunch();
    return;
  }
  initialLaunchPresentation_.emplace();
  async::spawn(
      decideAfterSettlement(weak_from_this(),
                            [](TomekeeperAppDelegate& delegate) { delegate.flushLaunch(); }),
      initialLaunchPresentation_->get_token());
}

void TomekeeperAppDelegate::flushLaunch() {
  if (initialLaunchPresentation_) {
    initialLaunchPresentation_->request_stop();
    initialLaunchPresentation_.reset();
  }
  std::vector<std::filesystem::path> urls = std::exchange(pendingOpenURLs_, {});
  coordinator_->start(urls);
}

void TomekeeperAppDelegate::applicationOpen(const std::vector<std::filesystem::path>& urls) {
  if (!didFinishLaunching_) {
    pendingOpenURLs_.insert(pendingOpenURLs_.end(), urls.begin(), urls.end());
  } else if (initialLaunchPresentation_) {
    pendingOpenURLs_.insert(pendingOpenURLs_.end(), urls.begin(), urls.end());
    flushLaunch();
  } else {
    for (const auto& url : urls) coordinator_->requestOpen(url);
  }
}

void TomekeeperAppDelegate::applicationWillTerminate() {
  coordinator_->prepareForTermination();
}

void TomekeeperAppDelegate::applicationShouldHandleReopen(WindowVisibility visibility) {
  if (didFinishLaunching_ && visibility == WindowVisibility::noneVisible &&
      !initialLaunchPresentation_) {
    coordinator_->showOpenDocumentWindow();
  }
}

}  // namespace tomekeeper
