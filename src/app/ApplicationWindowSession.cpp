#include "app/ApplicationWindowSession.h"

#include <utility>

#include "app/GtkShellPlatform.h"
#include "async/Spawn.h"
#include "platform/GLibString.h"
#include "session/ReadingStateDirectory.h"
#include "session/WebKitReaderHosting.h"
#include "views/ExternalLinkConsent.h"
#include "views/HighlightMenu.h"

namespace tomekeeper {

ApplicationWindowSession::ApplicationWindowSession(std::shared_ptr<ReaderSession> session,
                                                   GtkWidget* webView,
                                                   std::filesystem::path publicationsRoot)
    : session_(std::move(session)),
      webView_(webView),
      publicationsRoot_(std::move(publicationsRoot)) {}

async::Task<void> ApplicationWindowSession::open(PreparedPublicationResources resources,
                                                 std::filesystem::path runtimeRoot,
                                                 std::string fingerprint) {
  const std::shared_ptr<ReaderSession> session = session_;
  const std::filesystem::path directory = publicationsRoot_ / fingerprint;
  ReadingDataMaintenance::Book book{fingerprint, directory, resources.extractedRoot,
                                    resources.descriptor};
  co_await session->open(std::move(resources), std::move(runtimeRoot), std::move(fingerprint));
  maintenance_ = std::make_shared<const ReadingDataMaintenance>(session, std::move(book));
  try {
    storeMonitor_ = std::make_unique<StoreDirectoryMonitor>(
        directory, [weak = std::weak_ptr<ReaderSession>(session)](const std::set<std::string>&) {
          if (const auto locked = weak.lock()) async::spawn(locked->rereadReadingData());
        });
  } catch (const std::exception& error) {
    // The book reads as before; only changes made by others show at its next open.
    g_warning("The reading data of this book is not watched: %s", error.what());
  }
  bookOpened_.emit();
}

void ApplicationWindowSession::close() {
  storeMonitor_.reset();
  session_->close();
}

std::optional<PublicationTitle> ApplicationWindowSession::publicationTitle() const {
  const std::optional<OpenPublicationResult>& publication = session_->publication().value();
  if (!publication) return std::nullopt;
  return PublicationTitle{publication->title, publication->authors, publication->titleDirection,
                          publication->authorsDirection};
}

bool ApplicationWindowSession::handlePaginationKey(ReaderNavigationDirection direction) {
  return session_->handlePaginationKey(direction);
}

void ApplicationWindowSession::handleNavigationKey(ReaderNavigationDirection direction) {
  session_->handleNavigationKey(direction);
}

ApplicationWindowSessionFactory::ApplicationWindowSessionFactory(
    std::filesystem::path supportDirectory)
    : supportDirectory_(std::move(supportDirectory)),
      stateRepositories_{(supportDirectory_ / "Publications").lexically_normal()} {}

std::shared_ptr<WindowSession> ApplicationWindowSessionFactory::makeSession(
    const std::string& fingerprint) {
  // Read for each book, so that a folder chosen in Settings holds the books opened after it.
  const auto settings = applicationSettings();
  const GLibString setting(settings ? g_settings_get_string(settings.get(), "state-directory")
                                    : nullptr);
  stateRepositories_.publicationsRoot =
      (readingStateDirectory(setting.string(), supportDirectory_) / "Publications")
          .lexically_normal();
  PublicationStateRepositories repositories = stateRepositories_.makeRepositories(fingerprint);
  if (!typographyRepository_) {
    typographyRepository_ = std::make_shared<JSONTypographyPreferencesRepository>(
        JSONTypographyPreferencesRepository::fileURLIn(supportDirectory_));
    themeRepository_ = std::make_shared<JSONReadingThemeRepository>(
        JSONReadingThemeRepository::fileURLIn(supportDirectory_));
    readingModeRepository_ = std::make_shared<JSONReadingModeRepository>(
        JSONReadingModeRepository::fileURLIn(supportDirectory_));
    pageLayoutRepository_ = std::make_shared<JSONPageLayoutRepository>(
        JSONPageLayoutRepository::fileURLIn(supportDirectory_));
    scrolledContentWidthRepository_ = std::make_shared<JSONScrolledContentWidthRepository>(
        JSONScrolledContentWidthRepository::fileURLIn(supportDirectory_));
  }
  std::shared_ptr<WebKitReaderHosting> host = makeWebKitReaderHosting();
  GtkWidget* webView = host->webView();
  // The menu holds the view; the host holds the menu, until the session lets the host go.
  host->onAnnotationMenuRequest = [menu = std::make_shared<views::HighlightMenu>(webView)](
                                      const AnnotationMenuRequest& request) {
    menu->present(request);
  };

  ReaderSessionDependencies dependencies;
  dependencies.host = std::move(host);
  dependencies.positionRepository = std::move(repositories.position);
  dependencies.bookmarkRepository = std::move(repositories.bookmarks);
  dependencies.annotationRepository = std::move(repositories.annotations);
  dependencies.typographyRepository = typographyRepository_;
  dependencies.themeRepository = themeRepository_;
  dependencies.readingModeRepository = readingModeRepository_;
  dependencies.pageLayoutRepository = pageLayoutRepository_;
  dependencies.scrolledContentWidthRepository = scrolledContentWidthRepository_;
  // A link out of the book asks the reader first.
  dependencies.externalURLOpener =
      std::make_shared<ExternalLinkConsent>(webView, std::make_shared<SystemExternalURLOpener>());
  return std::make_shared<ApplicationWindowSession>(ReaderSession::create(std::move(dependencies)),
                                                    webView, stateRepositories_.publicationsRoot);
}

}  // namespace tomekeeper
