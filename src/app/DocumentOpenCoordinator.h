#pragma once

#include <sigc++/signal.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/ReaderWindowFactory.h"
#include "app/ReadingCacheMaintenanceError.h"
#include "app/ShellPlatform.h"
#include "app/ShellWindow.h"
#include "app/WindowSession.h"
#include "async/Task.h"
#include "intake/PublicationExtractionCache.h"
#include "opening/DocumentOpenRegistry.h"
#include "opening/OpenPublication.h"
#include "opening/PreparedPublicationResources.h"
#include "opening/SecurityScopedAccess.h"
#include "opening/SourceBookmarkStore.h"

namespace tomekeeper {

// Whether an open puts its file into the recent documents.
enum class RecentDocumentUse { remember, skip };

// One open book: its window and its session.
struct ReaderWindowEntry {
  std::shared_ptr<ShellWindow> controller;
  std::shared_ptr<WindowSession> session;
};

// The application's one long-lived controller. It makes the stores of the open road lazily, owns
// the windows of open books by fingerprint, turns an open decision into a window and a session,
// remembers which books were open and brings them back at the next launch (asking for a file
// that has gone), keeps the recent documents and guards the clearing of the reading cache.
//
// Made with create() and held by the application for its whole life; tasks it starts hold it
// weakly and end when it is gone. Main executor only; nothing here needs a lock.
class DocumentOpenCoordinator final : public ShellWindowDelegate,
                                      public std::enable_shared_from_this<DocumentOpenCoordinator> {
 public:
  // Where the coordinator keeps things, and what it may be given instead of its own stores.
  struct Environment {
    // "tomekeeper" in the user's data directory: DocumentAccess/, Publications/, Global/.
    std::filesystem::path supportDirectory;
    // "tomekeeper/Publications" in the user's cache directory.
    std::filesystem::path cachesRoot;
    // The directory of the reader runtime among the application's resources; absent when the
    // application has none, and then every window fails with sourceUnavailable.
    std::optional<std::filesystem::path> runtimeRoot;
    // Stand-ins for tests; absent means the real ones.
    std::shared_ptr<PublicationFingerprinting> fingerprintService;
    std::shared_ptr<SecurityScopedBookmarkCoding> bookmarkCodec;
    std::shared_ptr<PublicationCachePreparing> publicationCache;
    // Told of each book whose window has opened: what the open road prepared and the file it
    // came from. The application records the book for its library there. Optional.
    std::function<void(const PreparedPublicationResources&, const std::filesystem::path&)>
        bookOpened;
    // Told, with `runtimeRoot`, when the window of a book still being prepared shows: the
    // application starts the reader's web view and its runtime page then, while the rest of the
    // book is prepared. Optional.
    std::function<void(const std::filesystem::path&)> startReaderAhead;
  };

  // The file of the books open at quit, under supportDirectory.
  static constexpr const char* kRestorationFileName = "DocumentAccess/window-restoration.json";
  // How long an open may take before it shows its progress: a book that opens from the caches
  // shows none.
  static constexpr std::chrono::milliseconds kOpenProgressDelay{300};

  static std::shared_ptr<DocumentOpenCoordinator> create(
      Environment environment, std::shared_ptr<ShellPlatform> platform,
      std::shared_ptr<ReaderWindowFactory> windowFactory,
      std::shared_ptr<WindowSessionFactory> sessionFactory);

  // The user's data and cache directories (XDG variables honoured) and `runtimeRoot`.
  static Environment standardEnvironment(std::optional<std::filesystem::path> runtimeRoot);

  // The launch decision, made once: opens `urls`, or restores the books of the restoration file,
  // or shows the open window.
  void start(const std::vector<std::filesystem::path>& urls);

  // The open road, to an activated or a new window. A book read for the first time gets its
  // window as soon as its package document is known, titled and showing the progress of the
  // rest; that window becomes the book's reader window, or closes when the open fails or finds
  // the book's window already open. Closing it cancels the open, which then throws
  // async::OperationCancelled. Throws maintenanceInProgress while the cache is being cleared,
  // and whatever the road or the session's open throws; a reservation that did not become a
  // window is released.
  async::Task<void> open(std::filesystem::path url, RecentDocumentUse recentDocumentUse,
                         std::optional<std::string> expectedFingerprint);

  // Opens `url` on a task of its own and presents a failure.
  void requestOpen(std::filesystem::path url);

  // The non-modal open panel; each chosen file is opened.
  void presentOpenPanel();

  // Does nothing while a book is open; shows the open window otherwise.
  void showOpenDocumentWindow();

  // The alert of a failed open, and its line in the log.
  void present(const std::exception_ptr& error);

  // Asks the user for a book whose file has gone; true when it was found and opened.
  async::Task<bool> locate(std::string fingerprint);

  void clearRecentDocuments();

  // Bytes that the reading cache occupies.
  async::Task<std::int64_t> readingCacheSize();
  // Throws readersAreOpen while a book is open or being opened, maintenanceInProgress while
  // another clear runs, and the file system's failure.
  async::Task<void> clearReadingCache();

  // The application is ending: the windows that close from now on stay in the restoration file.
  void prepareForTermination();

  // Writes the fingerprints of the open windows, sorted; failures are ignored.
  void saveRestorationFile() const;
  // The fingerprints of the restoration file at `file`; empty when it is missing or malformed.
  static std::vector<std::string> readRestorationList(const std::filesystem::path& file);

  // The publication's title and authors, "Title — Author, Author"; the file name without its
  // extension when there is no title.
  static std::string windowTitle(const std::optional<PublicationTitle>& publication,
                                 const std::filesystem::path& sourceURL);

  // ShellWindowDelegate.
  void windowWillClose(ShellWindow& window) override;
  void windowDidResize(ShellWindow& window) override;

  // Observable state.
  const std::vector<std::filesystem::path>& recentDocumentURLs() const {
    return recentDocumentURLs_;
  }
  int activeReaderWindowCount() const { return activeReaderWindowCount_; }
  sigc::signal<void()> recentDocumentURLsChanged;
  sigc::signal<void()> activeReaderWindowCountChanged;

  const std::map<std::string, ReaderWindowEntry>& openWindows() const { return openWindows_; }
  // Windows of books still being prepared.
  std::size_t openingWindowCount() const;
  const std::shared_ptr<ShellWindow>& openDocumentWindow() const { return openDocumentWindow_; }
  bool isTerminating() const { return isTerminating_; }
  int activeOpenOperations() const { return activeOpenOperations_; }
  bool isClearingReadingCache() const { return isClearingReadingCache_; }
  const Environment& environment() const { return environment_; }
  std::filesystem::path restorationFileURL() const {
    return environment_.supportDirectory / kRestorationFileName;
  }

  // The lazily made stores, each made once.
  const std::shared_ptr<SourceBookmarkStore>& bookmarkStore();
  const std::shared_ptr<PublicationExtractionCache>& extractionCache();
  const std::shared_ptr<DocumentOpenRegistry>& registry();
  const std::shared_ptr<OpenPublication>& openPublication();

 private:
  DocumentOpenCoordinator(Environment environment, std::shared_ptr<ShellPlatform> platform,
                          std::shared_ptr<ReaderWindowFactory> windowFactory,
                          std::shared_ptr<WindowSessionFactory> sessionFactory);

  struct OpeningBook;
  async::Task<void> prepareAndCreateWindow(std::filesystem::path url,
                                           RecentDocumentUse recentDocumentUse,
                                           std::optional<std::string> expectedFingerprint,
                                           std::shared_ptr<OpeningBook> opening);
  void showOpeningWindow(OpeningBook& opening, const std::optional<PublicationTitle>& title);
  void closeOpeningWindow(OpeningBook& opening);
  async::Task<void> createWindow(CreateWindow decision, OpeningBook& opening);
  void rememberRecentDocument(const std::filesystem::path& url);
  void closeOpenDocumentWindow();
  void updateActiveReaderWindowCount();
  static async::Task<void> restore(std::weak_ptr<DocumentOpenCoordinator> weakSelf,
                                   std::vector<std::string> fingerprints);
  static async::Task<void> runRequestedOpen(std::weak_ptr<DocumentOpenCoordinator> weakSelf,
                                            std::filesystem::path url);

  Environment environment_;
  std::shared_ptr<ShellPlatform> platform_;
  std::shared_ptr<ReaderWindowFactory> windowFactory_;
  std::shared_ptr<WindowSessionFactory> sessionFactory_;

  std::shared_ptr<SecurityScopedAccessLedger> accessLedger_;
  std::shared_ptr<SourceBookmarkStore> bookmarkStore_;
  std::shared_ptr<PublicationExtractionCache> extractionCache_;
  std::shared_ptr<DocumentOpenRegistry> registry_;
  std::shared_ptr<OpenPublication> openPublication_;

  std::map<std::string, ReaderWindowEntry> openWindows_;
  std::shared_ptr<ShellWindow> openDocumentWindow_;
  std::vector<std::shared_ptr<OpeningBook>> openings_;
  bool isTerminating_ = false;
  int activeOpenOperations_ = 0;
  bool isClearingReadingCache_ = false;
  std::vector<std::filesystem::path> recentDocumentURLs_;
  int activeReaderWindowCount_ = 0;
};

// Writes "Open failed: <diagnostic>" at error priority, domain "Tomekeeper", with the field
// TOMEKEEPER_CATEGORY "DocumentOpen".
void logOpenFailure(const std::string& diagnostic);
// Writes `message` at info level with the same domain and category.
void logOpenEvent(const std::string& message);

}  // namespace tomekeeper
