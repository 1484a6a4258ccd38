#include "session/ReaderSession.h"

#include <utility>

#include "async/BackgroundPool.h"
#include "async/Spawn.h"
#include "model/SystemFontCatalog.h"
#include "opening/OpenPerformanceTrace.h"
#include "persistence/PersistenceFailures.h"

#ifdef TOMEKEEPER_SESSION_HAS_WEB_VIEW_HOST
#include "session/WebKitReaderHosting.h"
#endif

namespace tomekeeper {

namespace {

// A link followed from the page: a failure is already in `error`, which is how it reaches the
// reader.
async::Task<void> followLinkFromPage(std::weak_ptr<ReaderSession> weak, std::string url) {
  const std::shared_ptr<ReaderSession> session = weak.lock();
  if (!session) co_return;
  try {
    co_await session->followLink(std::move(url));
  } catch (const ReaderError&) {
  }
}

// The safety report of the book unpacked at `root`, with what its intake found, told to the
// session if it is still open. A book that cannot be listed has no report; reading it fails
// elsewhere, with its own error.
async::Task<void> countBlockedAttempts(std::weak_ptr<ReaderSession> weak,
                                       std::filesystem::path root,
                                       PublicationIntakeFindings intakeFindings) {
  std::optional<PublicationSafetyReport> report;
  try {
    report = co_await async::runInBackground(
        [root](std::stop_token stopToken) { return scanPublicationSafety(root, stopToken); });
  } catch (const std::exception& error) {
    g_warning("The book's documents could not be scanned: %s", error.what());
    co_return;
  }
  report->intake = std::move(intakeFindings);
  if (const auto session = weak.lock()) session->takeSafetyReport(std::move(*report));
}

std::shared_ptr<ReaderHosting> defaultHost() {
#ifdef TOMEKEEPER_SESSION_HAS_WEB_VIEW_HOST
  return makeWebKitReaderHosting();
#else
  throw std::invalid_argument("a reader session needs a host in a build without a web view");
#endif
}

// Marks a stage of the open's trace, when a trace is bound to the open's task.
class TraceStage {
 public:
  TraceStage(std::shared_ptr<OpenPerformanceTrace> trace, OpenPerformanceTrace::Stage stage)
      : trace_(std::move(trace)), stage_(stage) {
    if (trace_) token_ = trace_->start();
  }
  void end() {
    if (trace_ && !ended_) trace_->mark(stage_, token_);
    ended_ = true;
  }

 private:
  std::shared_ptr<OpenPerformanceTrace> trace_;
  OpenPerformanceTrace::Stage stage_;
  OpenPerformanceTrace::Token token_{};
  bool ended_ = false;
};

}  // namespace

std::shared_ptr<ReaderSession> ReaderSession::create(ReaderSessionDependencies dependencies) {
  std::shared_ptr<ReaderSession> session(new ReaderSession(std::move(dependencies)));
  session->connectCallbacks();
  return session;
}

ReaderSession::ReaderSession(ReaderSessionDependencies dependencies)
    : locationDiagnosticID_(Uuid::random().string()),
      locationDiagnosticLog_(dependencies.locationDiagnosticLog
                                 ? std::move(dependencies.locationDiagnosticLog)
                                 : std::make_shared<GLibLocationLog>()),
      locationDiagnosticsSetting_(dependencies.locationDiagnosticsSetting
                                      ? std::move(dependencies.locationDiagnosticsSetting)
                                      : std::make_shared<GSettingsLocationDiagnosticsSetting>()),
      host_(dependencies.host ? std::move(dependencies.host) : defaultHost()),
      positionRepository_(std::move(dependencies.positionRepository)),
      bookmarkRepository_(std::move(dependencies.bookmarkRepository)),
      annotationRepository_(std::move(dependencies.annotationRepository)),
      fontCatalog_(dependencies.fontCatalog ? std::move(dependencies.fontCatalog)
                                            : std::make_shared<SystemFontCatalog>()),
      typographyRepository_(std::move(dependencies.typographyRepository)),
      themeRepository_(std::move(dependencies.themeRepository)),
      readingModeRepository_(std::move(dependencies.readingModeRepository)),
      pageLayoutRepository_(std::move(dependencies.pageLayoutRepository)),
      scrolledContentWidthRepository_(std::move(dependencies.scrolledContentWidthRepository)),
      externalURLOpener_(dependencies.externalURLOpener
                             ? std::move(dependencies.externalURLOpener)
                             : std::make_shared<SystemExternalURLOpener>()),
      locatorSaveDelay_(dependencies.locatorSaveDelay) {}

ReaderSession::~ReaderSession() {
  fontSetChangeObserver_.disconnect();
  if (fontSetChangeTask_) fontSetChangeTask_->request_stop();
  if (locatorPersistenceTask_) locatorPersistenceTask_->request_stop();
}

void ReaderSession::connectCallbacks() {
  const std::weak_ptr<ReaderSession> weak = weak_from_this();
  ReaderHosting& host = *host_;
  host.onExternalLink = [weak](std::string url) {
    if (auto session = weak.lock()) session->handleExternalLink(url);
  };
  host.onEditAnnotation = [weak](ReaderAnnotationContextMenuRequest request) {
    if (auto session = weak.lock()) session->handleEditAnnotation(request);
  };
  host.onRemoveAnnotation = [weak](Uuid annotationID) {
    if (auto session = weak.lock()) session->requestAnnotationRemoval(annotationID);
  };

  ReaderBridge& readerBridge = bridge();
  readerBridge.onSelectionAvailabilityChanged = [weak](bool available,
                                                       std::optional<ReaderSelectionRect> rect) {
    if (auto session = weak.lock()) session->handleSelectionAvailabilityChanged(available, rect);
  };
  readerBridge.onAnnotationContextMenuRequested =
      [weak](ReaderAnnotationContextMenuRequest request) {
        if (auto session = weak.lock()) session->handleAnnotationContextMenuRequested(request);
      };
  readerBridge.onLocatorChanged = [weak](Locator locator) {
    if (auto session = weak.lock()) session->handleLocatorChanged(std::move(locator));
  };
  readerBridge.onLinkActivated = [weak](std::string url) {
    if (auto session = weak.lock()) {
      async::spawn(followLinkFromPage(session, std::move(url)));
    }
  };
  readerBridge.onPageTurnRequested = [weak](PageTurnDirection direction) {
    if (auto session = weak.lock()) {
      session->startPageTurn(direction == PageTurnDirection::next
                                 ? ReaderNavigationDirection::next
                                 : ReaderNavigationDirection::previous);
    }
  };
  readerBridge.onBookmarkVisibilityChanged = [weak](std::set<Uuid> visibleIDs) {
    if (auto session = weak.lock()) session->handleBookmarkVisibilityChanged(std::move(visibleIDs));
  };
  readerBridge.onSearchResults = [weak](Uuid searchID, std::vector<PublicationSearchResult> results,
                                        bool isComplete) {
    if (auto session = weak.lock()) {
      session->handleSearchResults(searchID, std::move(results), isComplete);
    }
  };
  readerBridge.onAnnotationResolutionChanged = [weak](std::set<Uuid> resolved,
                                                      std::set<Uuid> unresolved) {
    if (auto session = weak.lock()) {
      session->handleAnnotationResolutionChanged(std::move(resolved), std::move(unresolved));
    }
  };

  fontSetChangeObserver_ = fontCatalog_->fontSetChanged().connect([weak] {
    if (auto session = weak.lock()) session->handleFontSetChanged();
  });
}

ReaderError ReaderSession::recordFailure(const std::exception_ptr& failure) {
  ReaderError error = ReaderError::from(failure);
  if (state_.value() != State::closed) error_.set(error);
  return error;
}

void ReaderSession::failOpen(const std::exception_ptr& failure) {
  ReaderError error = ReaderError::from(failure);
  // A close during the open has already emptied the session; it stays closed, and the open's
  // caller still learns why the open ended.
  if (state_.value() != State::closed) {
    error_.set(error);
    state_.set(State::failed);
  }
  throw error;
}

void ReaderSession::throwIfClosedDuringOpen() const {
  // After a close, the next bridge call of the open would fail on the closed host; a step that
  // had only been waiting for a store ends the open the same way, before it refills a property.
  if (state_.value() == State::closed) {
    throw ReaderBridgeFailure(ReaderBridgeFailure::Case::readerClosed);
  }
}

async::Task<void> ReaderSession::open(PublicationDescriptor descriptor,
                                      std::filesystem::path extractedRoot,
                                      std::filesystem::path runtimeRoot,
                                      std::optional<std::string> fingerprint,
                                      std::optional<Locator> initialLocator) {
  return openPublication(std::move(descriptor), std::move(extractedRoot), std::move(runtimeRoot),
                         std::move(fingerprint), std::move(initialLocator), {});
}

async::Task<void> ReaderSession::open(PreparedPublicationResources resources,
                                      std::filesystem::path runtimeRoot,
                                      std::optional<std::string> fingerprint) {
  return openPublication(std::move(resources.descriptor), std::move(resources.extractedRoot),
                         std::move(runtimeRoot), std::move(fingerprint), std::nullopt,
                         std::move(resources.intakeFindings));
}

async::Task<void> ReaderSession::openPublication(PublicationDescriptor descriptor,
                                                 std::filesystem::path extractedRoot,
                                                 std::filesystem::path runtimeRoot,
                                                 std::optional<std::string> fingerprint,
                                                 std::optional<Locator> initialLocator,
                                                 PublicationIntakeFindings intakeFindings) {
  const auto keepAlive = shared_from_this();
  const std::shared_ptr<OpenPerformanceTrace> trace = co_await OpenPerformanceTrace::current();

  // Loading, with no error of an earlier open.
  state_.set(State::loading);
  error_.set(std::nullopt);

  // The unpacked book becomes reachable on the scheme.
  try {
    host_->registerPublication(descriptor.publicationID, extractedRoot);
  } catch (...) {
    failOpen(std::current_exception());
  }

  std::exception_ptr failure;
  // The runtime page loads in the web view.
  TraceStage runtimePreparation(trace, OpenPerformanceTrace::Stage::runtimePreparation);
  try {
    // The runtime page gets as long to load as a bridge request gets to answer.
    co_await host_->prepareRuntime(runtimeRoot, kReaderBridgeRequestTimeout);
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) failOpen(failure);
  runtimePreparation.end();

  // The runtime opens the book and shows its first section.
  TraceStage publicationOpen(trace, OpenPerformanceTrace::Stage::publicationOpen);
  try {
    OpenPublicationResult result = co_await bridge().open(OpenPublicationRequest{descriptor});
    publication_.set(std::move(result));
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) failOpen(failure);
  publicationOpen.end();
  // What the book's documents try is counted off the main thread while the rest opens.
  async::spawn(countBlockedAttempts(weak_from_this(), extractedRoot, std::move(intakeFindings)));

  // The rest of the open is one traced stage, ended on every failure from here on.
  TraceStage readerSessionReady(trace, OpenPerformanceTrace::Stage::readerSessionReady);
  try {
    // The contents.
    TableOfContentsResult contents = co_await bridge().tableOfContents();
    tableOfContents_.set(std::move(contents.items));
    fingerprint_ = fingerprint;

    // The place to go back to: the one asked for, else the saved one.
    std::optional<Locator> restored = initialLocator;
    if (!restored && positionRepository_ && fingerprint_) {
      restored = co_await positionRepository_->locator(*fingerprint_);
      throwIfClosedDuringOpen();
    }
    if (restored) {
      logLocation("open.saved", restored);
      ReaderPositionResult position = co_await bridge().goTo(GoToLocatorRequest{*restored});
      position_.set(std::move(position));
    }

    // The place shown now.
    Locator current = co_await bridge().currentLocator();
    locator_.set(current);
    logLocation("open.afterInitialRestore", current);

    // The bookmarks; a store that fails is recorded and read as empty.
    if (bookmarkRepository_ && fingerprint_) {
      std::vector<Bookmark> loaded;
      try {
        loaded = co_await bookmarkRepository_->bookmarks(*fingerprint_);
      } catch (...) {
        recordFailure(std::current_exception());
        loaded.clear();
      }
      throwIfClosedDuringOpen();
      bookmarks_.set(std::move(loaded));
    }

    // Which bookmarks the page shows.
    co_await refreshBookmarkVisibility();

    // The highlights, drawn on the page.
    co_await loadAndSendAnnotations();

    // Typography, theme, mode, layout and width, as stored.
    co_await applyStoredPreferences();

    // The stored presentation moved the text: the restored place is shown once more.
    if (restored) {
      ReaderPositionResult position = co_await bridge().goTo(GoToLocatorRequest{*restored});
      position_.set(std::move(position));
      Locator corrected = co_await bridge().currentLocator();
      locator_.set(corrected);
      logLocation("open.finalCorrection", corrected);
    }
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) {
    readerSessionReady.end();
    failOpen(failure);
  }

  // Ready for the reader.
  state_.set(State::ready);
  logLocation("open.ready");
  readerSessionReady.end();
}

async::Task<void> ReaderSession::loadAndSendAnnotations() {
  if (annotationRepository_ && fingerprint_) {
    std::vector<Annotation> loaded;
    try {
      loaded = co_await annotationRepository_->annotations(*fingerprint_);
    } catch (...) {
      recordFailure(std::current_exception());
      loaded.clear();
    }
    throwIfClosedDuringOpen();
    annotations_.set(std::move(loaded));
  }
  const std::vector<Annotation> toSend = annotations_.value();
  for (const Annotation& annotation : toSend) {
    // A refused annotation does not end the open, but a closed session does.
    throwIfClosedDuringOpen();
    std::exception_ptr failure;
    try {
      co_await sendAnnotation(annotation);
    } catch (...) {
      failure = std::current_exception();
    }
    if (failure) {
      throwIfClosedDuringOpen();
      std::set<Uuid> unresolved = unresolvedAnnotationIDs_.value();
      unresolved.insert(annotation.id);
      unresolvedAnnotationIDs_.set(std::move(unresolved));
      recordFailure(failure);
    }
  }
}

async::Task<void> ReaderSession::applyStoredPreferences() {
  // Each store: its own persistence failure falls back to the default with `error` set; any
  // other failure, such as a bridge failure of the apply, ends the open.
  if (typographyRepository_) {
    TypographyPreferences preferences;
    try {
      preferences = co_await typographyRepository_->load();
    } catch (const TypographyPreferencesPersistenceFailureError&) {
      recordFailure(std::current_exception());
      preferences = TypographyPreferences{};
    }
    co_await applyPreferences(preferences);
  }

  ReadingThemeSelection theme = readingTheme_.value();
  if (themeRepository_) {
    try {
      theme = co_await themeRepository_->load();
    } catch (const ReadingThemePersistenceFailureError&) {
      recordFailure(std::current_exception());
      theme = ReadingThemeSelection::system;
    }
  }
  co_await applyReadingTheme(theme);

  ReadingMode mode = readingMode_.value();
  if (readingModeRepository_) {
    try {
      mode = co_await readingModeRepository_->load();
    } catch (const ReadingModePersistenceFailureError&) {
      recordFailure(std::current_exception());
      mode = ReadingMode::paginated;
    }
  }
  co_await applyReadingMode(mode);

  PageLayout layout = pageLayout_.value();
  if (pageLayoutRepository_) {
    try {
      layout = co_await pageLayoutRepository_->load();
    } catch (const PageLayoutPersistenceFailureError&) {
      recordFailure(std::current_exception());
      layout = PageLayout::adaptive;
    }
  }
  co_await applyPageLayout(layout);

  if (scrolledContentWidthRepository_) {
    ScrolledContentWidth width = ScrolledContentWidth::comfortable;
    try {
      width = co_await scrolledContentWidthRepository_->load();
    } catch (const ScrolledContentWidthPersistenceFailureError&) {
      recordFailure(std::current_exception());
      width = ScrolledContentWidth::comfortable;
    }
    throwIfClosedDuringOpen();
    scrolledContentWidth_.set(width);
  }
  if (readingMode_.value() == ReadingMode::scrolled) {
    co_await applyScrolledContentWidth(scrolledContentWidth_.value());
  }
}

void ReaderSession::close() {
  // Logged, and whatever the reader was selecting or editing is let go.
  logLocation("close.request");
  ++selectionRevision_;
  noteEditingRequest_.set(std::nullopt);
  annotationPendingRemoval_.set(std::nullopt);

  // Pending work of the session stops.
  if (fontSetChangeTask_) fontSetChangeTask_->request_stop();
  fontSetChangeTask_.reset();
  if (locatorPersistenceTask_) locatorPersistenceTask_->request_stop();
  locatorPersistenceTask_.reset();

  // The place is saved: the save owns its values and the session until its log line, and nobody
  // awaits it.
  if (shouldPersistCurrentLocatorOnClose_ && fingerprint_ && locator_.value() &&
      positionRepository_) {
    async::spawn(
        saveOnClose(shared_from_this(), positionRepository_, *fingerprint_, *locator_.value()));
  }

  // The web view lets go of the book.
  host_->close();
  fingerprint_.reset();

  // Every property the window shows is emptied.
  error_.set(std::nullopt);
  publication_.set(std::nullopt);
  tableOfContents_.set({});
  bookmarks_.set({});
  visibleBookmarkIDs_.set({});
  currentTextSelection_.set(std::nullopt);
  currentSelectionRect_.set(std::nullopt);
  activeSearchID_.set(std::nullopt);
  searchResults_.set({});
  isSearchComplete_.set(true);
  annotations_.set({});
  unresolvedAnnotationIDs_.set({});
  position_.set(std::nullopt);

  state_.set(State::closed);
}

async::Task<void> ReaderSession::saveOnClose(std::shared_ptr<ReaderSession> session,
                                             std::shared_ptr<ReadingPositionRepository> repository,
                                             std::string fingerprint, Locator locator) {
  bool saved = false;
  try {
    co_await repository->save(locator, fingerprint);
    saved = true;
  } catch (...) {
  }
  session->logLocation(saved ? "close.saved" : "close.saveFailed", locator);
}

void ReaderSession::takeSafetyReport(PublicationSafetyReport report) {
  if (state_.value() == State::closed) return;
  safetyReport_.set(std::move(report));
}

void ReaderSession::handleExternalLink(const std::string& url) {
  if (externalURLOpener_->open(url)) lastOpenedExternalURL_.set(url);
}

}  // namespace tomekeeper
