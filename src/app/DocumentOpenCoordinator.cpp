#include "app/DocumentOpenCoordinator.h"

#include <glib.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stop_token>
#include <system_error>

#include "async/MainContext.h"
#include "async/OperationCancelled.h"
#include "async/Sleep.h"
#include "async/Spawn.h"
#include "library/PackageMetadata.h"
#include "opening/DocumentOpenErrorPresentation.h"
#include "opening/OpeningFailures.h"
#include "opening/PublicationFingerprintService.h"
#include "opening/PublicationIdentityCache.h"
#include "platform/AtomicFileWriter.h"
#include "platform/EventLog.h"

namespace tomekeeper {

namespace {

std::filesystem::path standardised(const std::filesystem::path& url) {
  std::error_code error;
  std::filesystem::path absolute = std::filesystem::absolute(url, error);
  return (error ? url : absolute).lexically_normal();
}

// Trims Unicode white space at both ends.
std::string trimmed(const std::string& text) {
  if (!g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr)) return text;
  const char* begin = text.data();
  const char* end = text.data() + text.size();
  while (begin < end && g_unichar_isspace(g_utf8_get_char(begin))) {
    begin = g_utf8_next_char(begin);
  }
  while (end > begin) {
    const char* previous = g_utf8_find_prev_char(begin, end);
    if (previous == nullptr || !g_unichar_isspace(g_utf8_get_char(previous))) break;
    end = previous;
  }
  return std::string(begin, end);
}

// Counts an open from its start to its end, whatever way it ends.
class OpenOperationCount {
 public:
  explicit OpenOperationCount(int& count) : count_(count) { ++count_; }
  ~OpenOperationCount() { --count_; }
  OpenOperationCount(const OpenOperationCount&) = delete;
  OpenOperationCount& operator=(const OpenOperationCount&) = delete;

 private:
  int& count_;
};

// Shows the open's progress once it has taken longer than the delay, and takes it away when it
// goes.
class DelayedOpenProgress {
 public:
  DelayedOpenProgress(std::weak_ptr<ShellPlatform> platform, std::string displayName,
                      std::chrono::milliseconds delay)
      : shown_(std::make_shared<std::unique_ptr<ShownIndicator>>()) {
    async::spawn(show(std::move(platform), std::move(displayName), delay, shown_),
                 stop_.get_token());
  }
  ~DelayedOpenProgress() { end(); }
  DelayedOpenProgress(const DelayedOpenProgress&) = delete;
  DelayedOpenProgress& operator=(const DelayedOpenProgress&) = delete;

  void end() {
    stop_.request_stop();
    shown_->reset();
  }

 private:
  static async::Task<void> show(std::weak_ptr<ShellPlatform> weakPlatform, std::string displayName,
                                std::chrono::milliseconds delay,
                                std::shared_ptr<std::unique_ptr<ShownIndicator>> shown) {
    co_await async::sleepFor(delay);
    if (auto platform = weakPlatform.lock()) *shown = platform->showOpenProgress(displayName);
  }

  std::stop_source stop_;
  std::shared_ptr<std::unique_ptr<ShownIndicator>> shown_;
};

// The names of a book as its package document gives them; none when it cannot be parsed (the
// window is then named after its file). Any thread.
std::optional<PublicationTitle> titleOfPackage(const std::string& path,
                                               const std::string& document) {
  try {
    PackageMetadata metadata = parsePackageMetadata(document, path);
    PublicationTitle title;
    if (!metadata.title.empty()) title.title = std::move(metadata.title);
    title.authors = std::move(metadata.authors);
    return title;
  } catch (...) {
    return std::nullopt;
  }
}

}  // namespace

// One open on its way to a window: the progress shown elsewhere until the book has a window,
// the window shown while the book is prepared, and the cancellation that closing it asks for.
struct DocumentOpenCoordinator::OpeningBook {
  std::filesystem::path sourceURL;
  std::unique_ptr<DelayedOpenProgress> progress;
  std::shared_ptr<ShellWindow> window;
  // The names the package document gave, once the window shows.
  std::optional<PublicationTitle> title;
  std::stop_source cancellation;
  // The preparation has ended: news of it that comes later is dropped.
  bool prepared = false;
  bool closedByUser = false;
  // The open window was closed for this book's window, and comes back if the open fails.
  bool replacedOpenDocumentWindow = false;
};

void logOpenFailure(const std::string& diagnostic) {
  logEvent(EventLogLevel::error, "DocumentOpen", "Open failed: " + diagnostic);
}

// An informational line of category "DocumentOpen": shown with G_MESSAGES_DEBUG=Tomekeeper,
// which is how the application's own tests follow what it did.
void logOpenEvent(const std::string& message) {
  logEvent(EventLogLevel::information, "DocumentOpen", message);
}

DocumentOpenCoordinator::DocumentOpenCoordinator(
    Environment environment, std::shared_ptr<ShellPlatform> platform,
    std::shared_ptr<ReaderWindowFactory> windowFactory,
    std::shared_ptr<WindowSessionFactory> sessionFactory)
    : environment_(std::move(environment)),
      platform_(std::move(platform)),
      windowFactory_(std::move(windowFactory)),
      sessionFactory_(std::move(sessionFactory)),
      accessLedger_(std::make_shared<SecurityScopedAccessLedger>()),
      recentDocumentURLs_(platform_->recentDocuments()) {}

std::shared_ptr<DocumentOpenCoordinator> DocumentOpenCoordinator::create(
    Environment environment, std::shared_ptr<ShellPlatform> platform,
    std::shared_ptr<ReaderWindowFactory> windowFactory,
    std::shared_ptr<WindowSessionFactory> sessionFactory) {
  return std::shared_ptr<DocumentOpenCoordinator>(
      new DocumentOpenCoordinator(std::move(environment), std::move(platform),
                                  std::move(windowFactory), std::move(sessionFactory)));
}

DocumentOpenCoordinator::Environment DocumentOpenCoordinator::standardEnvironment(
    std::optional<std::filesystem::path> runtimeRoot) {
  Environment environment;
  environment.supportDirectory = std::filesystem::path(g_get_user_data_dir()) / "tomekeeper";
  environment.cachesRoot = PublicationExtractionCache::standardCachesRoot();
  environment.runtimeRoot = std::move(runtimeRoot);
  return environment;
}

const std::shared_ptr<SourceBookmarkStore>& DocumentOpenCoordinator::bookmarkStore() {
  if (!bookmarkStore_) {
    auto codec = environment_.bookmarkCodec ? environment_.bookmarkCodec
                                            : std::make_shared<SystemSecurityScopedBookmarkCodec>();
    bookmarkStore_ = std::make_shared<SourceBookmarkStore>(
        environment_.supportDirectory / "Publications", std::move(codec));
  }
  return bookmarkStore_;
}

const std::shared_ptr<PublicationExtractionCache>& DocumentOpenCoordinator::extractionCache() {
  if (!extractionCache_) {
    extractionCache_ = std::make_shared<PublicationExtractionCache>(environment_.cachesRoot);
  }
  return extractionCache_;
}

const std::shared_ptr<DocumentOpenRegistry>& DocumentOpenCoordinator::registry() {
  if (!registry_) {
    auto fingerprintService = environment_.fingerprintService
                                  ? environment_.fingerprintService
                                  : std::make_shared<PublicationFingerprintService>();
    registry_ = std::make_shared<DocumentOpenRegistry>(
        std::move(fingerprintService),
        std::make_shared<PublicationIdentityCache>(environment_.supportDirectory /
                                                   "DocumentAccess/identity-cache.json"),
        bookmarkStore(), accessLedger_);
  }
  return registry_;
}

const std::shared_ptr<OpenPublication>& DocumentOpenCoordinator::openPublication() {
  if (!openPublication_) {
    std::shared_ptr<PublicationCachePreparing> cache =
        environment_.publicationCache
            ? environment_.publicationCache
            : std::make_shared<PublicationExtractionCache>(*extractionCache());
    openPublication_ = std::make_shared<OpenPublication>(registry(), std::move(cache));
  }
  return openPublication_;
}

void DocumentOpenCoordinator::start(const std::vector<std::filesystem::path>& urls) {
  if (!urls.empty()) {
    for (const auto& url : urls) requestOpen(url);
    return;
  }
  std::vector<std::string> fingerprints = readRestorationList(restorationFileURL());
  if (!fingerprints.empty()) {
    async::spawn(restore(weak_from_this(), std::move(fingerprints)));
    return;
  }
  showOpenDocumentWindow();
}

std::vector<std::string> DocumentOpenCoordinator::readRestorationList(
    const std::filesystem::path& file) {
  try {
    const std::optional<std::string> data = readWholeFile(file);
    if (!data) return {};
    const nlohmann::json document = nlohmann::json::parse(*data);
    if (!document.is_object()) return {};
    const auto found = document.find("fingerprints");
    if (found == document.end() || !found->is_array()) return {};
    std::vector<std::string> fingerprints;
    for (const auto& element : *found) {
      if (!element.is_string()) return {};
      fingerprints.push_back(element.get<std::string>());
    }
    return fingerprints;
  } catch (...) {
    return {};
  }
}

void DocumentOpenCoordinator::saveRestorationFile() const {
  try {
    // A few bytes, written at once: the order of saves is the order of window changes, and the
    // last one at quit must be on disk before the process ends.
    const std::filesystem::path file = restorationFileURL();
    std::filesystem::create_directories(file.parent_path());
    nlohmann::json fingerprints = nlohmann::json::array();
    for (const auto& [fingerprint, entry] : openWindows_) fingerprints.push_back(fingerprint);
    const nlohmann::json document = {{"fingerprints", std::move(fingerprints)}};
    writeFileAtomically(file, document.dump(2));
  } catch (...) {
    // The restoration file is an accelerator: a failure never matters to the user.
  }
}

async::Task<void> DocumentOpenCoordinator::restore(std::weak_ptr<DocumentOpenCoordinator> weakSelf,
                                                   std::vector<std::string> fingerprints) {
  int restoredCount = 0;
  for (const std::string& fingerprint : fingerprints) {
    std::shared_ptr<DocumentOpenCoordinator> self = weakSelf.lock();
    if (!self) co_return;
    std::optional<std::filesystem::path> url;
    try {
      url = (co_await self->bookmarkStore()->resolve(fingerprint)).url;
    } catch (...) {
      url.reset();
    }
    bool sourceLost = !url;
    if (url) {
      try {
        co_await self->open(*url, RecentDocumentUse::skip, fingerprint);
        ++restoredCount;
      } catch (const DocumentOpenFailureError& failure) {
        sourceLost = failure.failure() == DocumentOpenFailure::sourceUnavailable;
      } catch (...) {
        // Any other failure drops the book silently.
      }
    }
    if (sourceLost && co_await self->locate(fingerprint)) ++restoredCount;
  }
  std::shared_ptr<DocumentOpenCoordinator> self = weakSelf.lock();
  if (!self || restoredCount != 0) co_return;
  std::error_code ignored;
  std::filesystem::remove(self->restorationFileURL(), ignored);
  self->showOpenDocumentWindow();
}

async::Task<void> DocumentOpenCoordinator::open(std::filesystem::path url,
                                                RecentDocumentUse recentDocumentUse,
                                                std::optional<std::string> expectedFingerprint) {
  if (isClearingReadingCache_) throwFailure(ReadingCacheMaintenanceError::maintenanceInProgress);
  // Windows and tasks reach the coordinator weakly; it must outlive its own open.
  const std::shared_ptr<DocumentOpenCoordinator> keepAlive = shared_from_this();
  OpenOperationCount count(activeOpenOperations_);

  auto opening = std::make_shared<OpeningBook>();
  opening->sourceURL = url;
  opening->progress =
      std::make_unique<DelayedOpenProgress>(platform_, url.filename().string(), kOpenProgressDelay);
  openings_.push_back(opening);
  std::exception_ptr failure;
  try {
    co_await prepareAndCreateWindow(std::move(url), recentDocumentUse,
                                    std::move(expectedFingerprint), opening);
  } catch (...) {
    failure = std::current_exception();
  }
  std::erase(openings_, opening);
  if (!failure) co_return;
  closeOpeningWindow(*opening);
  if (opening->replacedOpenDocumentWindow && !isTerminating_) showOpenDocumentWindow();
  // Whatever else went wrong, the user who closed the window has no more to hear of it.
  if (opening->closedByUser) throw async::OperationCancelled();
  std::rethrow_exception(failure);
}

async::Task<void> DocumentOpenCoordinator::prepareAndCreateWindow(
    std::filesystem::path url, RecentDocumentUse recentDocumentUse,
    std::optional<std::string> expectedFingerprint, std::shared_ptr<OpeningBook> opening) {
  // The observer runs on the thread that reads the book; the window is the main executor's.
  PreparationObserver observer;
  observer.packageDocumentRead = [weakSelf = weak_from_this(),
                                  weakOpening = std::weak_ptr<OpeningBook>(opening)](
                                     const std::string& path, const std::string& document) {
    async::postToMain([weakSelf, weakOpening, title = titleOfPackage(path, document)] {
      const auto self = weakSelf.lock();
      const auto opening = weakOpening.lock();
      if (self && opening) self->showOpeningWindow(*opening, title);
    });
  };
  observer.progressed = [weakOpening = std::weak_ptr<OpeningBook>(opening)](double fraction) {
    async::postToMain([weakOpening, fraction] {
      const auto opening = weakOpening.lock();
      if (opening && opening->window && !opening->prepared) {
        opening->window->showOpenProgress(fraction);
      }
    });
  };

  // The preparation stops when the window is closed, or when whoever awaits this open stops.
  const async::TaskContext parent = co_await async::currentContext();
  const std::stop_callback forwardStop(parent.stopToken,
                                       [opening] { opening->cancellation.request_stop(); });
  std::optional<OpenPublicationDecision> decision;
  std::exception_ptr failure;
  try {
    decision = co_await openPublication()
                   ->prepare(url, std::move(expectedFingerprint), std::move(observer))
                   .withContext(async::TaskContext{opening->cancellation.get_token(),
                                                   parent.performanceTrace});
  } catch (...) {
    failure = std::current_exception();
  }
  opening->prepared = true;
  opening->progress->end();
  if (failure) std::rethrow_exception(failure);

  if (const auto* existing = std::get_if<ActivateExisting>(&*decision)) {
    closeOpeningWindow(*opening);
    closeOpenDocumentWindow();
    registry()->activate(existing->fingerprint);
    logOpenEvent("Brought the window of " + existing->fingerprint + " forward");
    if (recentDocumentUse == RecentDocumentUse::remember) rememberRecentDocument(url);
    co_return;
  }
  const CreateWindow& create = std::get<CreateWindow>(*decision);
  try {
    // Closed in the moment between the end of the preparation and this.
    if (opening->closedByUser) throw async::OperationCancelled();
    co_await createWindow(create, *opening);
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) {
    openPublication()->releaseReservation(create.fingerprint);
    std::rethrow_exception(failure);
  }
  if (recentDocumentUse == RecentDocumentUse::remember) rememberRecentDocument(url);
}

void DocumentOpenCoordinator::showOpeningWindow(OpeningBook& opening,
                                                const std::optional<PublicationTitle>& title) {
  if (opening.prepared || opening.window || opening.closedByUser || isTerminating_) return;
  opening.title = title;
  opening.progress->end();
  const std::string name = windowTitle(title, opening.sourceURL);
  opening.window = windowFactory_->makeOpeningWindow(
      *this, OpeningWindowRequest{opening.sourceURL, name,
                                  ReaderWindowFrame::place(platform_->storedReaderWindowFrame(),
                                                           platform_->screens())});
  opening.replacedOpenDocumentWindow = openDocumentWindow_ != nullptr;
  closeOpenDocumentWindow();
  opening.window->present();
  logOpenEvent("Showed the window of " + opening.sourceURL.filename().string() +
               " while it is prepared, titled " + name);
  // The reader's web view starts while the rest of the book is prepared; after the window, which
  // comes first.
  if (environment_.startReaderAhead && environment_.runtimeRoot) {
    environment_.startReaderAhead(*environment_.runtimeRoot);
  }
}

void DocumentOpenCoordinator::closeOpeningWindow(OpeningBook& opening) {
  // Taken out first: the close that follows is no user's.
  if (auto window = std::exchange(opening.window, nullptr)) window->close();
}

std::size_t DocumentOpenCoordinator::openingWindowCount() const {
  return static_cast<std::size_t>(std::count_if(
      openings_.begin(), openings_.end(), [](const auto& opening) { return opening->window; }));
}

async::Task<void> DocumentOpenCoordinator::createWindow(CreateWindow decision,
                                                        OpeningBook& opening) {
  if (!environment_.runtimeRoot) throwFailure(DocumentOpenFailure::sourceUnavailable);
  const std::filesystem::path runtimeRoot = *environment_.runtimeRoot;
  const std::string fingerprint = decision.fingerprint;

  std::shared_ptr<WindowSession> session = sessionFactory_->makeSession(fingerprint);

  ReaderWindowRequest request;
  request.sourceURL = decision.sourceURL;
  request.fingerprint = fingerprint;
  request.session = session;
  request.frame =
      ReaderWindowFrame::place(platform_->storedReaderWindowFrame(), platform_->screens());
  request.handlePaginationKey =
      [weakSession = std::weak_ptr<WindowSession>(session)](ReaderNavigationDirection direction) {
        const auto strongSession = weakSession.lock();
        return strongSession && strongSession->handlePaginationKey(direction);
      };
  request.openingWindow = std::exchange(opening.window, nullptr);
  const bool tookOver = request.openingWindow != nullptr;
  std::shared_ptr<ShellWindow> window = windowFactory_->makeReaderWindow(*this, std::move(request));
  if (tookOver) window->setTitle(windowTitle(opening.title, decision.sourceURL));

  openWindows_[fingerprint] = ReaderWindowEntry{window, session};
  updateActiveReaderWindowCount();
  closeOpenDocumentWindow();
  saveRestorationFile();
  // Presenting a window brings the application forward with it; nothing may present another
  // window after it.
  registry()->registerActive(fingerprint, [weakWindow = std::weak_ptr<ShellWindow>(window)] {
    if (auto strongWindow = weakWindow.lock()) strongWindow->present();
  });
  window->present();

  std::exception_ptr failure;
  try {
    co_await session->open(decision.resources, runtimeRoot, fingerprint);
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) {
    window->close();
    std::rethrow_exception(failure);
  }
  window->setTitle(windowTitle(session->publicationTitle(), decision.sourceURL));
  if (environment_.bookOpened) environment_.bookOpened(decision.resources, decision.sourceURL);
  logOpenEvent("Opened the window of " + fingerprint);
}

namespace {

// A name in the isolate of the base direction its book declares, so that its neutral
// characters stay on its own side whatever surrounds it; a name without a declared direction
// keeps the rule of its first strong character.
std::string isolated(std::string name, const std::optional<std::string>& direction) {
  if (direction == "rtl") return "\u2067" + name + "\u2069";
  if (direction == "ltr") return "\u2066" + name + "\u2069";
  return name;
}

}  // namespace

std::string DocumentOpenCoordinator::windowTitle(const std::optional<PublicationTitle>& publication,
                                                 const std::filesystem::path& sourceURL) {
  std::string title;
  if (publication && publication->title) title = trimmed(*publication->title);
  if (!title.empty()) title = isolated(std::move(title), publication->titleDirection);
  if (title.empty()) title = sourceURL.stem().string();
  std::string authors;
  if (publication) {
    for (const std::string& author : publication->authors) {
      const std::string name = trimmed(author);
      if (name.empty()) continue;
      if (!authors.empty()) authors += ", ";
      authors += name;
    }
  }
  if (!authors.empty()) title += " \u2014 " + isolated(authors, publication->authorsDirection);
  return title;
}

void DocumentOpenCoordinator::requestOpen(std::filesystem::path url) {
  async::spawn(runRequestedOpen(weak_from_this(), std::move(url)));
}

async::Task<void> DocumentOpenCoordinator::runRequestedOpen(
    std::weak_ptr<DocumentOpenCoordinator> weakSelf, std::filesystem::path url) {
  std::shared_ptr<DocumentOpenCoordinator> self = weakSelf.lock();
  if (!self) co_return;
  std::exception_ptr failure;
  try {
    co_await self->open(std::move(url), RecentDocumentUse::remember, std::nullopt);
  } catch (...) {
    failure = std::current_exception();
  }
  // An open that quitting or its closed window cut short is no failure to hear about.
  if (!failure || self->isTerminating_) co_return;
  try {
    std::rethrow_exception(failure);
  } catch (const async::OperationCancelled&) {
    co_return;
  } catch (...) {
  }
  self->present(failure);
}

void DocumentOpenCoordinator::present(const std::exception_ptr& error) {
  const DocumentOpenErrorPresentation presentation = DocumentOpenErrorPresentation::from(error);
  logOpenFailure(presentation.diagnostic);
  async::spawn(
      [](std::shared_ptr<ShellPlatform> platform, AlertContent content) -> async::Task<void> {
        co_await platform->runAlert(std::move(content));
      }(platform_, AlertContent{
                       AlertStyle::warning, presentation.title, presentation.message, {"OK"}}));
}

async::Task<bool> DocumentOpenCoordinator::locate(std::string fingerprint) {
  const std::shared_ptr<DocumentOpenCoordinator> keepAlive = shared_from_this();
  const std::size_t choice = co_await platform_->runAlert(AlertContent{
      AlertStyle::informational,
      "The original EPUB can\u2019t be accessed",
      "Locate the same EPUB to restore this reading window. A different file or edition "
      "won\u2019t be accepted.",
      {"Not Now", "Locate EPUB\u2026"}});
  if (choice != 1) co_return false;
  const std::vector<std::filesystem::path> chosen =
      co_await platform_->chooseEPUBFiles(FileSelection::single);
  if (chosen.empty()) co_return false;

  std::exception_ptr failure;
  try {
    co_await open(standardised(chosen.front()), RecentDocumentUse::remember, fingerprint);
  } catch (...) {
    failure = std::current_exception();
  }
  if (!failure) co_return true;
  if (holdsFailure(failure, DocumentOpenFailure::relocatedContentMismatch)) {
    co_await platform_->runAlert(AlertContent{
        AlertStyle::warning,
        "This isn\u2019t the same EPUB",
        "Tomekeeper kept the existing reading position and annotations unchanged. Choose the "
        "original file or an identical copy.",
        {"OK"}});
  } else {
    co_await platform_->runAlert(AlertContent{
        AlertStyle::warning,
        "The EPUB couldn\u2019t be reopened",
        "Tomekeeper kept the existing reading position and annotations unchanged. You can try "
        "locating the file again later.",
        {"OK"}});
  }
  co_return false;
}

void DocumentOpenCoordinator::presentOpenPanel() {
  async::spawn([](std::weak_ptr<DocumentOpenCoordinator> weakSelf,
                  std::shared_ptr<ShellPlatform> platform) -> async::Task<void> {
    const std::vector<std::filesystem::path> chosen =
        co_await platform->chooseEPUBFiles(FileSelection::multiple);
    const auto self = weakSelf.lock();
    if (!self) co_return;
    for (const auto& file : chosen) self->requestOpen(file);
  }(weak_from_this(), platform_));
}

void DocumentOpenCoordinator::showOpenDocumentWindow() {
  if (!openWindows_.empty()) return;
  if (!openDocumentWindow_) {
    openDocumentWindow_ = windowFactory_->makeOpenDocumentWindow(
        *this, [weakSelf = weak_from_this()](std::filesystem::path url) {
          if (auto self = weakSelf.lock()) self->requestOpen(std::move(url));
        });
  }
  openDocumentWindow_->present();
}

void DocumentOpenCoordinator::closeOpenDocumentWindow() {
  if (auto window = std::exchange(openDocumentWindow_, nullptr)) window->close();
}

void DocumentOpenCoordinator::rememberRecentDocument(const std::filesystem::path& url) {
  platform_->noteRecentDocument(url);
  recentDocumentURLs_ = platform_->recentDocuments();
  recentDocumentURLsChanged.emit();
}

void DocumentOpenCoordinator::clearRecentDocuments() {
  platform_->clearRecentDocuments();
  recentDocumentURLs_ = platform_->recentDocuments();
  recentDocumentURLsChanged.emit();
}

void DocumentOpenCoordinator::updateActiveReaderWindowCount() {
  const int count = static_cast<int>(openWindows_.size());
  if (count == activeReaderWindowCount_) return;
  activeReaderWindowCount_ = count;
  activeReaderWindowCountChanged.emit();
}

void DocumentOpenCoordinator::windowWillClose(ShellWindow& window) {
  for (const auto& opening : openings_) {
    if (!opening->window || opening->window.get() != &window) continue;
    opening->closedByUser = true;
    opening->cancellation.request_stop();
    // Kept until the end: the window may be inside its own close().
    const auto closing = std::exchange(opening->window, nullptr);
    logOpenEvent("The window of " + opening->sourceURL.filename().string() +
                 " closed while it was prepared; its open stops");
    return;
  }
  if (openDocumentWindow_ && openDocumentWindow_.get() == &window) {
    openDocumentWindow_.reset();
    return;
  }
  const auto found = openWindows_.find(window.identifier());
  if (found == openWindows_.end() || found->second.controller.get() != &window) return;
  const std::string fingerprint = found->first;
  // Kept until the end: the window may be inside its own close().
  const ReaderWindowEntry entry = found->second;
  platform_->storeReaderWindowFrame(window.frame());
  entry.session->close();
  registry()->removeActive(fingerprint);
  openWindows_.erase(found);
  updateActiveReaderWindowCount();
  if (!isTerminating_) saveRestorationFile();
}

void DocumentOpenCoordinator::windowDidResize(ShellWindow& window) {
  const auto found = openWindows_.find(window.identifier());
  if (found == openWindows_.end() || found->second.controller.get() != &window) return;
  platform_->storeReaderWindowFrame(window.frame());
}

async::Task<std::int64_t> DocumentOpenCoordinator::readingCacheSize() {
  const auto cache = extractionCache();
  co_return co_await cache->measureSize();
}

async::Task<void> DocumentOpenCoordinator::clearReadingCache() {
  if (!openWindows_.empty() || activeOpenOperations_ != 0) {
    throwFailure(ReadingCacheMaintenanceError::readersAreOpen);
  }
  if (isClearingReadingCache_) throwFailure(ReadingCacheMaintenanceError::maintenanceInProgress);
  const std::shared_ptr<DocumentOpenCoordinator> keepAlive = shared_from_this();
  isClearingReadingCache_ = true;
  std::exception_ptr failure;
  try {
    co_await extractionCache()->clear();
  } catch (...) {
    failure = std::current_exception();
  }
  isClearingReadingCache_ = false;
  if (failure) std::rethrow_exception(failure);
}

void DocumentOpenCoordinator::prepareForTermination() {
  isTerminating_ = true;
  saveRestorationFile();
}

}  // namespace tomekeeper
