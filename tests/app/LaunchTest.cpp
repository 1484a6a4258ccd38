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

  TemporaryDirectory directory;
  std::shared_ptr<FakePlatform> platform;
  std::shared_ptr<FakeWindowFactory> windows;
  std::shared_ptr<FakeSessionFactory> sessions;
};

TEST_F(LaunchTest, FileOpenedBeforeTheStartOpensWithoutRestorationOrOpenWindow) {
  quitWithBookOpen(writeBook("old.epub"));
  auto delegate = launch();
  const auto book = writeBook("new.epub");
  delegate->applicationOpen({book});
  EXPECT_EQ(delegate->pendingOpenURLs().size(), 1u);
  delegate->applicationDidFinishLaunching();
  EXPECT_FALSE(delegate->isLaunchDecisionWaiting());
  ASSERT_TRUE(iterateUntil([&] { return delegate->coordinator()->openWindows().size() == 1; }));
  iterateFor(TomekeeperAppDelegate::kLaunchEventSettlementDelay + std::chrono::milliseconds(100));
  EXPECT_EQ(windows->readerWindows.size(), 1u);
  EXPECT_EQ(sessions->sessions.size(), 1u);
  EXPECT_TRUE(windows->openDocumentWindows.empty());
}

TEST_F(LaunchTest, FileArrivingDuringTheSettlementDelayCancelsTheDecision) {
  quitWithBookOpen(writeBook("old.epub"));
  auto delegate = launch();
  delegate->applicationDidFinishLaunching();
  EXPECT_TRUE(delegate->isLaunchDecisionWaiting());
  iterateFor(std::chrono::milliseconds(100));
  EXPECT_TRUE(windows->readerWindows.empty());
  delegate->applicationOpen({writeBook("new.epub")});
  EXPECT_FALSE(delegate->isLaunchDecisionWaiting());
  ASSERT_TRUE(iterateUntil([&] { return delegate->coordinator()->openWindows().size() == 1; }));
  iterateFor(TomekeeperAppDelegate::kLaunchEventSettlementDelay + std::chrono::milliseconds(100));
  EXPECT_EQ(windows->readerWindows.size(), 1u);
  EXPECT_EQ(windows->readerWindows.front()->title, "A Title \u2014 An Author");
  EXPECT_TRUE(windows->openDocumentWindows.empty());
}

TEST_F(LaunchTest, WithoutFilesTheDecisionWaitsThenRestores) {
  quitWithBookOpen(writeBook("old.epub"));
  auto delegate = launch();
  delegate->applicationDidFinishLaunching();
  iterateFor(std::chrono::milliseconds(50));
  EXPECT_TRUE(windows->readerWindows.empty());
  ASSERT_TRUE(iterateUntil([&] { return delegate->coordinator()->openWindows().size() == 1; }));
  EXPECT_FALSE(delegate->isLaunchDecisionWaiting());
}

TEST_F(LaunchTest, FileOpenedLaterOpensBesideTheRestoredWindows) {
  quitWithBookOpen(writeBook("old.epub"));
  auto delegate = launch();
  delegate->applicationDidFinishLaunching();
  ASSERT_TRUE(iterateUntil([&] { return delegate->coordinator()->openWindows().size() == 1; }));
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

TEST_F(LaunchTest, TerminationSavesTheBooksThatWereOpen) {
  const auto book = writeBook("kept.epub");
  quitWithBookOpen(book);
  const auto list = DocumentOpenCoordinator::readRestorationList(
      directory / "support" / DocumentOpenCoordinator::kRestorationFileName);
  EXPECT_EQ(list.size(), 1u);
}

}  // namespace
}  // namespace tomekeeper::testing
