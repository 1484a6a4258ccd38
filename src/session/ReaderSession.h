#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include <sigc++/connection.h>

#include "async/Task.h"
#include "model/Annotation.h"
#include "model/Bookmark.h"
#include "model/Locator.h"
#include "model/PageLayout.h"
#include "model/PublicationDescriptor.h"
#include "model/ReadingMode.h"
#include "model/ReadingThemeSelection.h"
#include "model/ScrolledContentWidth.h"
#include "model/SystemFontCataloging.h"
#include "model/TableOfContentsItem.h"
#include "model/TableOfContentsOutlineNode.h"
#include "model/TypographyPreferences.h"
#include "model/Uuid.h"
#include "opening/PreparedPublicationResources.h"
#include "opening/ReaderError.h"
#include "persistence/AnnotationRepository.h"
#include "persistence/BookmarkRepository.h"
#include "persistence/PageLayoutRepository.h"
#include "persistence/ReadingModeRepository.h"
#include "persistence/ReadingPositionRepository.h"
#include "persistence/ReadingThemeRepository.h"
#include "persistence/ScrolledContentWidthRepository.h"
#include "persistence/TypographyPreferencesRepository.h"
#include "runtime/BridgeMessages.h"
#include "runtime/PublicationSafetyScan.h"
#include "session/ExternalURLOpening.h"
#include "session/LocationDiagnostics.h"
#include "session/NavigationHistory.h"
#include "session/ObservableProperty.h"
#include "session/ReaderHosting.h"
#include "session/ReaderLayoutReport.h"
#include "session/ReaderNavigationDirection.h"

namespace tomekeeper {

// What a session is given. Every repository may be absent: an operation on an absent one is
// skipped and nothing fails. The host, the font catalogue, the opener and the location log
// parts default to the system's own when absent.
struct ReaderSessionDependencies {
  std::shared_ptr<ReaderHosting> host;
  std::shared_ptr<ReadingPositionRepository> positionRepository;
  std::shared_ptr<BookmarkRepository> bookmarkRepository;
  std::shared_ptr<AnnotationRepository> annotationRepository;
  std::shared_ptr<SystemFontCataloging> fontCatalog;
  std::shared_ptr<TypographyPreferencesRepository> typographyRepository;
  std::shared_ptr<ReadingThemeRepository> themeRepository;
  std::shared_ptr<ReadingModeRepository> readingModeRepository;
  std::shared_ptr<PageLayoutRepository> pageLayoutRepository;
  std::shared_ptr<ScrolledContentWidthRepository> scrolledContentWidthRepository;
  std::shared_ptr<ExternalURLOpening> externalURLOpener;
  std::shared_ptr<LocationDiagnosticsSetting> locationDiagnosticsSetting;
  std::shared_ptr<LocationLog> locationDiagnosticLog;
  // The quiet time after the last runtime locator event before the position is written.
  std::chrono::steady_clock::duration locatorSaveDelay = std::chrono::milliseconds(350);
};

// The result of toggling a bookmark at the current location.
enum class BookmarkToggle { added, removed };

// The state of one reading window: it drives the reader runtime through the host's bridge,
// keeps the book's position, preferences, bookmarks, highlights, contents and search in
// observable properties for the views, and keeps the stores in step.
//
// Made with create() and owned by the window's entry; confined to the main executor (every
// member, every callback, every task it starts). Views read the properties below and connect
// to their `changed()` signals; they never write. Commands are coroutines: the caller awaits
// them (or spawns them) while holding the session. Every failure after open goes through
// recordFailure, lands in `error`, and is thrown as a ReaderError; commands that test `state`
// do nothing outside `ready`. Tasks the session starts for itself hold it weakly, except the
// close-time save, which keeps its own copies and outlives the session by one write.
class ReaderSession : public std::enable_shared_from_this<ReaderSession> {
 public:
  enum class State { idle, loading, ready, failed, closed };

  static std::shared_ptr<ReaderSession> create(ReaderSessionDependencies dependencies = {});
  // Disconnects the font-set observer and cancels the delayed save and the font-set refresh.
  ~ReaderSession();
  ReaderSession(const ReaderSession&) = delete;
  ReaderSession& operator=(const ReaderSession&) = delete;

  // ---- Observable properties ----
  // What the runtime reported of the page it laid out (ReaderLayoutReport.h).
  const ReaderLayoutReport& layoutReport() const noexcept { return layoutReport_; }
  const ObservableProperty<State>& state() const noexcept { return state_; }
  const ObservableProperty<std::optional<OpenPublicationResult>>& publication() const noexcept {
    return publication_;
  }
  const ObservableProperty<std::vector<TableOfContentsItem>>& tableOfContents() const noexcept {
    return tableOfContents_;
  }
  const ObservableProperty<std::optional<ReaderPositionResult>>& position() const noexcept {
    return position_;
  }
  const ObservableProperty<std::optional<Locator>>& locator() const noexcept { return locator_; }
  const ObservableProperty<std::vector<Bookmark>>& bookmarks() const noexcept { return bookmarks_; }
  const ObservableProperty<std::set<Uuid>>& visibleBookmarkIDs() const noexcept {
    return visibleBookmarkIDs_;
  }
  const ObservableProperty<std::optional<TextSelection>>& currentTextSelection() const noexcept {
    return currentTextSelection_;
  }
  const ObservableProperty<std::optional<ReaderSelectionRect>>& currentSelectionRect()
      const noexcept {
    return currentSelectionRect_;
  }
  const ObservableProperty<std::optional<ReaderAnnotationContextMenuRequest>>& noteEditingRequest()
      const noexcept {
    return noteEditingRequest_;
  }
  const ObservableProperty<std::optional<Annotation>>& annotationPendingRemoval() const noexcept {
    return annotationPendingRemoval_;
  }
  const ObservableProperty<std::vector<Annotation>>& annotations() const noexcept {
    return annotations_;
  }
  const ObservableProperty<std::set<Uuid>>& unresolvedAnnotationIDs() const noexcept {
    return unresolvedAnnotationIDs_;
  }
  const ObservableProperty<std::optional<ReaderError>>& error() const noexcept { return error_; }
  // What the book's documents try, all of it blocked, and what its intake found; counted off
  // the main thread once the book is open, absent until then or when the book could not be read.
  const ObservableProperty<std::optional<PublicationSafetyReport>>& safetyReport() const noexcept {
    return safetyReport_;
  }
  // The scan of the book's documents ended; kept unless the session closed meanwhile.
  void takeSafetyReport(PublicationSafetyReport report);
  const ObservableProperty<TypographyFontSelection>& fontSelection() const noexcept {
    return fontSelection_;
  }
  const ObservableProperty<TypographyFontScaleSelection>& fontScaleSelection() const noexcept {
    return fontScaleSelection_;
  }
  const ObservableProperty<TypographyLineHeightSelection>& lineHeightSelection() const noexcept {
    return lineHeightSelection_;
  }
  const ObservableProperty<TypographyLetterSpacingSelection>& letterSpacingSelection()
      const noexcept {
    return letterSpacingSelection_;
  }
  const ObservableProperty<TypographyPageMarginsSelection>& pageMarginsSelection() const noexcept {
    return pageMarginsSelection_;
  }
  const ObservableProperty<std::optional<std::string>>& fontFallbackRequestedStableName()
      const noexcept {
    return fontFallbackRequestedStableName_;
  }
  const ObservableProperty<std::int64_t>& fontCatalogRevision() const noexcept {
    return fontCatalogRevision_;
  }
  const ObservableProperty<ReadingThemeSelection>& readingTheme() const noexcept {
    return readingTheme_;
  }
  const ObservableProperty<std::optional<std::string>>& lastOpenedExternalURL() const noexcept {
    return lastOpenedExternalURL_;
  }
  const ObservableProperty<ReadingMode>& readingMode() const noexcept { return readingMode_; }
  const ObservableProperty<PageLayout>& pageLayout() const noexcept { return pageLayout_; }
  const ObservableProperty<ScrolledContentWidth>& scrolledContentWidth() const noexcept {
    return scrolledContentWidth_;
  }
  const ObservableProperty<std::optional<Uuid>>& activeSearchID() const noexcept {
    return activeSearchID_;
  }
  const ObservableProperty<std::vector<PublicationSearchResult>>& searchResults() const noexcept {
    return searchResults_;
  }
  const ObservableProperty<bool>& isSearchComplete() const noexcept { return isSearchComplete_; }

  // ---- Plain fields, for the shell and for diagnostics ----
  const std::string& locationDiagnosticID() const noexcept { return locationDiagnosticID_; }
  const std::shared_ptr<ReaderHosting>& host() const noexcept { return host_; }
  const std::optional<std::string>& fingerprint() const noexcept { return fingerprint_; }
  bool shouldPersistCurrentLocatorOnClose() const noexcept {
    return shouldPersistCurrentLocatorOnClose_;
  }
  std::int64_t selectionRevision() const noexcept { return selectionRevision_; }

  // ---- Lifecycle (ReaderSession.cpp) ----

  // The open sequence: registers the publication, loads the runtime, opens the book, restores
  // `initialLocator` or the saved position, loads bookmarks and highlights, applies the stored
  // preferences, restores the position once more and ends `ready`. A failure of a step that
  // the book cannot do without ends in `failed` and throws the ReaderError (also in `error`);
  // a broken bookmark, highlight or preference store only sets `error` and the open goes on.
  // A close() while the open runs ends it with a thrown ReaderError, and the session stays
  // `closed` with nothing of the book refilled.
  async::Task<void> open(PublicationDescriptor descriptor, std::filesystem::path extractedRoot,
                         std::filesystem::path runtimeRoot, std::optional<std::string> fingerprint,
                         std::optional<Locator> initialLocator = std::nullopt);
  // The same open of a book the open road prepared; its safety report also says what the
  // book's intake found.
  async::Task<void> open(PreparedPublicationResources resources, std::filesystem::path runtimeRoot,
                         std::optional<std::string> fingerprint);

  // Ends the session in any state and cannot fail: saves `locator` without waiting (unless
  // the reading data was cleared), closes the host, empties the per-book properties and ends
  // `closed`. `locator` stays.
  void close();

  // Makes the ReaderError of `failure`, stores it in `error` unless the session is closed, and
  // returns it.
  ReaderError recordFailure(const std::exception_ptr& failure);

  // ---- Position (ReaderSessionPosition.cpp) ----
  // The four navigation commands do not test `state`.
  async::Task<void> nextPage();
  async::Task<void> previousPage();
  async::Task<void> nextSection();
  async::Task<void> previousSection();
  // Reads the runtime's locator into `locator` and saves it at once.
  async::Task<void> refreshAndSaveLocator();
  // The toolbar's label, from `readingMode`, `position` and `effectiveColumnCount`.
  std::optional<std::string> pageLabel() const;
  // The runtime reported a move: stored and saved after the quiet time, in `ready` only.
  void handleLocatorChanged(Locator locator);
  // One line of the location log, while the setting is on; with the session's `locator`, or
  // with `locator` when given.
  void logLocation(std::string_view stage);
  void logLocation(std::string_view stage, const std::optional<Locator>& locator);
  // The view's keys, which the shell reads: a page in `direction` when `ready`. The pagination key
  // is only taken in paginated mode; the answer says whether it was. A direction toward a side
  // reads on or back as the book's page progression says.
  void handleNavigationKey(ReaderNavigationDirection direction);
  bool handlePaginationKey(ReaderNavigationDirection direction);

  // ---- Jumps and the way back (ReaderSessionHistory.cpp); nothing unless `ready` ----
  // A link of the book to one of its sections: the reader goes there, and Back returns.
  async::Task<void> followLink(std::string url);
  // Back to where the reader was before the last jump, and Forward again; nothing when there is
  // nowhere to go. The history belongs to the session and is never saved.
  async::Task<void> goBack();
  async::Task<void> goForward();
  const ObservableProperty<NavigationAvailability>& navigationAvailability() const noexcept {
    return navigationAvailability_;
  }

  // ---- Preferences (ReaderSessionPreferences.cpp) ----
  // Commands: nothing unless `ready`; each relayouts, restores the place, then writes its
  // store. Failures are recorded and thrown.
  async::Task<void> setFontSelection(TypographyFontSelection selection);
  async::Task<void> setFontScale(TypographyFontScaleSelection selection);
  async::Task<void> adjustFontScale(double step);
  async::Task<void> setLineHeight(TypographyLineHeightSelection selection);
  async::Task<void> setLetterSpacing(TypographyLetterSpacingSelection selection);
  async::Task<void> setPageMargins(TypographyPageMarginsSelection selection);
  async::Task<void> restoreBookTypography();
  async::Task<void> setReadingTheme(ReadingThemeSelection selection);
  async::Task<void> setReadingMode(ReadingMode mode);
  async::Task<void> setPageLayout(PageLayout layout);
  async::Task<void> setScrolledContentWidth(ScrolledContentWidth width);
  // Appliers, used by open and by the commands; they do not test `state`, write no store and
  // only throw (nothing is recorded).
  async::Task<void> applyPreferences(TypographyPreferences preferences);
  async::Task<void> applyReadingTheme(ReadingThemeSelection selection);
  async::Task<void> applyReadingMode(ReadingMode mode);
  async::Task<void> applyPageLayout(PageLayout layout);
  async::Task<void> applyScrolledContentWidth(ScrolledContentWidth width);
  // The fonts for the font panel, read once per font-set change.
  const std::vector<SystemFontRecord>& availableFonts();
  // The current five selections.
  TypographyPreferences currentTypographyPreferences() const;

  // ---- Bookmarks (ReaderSessionBookmarks.cpp); nothing unless `ready` ----
  // Absent when the session is not ready.
  async::Task<std::optional<BookmarkToggle>> toggleBookmark();
  async::Task<void> removeBookmark(Bookmark bookmark);
  async::Task<void> goToBookmark(Bookmark bookmark);
  async::Task<void> refreshBookmarkVisibility();
  void handleBookmarkVisibilityChanged(std::set<Uuid> visibleIDs);

  // ---- Highlights and notes (ReaderSessionAnnotations.cpp); nothing unless `ready` ----
  void handleSelectionAvailabilityChanged(bool available, std::optional<ReaderSelectionRect> rect);
  async::Task<void> addHighlight();
  async::Task<void> saveNote(Annotation annotation, std::string editedText);
  // Removes a highlight without a note at once; one with a note waits in
  // `annotationPendingRemoval` for confirmRemoval or cancelRemoval.
  void requestAnnotationRemoval(Uuid annotationID);
  async::Task<void> confirmAnnotationRemoval();
  void cancelAnnotationRemoval();
  // The removal proper: runtime first, then the store; a refused store redraws it.
  async::Task<void> removeAnnotation(Annotation annotation);
  async::Task<void> goToAnnotation(Annotation annotation);
  void handleAnnotationContextMenuRequested(ReaderAnnotationContextMenuRequest request);
  void handleEditAnnotation(ReaderAnnotationContextMenuRequest request);
  // The note editor closed.
  void endNoteEditing();
  void handleAnnotationResolutionChanged(std::set<Uuid> resolved, std::set<Uuid> unresolved);

  // ---- Contents and search (ReaderSessionSearch.cpp); nothing unless `ready` ----
  std::vector<TableOfContentsOutlineNode> tableOfContentsOutline() const;
  async::Task<void> goToTableOfContentsEntry(std::string href);
  async::Task<void> startSearch(std::string query);
  async::Task<void> cancelSearch();
  async::Task<void> goToSearchResult(PublicationSearchResult result);
  void handleSearchResults(Uuid searchID, std::vector<PublicationSearchResult> results,
                           bool isComplete);

  // ---- Reading data (ReaderSessionReadingData.cpp) ----
  // Forgets the book's position, bookmarks and highlights, in the stores and on the page;
  // closing then saves no position. Nothing unless `ready` with a fingerprint.
  async::Task<void> clearReadingData();
  // Rereads bookmarks and highlights after something else changed their stores (a file-sync
  // engine, a restore from a backup): the lists follow, highlights gone from the store leave
  // the page, new or moved ones are drawn. A store that fails to load sets `error` and keeps
  // its list. Nothing unless `ready` with a fingerprint (ReaderSessionStoreChanges.cpp).
  async::Task<void> rereadReadingData();

  // The external link callback: opens `url` and remembers it when the desktop did.
  void handleExternalLink(const std::string& url);

 private:
  explicit ReaderSession(ReaderSessionDependencies dependencies);
  void connectCallbacks();

  ReaderBridge& bridge() const { return *host_->bridge(); }
  [[noreturn]] void failOpen(const std::exception_ptr& failure);
  void throwIfClosedDuringOpen() const;
  async::Task<void> openPublication(PublicationDescriptor descriptor,
                                    std::filesystem::path extractedRoot,
                                    std::filesystem::path runtimeRoot,
                                    std::optional<std::string> fingerprint,
                                    std::optional<Locator> initialLocator,
                                    PublicationIntakeFindings intakeFindings);
  async::Task<void> loadAndSendAnnotations();
  async::Task<void> applyStoredPreferences();

  async::Task<void> navigate(async::Task<ReaderPositionResult> call);
  static async::Task<void> saveAfterQuietTime(std::weak_ptr<ReaderSession> session,
                                              std::shared_ptr<ReadingPositionRepository> repository,
                                              std::string fingerprint, Locator locator,
                                              std::chrono::steady_clock::duration delay);
  static async::Task<void> saveOnClose(std::shared_ptr<ReaderSession> session,
                                       std::shared_ptr<ReadingPositionRepository> repository,
                                       std::string fingerprint, Locator locator);
  void startPageTurn(ReaderNavigationDirection direction);
  // Runs a move to another place and, once it succeeded, remembers where the reader was.
  async::Task<void> jump(async::Task<ReaderPositionResult> call);
  // Goes to the place that `step` of the history gives from the place shown, if any.
  async::Task<void> revisit(std::optional<Locator> (NavigationHistory::*step)(Locator));
  NavigationHistory history_;

  // The relayout frame: capture, configure, restore, read back.
  async::Task<Locator> captureLocatorBefore(std::string_view loggedStage);
  async::Task<void> restoreLocatorAfter(Locator before, std::string_view loggedStage);
  enum class FontFallbackUpdate { write, leave };
  enum class SelectionUpdate {
    all,
    fontOnly,
    fontScaleOnly,
    lineHeightOnly,
    letterSpacingOnly,
    pageMarginsOnly
  };
  async::Task<void> configureTypography(TypographyPreferences preferences,
                                        FontFallbackUpdate fallbackUpdate,
                                        SelectionUpdate selectionUpdate,
                                        std::string_view loggedStage);
  void storeSelections(const TypographyPreferences& preferences, SelectionUpdate update);
  void handleFontSetChanged();
  static async::Task<void> refreshAfterFontSetChange(std::weak_ptr<ReaderSession> session);

  async::Task<void> sendAnnotation(const Annotation& annotation);
  static async::Task<void> updateSelection(std::weak_ptr<ReaderSession> session,
                                           std::int64_t snapshot,
                                           std::optional<ReaderSelectionRect> rect);
  async::Task<void> reloadAnnotations();
  async::Task<void> reloadBookmarks();

  // Observable properties, in declaration order.
  ReaderLayoutReport layoutReport_;
  ObservableProperty<State> state_{State::idle};
  ObservableProperty<std::optional<OpenPublicationResult>> publication_;
  ObservableProperty<std::vector<TableOfContentsItem>> tableOfContents_;
  ObservableProperty<std::optional<ReaderPositionResult>> position_;
  ObservableProperty<std::optional<Locator>> locator_;
  ObservableProperty<NavigationAvailability> navigationAvailability_;
  ObservableProperty<std::vector<Bookmark>> bookmarks_;
  ObservableProperty<std::set<Uuid>> visibleBookmarkIDs_;
  ObservableProperty<std::optional<TextSelection>> currentTextSelection_;
  ObservableProperty<std::optional<ReaderSelectionRect>> currentSelectionRect_;
  ObservableProperty<std::optional<ReaderAnnotationContextMenuRequest>> noteEditingRequest_;
  ObservableProperty<std::optional<Annotation>> annotationPendingRemoval_;
  ObservableProperty<std::vector<Annotation>> annotations_;
  ObservableProperty<std::set<Uuid>> unresolvedAnnotationIDs_;
  ObservableProperty<std::optional<ReaderError>> error_;
  ObservableProperty<std::optional<PublicationSafetyReport>> safetyReport_;
  ObservableProperty<TypographyFontSelection> fontSelection_;
  ObservableProperty<TypographyFontScaleSelection> fontScaleSelection_;
  ObservableProperty<TypographyLineHeightSelection> lineHeightSelection_;
  ObservableProperty<TypographyLetterSpacingSelection> letterSpacingSelection_;
  ObservableProperty<TypographyPageMarginsSelection> pageMarginsSelection_{
      TypographyPageMarginsSelection::bookDefault};
  ObservableProperty<std::optional<std::string>> fontFallbackRequestedStableName_;
  ObservableProperty<std::int64_t> fontCatalogRevision_{0};
  ObservableProperty<ReadingThemeSelection> readingTheme_{ReadingThemeSelection::system};
  ObservableProperty<std::optional<std::string>> lastOpenedExternalURL_;
  ObservableProperty<ReadingMode> readingMode_{ReadingMode::paginated};
  ObservableProperty<PageLayout> pageLayout_{PageLayout::adaptive};
  ObservableProperty<ScrolledContentWidth> scrolledContentWidth_{ScrolledContentWidth::comfortable};
  ObservableProperty<std::optional<Uuid>> activeSearchID_;
  ObservableProperty<std::vector<PublicationSearchResult>> searchResults_;
  ObservableProperty<bool> isSearchComplete_{true};

  // Plain fields, in declaration order.
  std::string locationDiagnosticID_;
  std::shared_ptr<LocationLog> locationDiagnosticLog_;
  std::shared_ptr<LocationDiagnosticsSetting> locationDiagnosticsSetting_;
  std::shared_ptr<ReaderHosting> host_;
  std::shared_ptr<ReadingPositionRepository> positionRepository_;
  std::shared_ptr<BookmarkRepository> bookmarkRepository_;
  std::shared_ptr<AnnotationRepository> annotationRepository_;
  std::shared_ptr<SystemFontCataloging> fontCatalog_;
  std::shared_ptr<TypographyPreferencesRepository> typographyRepository_;
  std::shared_ptr<ReadingThemeRepository> themeRepository_;
  std::shared_ptr<ReadingModeRepository> readingModeRepository_;
  std::shared_ptr<PageLayoutRepository> pageLayoutRepository_;
  std::shared_ptr<ScrolledContentWidthRepository> scrolledContentWidthRepository_;
  std::shared_ptr<ExternalURLOpening> externalURLOpener_;
  std::optional<std::vector<SystemFontRecord>> cachedAvailableFonts_;
  sigc::connection fontSetChangeObserver_;
  std::optional<std::stop_source> fontSetChangeTask_;
  std::optional<std::stop_source> locatorPersistenceTask_;
  std::optional<std::string> fingerprint_;
  bool shouldPersistCurrentLocatorOnClose_ = true;
  std::int64_t selectionRevision_ = 0;
  std::chrono::steady_clock::duration locatorSaveDelay_;
};

}  // namespace tomekeeper
