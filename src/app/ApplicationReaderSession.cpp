#include "app/ApplicationReaderSession.h"

#include <utility>

#include "session/WebViewReaderHost.h"
#include "views/ExternalLinkConsent.h"

namespace tomekeeper {

namespace {

ReaderNavigationDirection navigationDirection(PageKeyDirection direction) {
  return direction == PageKeyDirection::previous ? ReaderNavigationDirection::previous
                                                 : ReaderNavigationDirection::next;
}

}  // namespace

ApplicationReaderSession::ApplicationReaderSession(std::shared_ptr<ReaderSession> session,
                                                   GtkWidget* webView)
    : session_(std::move(session)), webView_(webView) {}

async::Task<void> ApplicationReaderSession::open(PreparedPublicationResources resources,
                                                 std::filesystem::path runtimeRoot,
                                                 std::string fingerprint) {
  const std::shared_ptr<ReaderSession> session = session_;
  co_await session->open(std::move(resources.descriptor), std::move(resources.extractedRoot),
                         std::move(runtimeRoot), std::move(fingerprint));
}

void ApplicationReaderSession::close() {
  session_->close();
}

std::optional<PublicationTitle> ApplicationReaderSession::publicationTitle() const {
  const std::optional<OpenPublicationResult>& publication = session_->publication().value();
  if (!publication) return std::nullopt;
  return PublicationTitle{publication->title, publication->authors, publication->titleDirection,
                          publication->authorsDirection};
}

bool ApplicationReaderSession::handlePaginationKey(PageKeyDirection direction) {
  return session_->handlePaginationKey(navigationDirection(direction));
}

ApplicationSessionFactory::ApplicationSessionFactory(std::filesystem::path supportDirectory)
    : supportDirectory_(std::move(supportDirectory)),
      stateRepositories_{(supportDirectory_ / "Publications").lexically_normal()} {}

std::shared_ptr<ReaderSessionHandle> ApplicationSessionFactory::makeSession(
    const std::string& fingerprint) {
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
  std::shared_ptr<WebViewReaderHost> host = makeWebViewReaderHost();
  GtkWidget* webView = host->webView();

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
  return std::make_shared<ApplicationReaderSession>(ReaderSession::create(std::move(dependencies)),
                                                    webView);
}

}  // namespace tomekeeper
