#pragma once

#include <glib.h>

#include <chrono>
#include <deque>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "app/DocumentOpenCoordinator.h"
#include "async/Completion.h"
#include "opening/ReaderError.h"

namespace tomekeeper::testing {

// Iterates the main context until `done` holds or `limit` has passed; gives `done()`.
template <typename Predicate>
bool iterateUntil(Predicate done, std::chrono::milliseconds limit = std::chrono::seconds(20)) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!done() && std::chrono::steady_clock::now() < deadline) {
    g_main_context_iteration(nullptr, FALSE);
    if (!done()) g_usleep(1000);
  }
  return done();
}

class FakeWindow final : public ShellWindow, public std::enable_shared_from_this<FakeWindow> {
 public:
  FakeWindow(ShellWindowDelegate& delegate, std::string identifier, std::string title)
      : title(std::move(title)), delegate_(&delegate), identifier_(std::move(identifier)) {}
  const std::string& identifier() const override { return identifier_; }
  void setTitle(const std::string& newTitle) override { title = newTitle; }
  void present() override {
    ++presentCount;
    visible = true;
  }
  void close() override {
    if (closed) return;
    closed = true;
    visible = false;
    const auto keep = shared_from_this();
    delegate_->windowWillClose(*this);
  }
  WindowFrame frame() const override { return currentFrame; }
  bool isVisible() const override { return visible; }
  void showOpenProgress(double fraction) override { progress.push_back(fraction); }

  // The user resized the window.
  void resize(WindowFrame frame) {
    currentFrame = frame;
    delegate_->windowDidResize(*this);
  }

  std::string title;
  int presentCount = 0;
  bool visible = false;
  bool closed = false;
  // A reader window took this one's place on the screen.
  bool takenOver = false;
  std::vector<double> progress;
  WindowFrame currentFrame;
  std::function<void(std::filesystem::path)> open;

 private:
  ShellWindowDelegate* delegate_;
  std::string identifier_;
};

class FakeSession final : public WindowSession {
 public:
  async::Task<void> open(PreparedPublicationResources resources, std::filesystem::path runtimeRoot,
                         std::string fingerprint) override {
    openedResources = resources;
    openedRuntimeRoot = runtimeRoot;
    openedFingerprint = fingerprint;
    ++openCount;
    if (gate) co_await *gate;
    if (failure) std::rethrow_exception(failure);
    isOpen = true;
  }
  void close() override {
    ++closeCount;
    isOpen = false;
  }
  std::optional<PublicationTitle> publicationTitle() const override {
    return isOpen ? std::optional<PublicationTitle>(title) : std::nullopt;
  }
  bool handlePaginationKey(ReaderNavigationDirection direction) override {
    pageKeys.push_back(direction);
    return takesPageKeys;
  }

  PublicationTitle title{"A Title", {"An Author"}};
  std::exception_ptr failure;
  std::shared_ptr<async::Completion<void>> gate;
  bool takesPageKeys = true;
  bool isOpen = false;
  int openCount = 0;
  int closeCount = 0;
  std::vector<ReaderNavigationDirection> pageKeys;
  PreparedPublicationResources openedResources;
  std::filesystem::path openedRuntimeRoot;
  std::string openedFingerprint;
};

class FakeSessionFactory final : public WindowSessionFactory {
 public:
  std::shared_ptr<WindowSession> makeSession(const std::string& fingerprint) override {
    if (failure) std::rethrow_exception(failure);
    auto session = std::make_shared<FakeSession>();
    if (configure) configure(*session);
    sessions.push_back(session);
    fingerprints.push_back(fingerprint);
    return session;
  }
  std::function<void(FakeSession&)> configure;
  std::exception_ptr failure;
  std::vector<std::shared_ptr<FakeSession>> sessions;
  std::vector<std::string> fingerprints;
};

class FakeWindowFactory final : public ReaderWindowFactory {
 public:
  std::shared_ptr<ShellWindow> makeOpenDocumentWindow(
      ShellWindowDelegate& delegate, std::function<void(std::filesystem::path)> open) override {
    auto window = std::make_shared<FakeWindow>(delegate, "", "Tomekeeper");
    window->open = std::move(open);
    openDocumentWindows.push_back(window);
    return window;
  }
  std::shared_ptr<ShellWindow> makeReaderWindow(ShellWindowDelegate& delegate,
                                                ReaderWindowRequest request) override {
    auto window = std::make_shared<FakeWindow>(delegate, request.fingerprint,
                                               request.sourceURL.stem().string());
    window->currentFrame = request.frame;
    if (const auto opening = std::dynamic_pointer_cast<FakeWindow>(request.openingWindow)) {
      // The same window on the screen from now on, under its new handle.
      opening->takenOver = true;
      window->visible = opening->visible;
      opening->visible = false;
    }
    readerWindows.push_back(window);
    requests.push_back(std::move(request));
    return window;
  }
  std::shared_ptr<ShellWindow> makeOpeningWindow(ShellWindowDelegate& delegate,
                                                 OpeningWindowRequest request) override {
    auto window = std::make_shared<FakeWindow>(delegate, "", request.title);
    window->currentFrame = request.frame;
    openingWindows.push_back(window);
    return window;
  }
  std::vector<std::shared_ptr<FakeWindow>> openDocumentWindows;
  std::vector<std::shared_ptr<FakeWindow>> openingWindows;
  std::vector<std::shared_ptr<FakeWindow>> readerWindows;
  std::vector<ReaderWindowRequest> requests;
};

class FakeIndicator final : public ShownIndicator {
 public:
  explicit FakeIndicator(int& shownCount) : shownCount_(shownCount) { ++shownCount_; }
  ~FakeIndicator() override { --shownCount_; }

 private:
  int& shownCount_;
};

class FakePlatform final : public ShellPlatform {
 public:
  async::Task<std::size_t> runAlert(AlertContent content) override {
    alerts.push_back(content);
    if (alertAnswers.empty()) co_return 0;
    const std::size_t answer = alertAnswers.front();
    alertAnswers.pop_front();
    co_return answer;
  }
  async::Task<std::vector<std::filesystem::path>> chooseEPUBFiles(
      FileSelection selection) override {
    selections.push_back(selection);
    if (fileChoices.empty()) co_return std::vector<std::filesystem::path>{};
    auto choice = fileChoices.front();
    fileChoices.pop_front();
    co_return choice;
  }
  void noteRecentDocument(const std::filesystem::path& file) override {
    std::erase(recent, file);
    recent.insert(recent.begin(), file);
  }
  std::vector<std::filesystem::path> recentDocuments() const override { return recent; }
  void clearRecentDocuments() override { recent.clear(); }
  std::optional<WindowFrame> storedReaderWindowFrame() const override { return storedFrame; }
  void storeReaderWindowFrame(const WindowFrame& frame) override { storedFrame = frame; }
  std::vector<ScreenArea> screens() const override { return screenAreas; }
  std::unique_ptr<ShownIndicator> showOpenProgress(const std::string& displayName) override {
    progressNames.push_back(displayName);
    return std::make_unique<FakeIndicator>(progressShownCount);
  }

  std::vector<AlertContent> alerts;
  std::deque<std::size_t> alertAnswers;
  std::vector<FileSelection> selections;
  std::deque<std::vector<std::filesystem::path>> fileChoices;
  std::vector<std::filesystem::path> recent;
  std::optional<WindowFrame> storedFrame;
  std::vector<ScreenArea> screenAreas{{1920, 1050}};
  std::vector<std::string> progressNames;
  int progressShownCount = 0;
};

}  // namespace tomekeeper::testing
