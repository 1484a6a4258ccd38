#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "app/ShellFakes.h"
#include "app/TomekeeperAppDelegate.h"
#include "async/RunUntilDone.h"
#include "support/EpubBuilder.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper::testing {
namespace {

class LaunchTest : public ::testing::Test {
 protected:
  void SetUp() override { std::filesystem::create_directories(directory / "runtime"); }

  std::filesystem::path writeBook(const std::string& name) {
    const auto file = directory / "books" / name;
    std::filesystem::create_directories(file.parent_path());
    EpubBuilder().addFile("OEBPS/name.txt", name).writeTo(file);
    return file;
  }

  std::shared_ptr<TomekeeperAppDelegate> launch() {
    DocumentOpenCoordinator::Environment environment;
    environment.supportDirectory = directory / "support";
    environment.cachesRoot = directory / "caches";
    environment.runtimeRoot = directory / "runtime";
    platform = std::make_shared<FakePlatform>();
    windows = std::make_shared<FakeWindowFactory>();
    sessions = std::make_shared<FakeSessionFactory>();
    return std::make_shared<TomekeeperAppDelegate>(
        DocumentOpenCoordinator::create(environment, platform, windows, sessions));
  }

  // A previous run that quit with `book` open.
  void quitWithBookOpen(const std::filesystem::path& book) {
    auto previous = launch();
    async::runUntilDone(previous->coordinator()->open(book, RecentDocumentUse::remember, {}));
    previous->applicationWillTerminate();
  }

  // Runs what the main context has ready now, no timer included.
  static void runReadyWork() {
    while (g_main_context_pending(nullptr)) g_main_context_iteration(nullptr, FALSE);
  }

  // Passes the point by which a launch decision armed by `delegate` would have restored the
  // books of the previous run: a timer of the settlement delay set after the decision's has
  // fired, then one more book opened through the same bookmark store (which runs its work in
  // order, so a restore started before must have got to its own open) has its window.
  void passTheLaunchDecision(TomekeeperAppDelegate& delegate) {
    bool fired = false;
    g_timeout_add(
        TomekeeperAppDelegate::kLaunchEventSettlementDelay.count(),
        [](gpointer data) {
          *static_cast<bool*>(data) = true;
          return G_SOURCE_REMOVE;
        },
        &fired);
    ASSERT_TRUE(iterateUntil([&] { return fired; }));
    async::runUntilDone(
        delegate.coordinator()->open(writeBook("sentinel.epub"), RecentDocumentUse::remember, {}));
    EXPECT_EQ(delegate.coordinator()->activeOpenOperations(), 0);
  }

  TemporaryDirectory directory;
  std::shared_ptr<FakePlatform> platform;
  std::shared_ptr<FakeWindowFactory> windows;
  std::shared_ptr<FakeSessionFactory> sessions;
};

// The windows after a launch with a file: the file's and the sentinel's, nothing restored.
TEST_F(LaunchTest, FileOpenedBeforeTheStartOpensWithoutRestorationOrOpenWindow) {
  quitWithBookOpen(writeBook("old.epub"));
  auto delegate = launch();
  delegate->applicationOpen({writeBook("new.epub")});
  EXPECT_EQ(delegate->pendingOpenURLs().size(), 1u);
  delegate->applicationDidFinishLaunching();
  EXPECT_FALSE(delegate->isLaunchDecisionWaiting());
  ASSERT_TRUE(iterateUntil([&] { return delegate->coordinator()->openWindows().size() == 1; }));
  passTheLaunchDecision(*delegate);
  EXPECT_EQ(windows->readerWindows.size(), 2u);
  EXPECT_EQ(sessions->sessions.size(), 2u);
  EXPECT_TRUE(windows->openDocumentWindows.empty());
}

TEST_F(LaunchTest, FileArrivingDuringTheSettlementDelayCancelsTheDecision) {
  quitWithBookOpen(writeBook("old.epub"));
  auto delegate = launch();
  delegate->applicationDidFinishLaunching();
  runReadyWork();
  EXPECT_TRUE(delegate->isLaunchDecisionWaiting());
  EXPECT_TRUE(windows->readerWindows.empty());
  delegate->applicationOpen({writeBook("new.epub")});
  EXPECT_FALSE(delegate->isLaunchDecisionWaiting());
  ASSERT_TRUE(iterateUntil([&] { return delegate->coordinator()->openWindows().size() == 1; }));
  EXPECT_EQ(windows->readerWindows.front()->title, "A Title \u2014 An Author");
  passTheLaunchDecision(*delegate);
  EXPECT_EQ(windows->readerWindows.size(), 2u);
  EXPECT_TRUE(windows->openDocumentWindows.empty());
}

// Termination saved the open book; the next launch without files waits, then restores it, and
// a file opened later opens beside it.
TEST_F(LaunchTest, WithoutFilesTheDecisionWaitsThenRestoresAndALaterFileOpensBeside) {
  quitWithBookOpen(writeBook("old.epub"));
  EXPECT_EQ(DocumentOpenCoordinator::readRestorationList(
                directory / "support" / DocumentOpenCoordinator::kRestorationFileName)
                .size(),
            1u);
  auto delegate = launch();
  delegate->applicationDidFinishLaunching();
  runReadyWork();
  EXPECT_TRUE(windows->readerWindows.empty());
  ASSERT_TRUE(iterateUntil([&] { return delegate->coordinator()->openWindows().size() == 1; }));
  EXPECT_FALSE(delegate->isLaunchDecisionWaiting());
  delegate->applicationOpen({writeBook("new.epub")});
  ASSERT_TRUE(iterateUntil([&] { return delegate->coordinator()->openWindows().size() == 2; }));
}

TEST_F(LaunchTest, ReopenWithNoWindowsShowsTheOpenWindowAndWithWindowsNothing) {
  auto delegate = launch();
  delegate->applicationShouldHandleReopen(WindowVisibility::noneVisible);
  EXPECT_TRUE(windows->openDocumentWindows.empty());  // Launching has not finished.
  delegate->applicationDidFinishLaunching();
  delegate->applicationShouldHandleReopen(WindowVisibility::noneVisible);
  EXPECT_TRUE(windows->openDocumentWindows.empty());  // The decision still waits.
  ASSERT_TRUE(iterateUntil([&] { return windows->openDocumentWindows.size() == 1; }));
  windows->openDocumentWindows.front()->close();
  EXPECT_EQ(delegate->coordinator()->openDocumentWindow(), nullptr);
  delegate->applicationShouldHandleReopen(WindowVisibility::someVisible);
  EXPECT_EQ(windows->openDocumentWindows.size(), 1u);
  delegate->applicationShouldHandleReopen(WindowVisibility::noneVisible);
  ASSERT_EQ(windows->openDocumentWindows.size(), 2u);
  EXPECT_TRUE(windows->openDocumentWindows.back()->visible);
}

}  // namespace
}  // namespace tomekeeper::testing
