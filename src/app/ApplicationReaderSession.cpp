#include "app/ApplicationReaderSession.h"

#include <set>
#include <utility>

#include "runtime/ReaderWebViewHost.h"

namespace tomekeeper {

namespace {

// The session's view of a ReaderWebViewHost that also hands the window its web view, and turns
// the view's arrow and space keys into page turns. The host's callbacks hold this adapter
// weakly.
class WindowWebViewHost final : public ReaderHosting,
                                public std::enable_shared_from_this<WindowWebViewHost> {
 public:
  WindowWebViewHost() : host_(ReaderWebViewHost::create()) {}

  ~WindowWebViewHost() override {
    if (keyController_ != nullptr) {
      g_signal_handlers_disconnect_by_data(keyController_, this);
    }
  }

  void connect() {
    host_->onExternalLink = [weak = weak_from_this()](std::string url) {
      const auto self = weak.lock();
      if (self && self->onExternalLink) self->onExternalLink(std::move(url));
    };
    keyController_ = gtk_event_controller_key_new();
    g_signal_connect(keyController_, "key-pressed", G_CALLBACK(handleKeyPressed), this);
    g_signal_connect(keyController_, "key-released", G_CALLBACK(handleKeyReleased), this);
    gtk_widget_add_controller(webView(), keyController_);
  }

  GtkWidget* webView() const { return GTK_WIDGET(host_->webView()); }

  const std::shared_ptr<ReaderBridge>& bridge() const override { return host_->bridge(); }

  void registerPublication(const Uuid& publicationID, const std::filesystem::path& root) override {
    host_->registerPublication(publicationID, root);
  }

  async::Task<void> prepareRuntime(std::filesystem::path runtimeDirectory,
                                   std::chrono::steady_clock::duration timeout) override {
    return host_->prepareRuntime(std::move(runtimeDirectory), timeout);
  }

  void close() override { host_->close(); }

  ReaderViewportSize viewportSize() const override {
    return {static_cast<double>(gtk_widget_get_width(webView())),
            static_cast<double>(gtk_widget_get_height(webView()))};
  }

  // The web view host has no highlight menu yet; the sidebar reaches the same commands.
  void presentAnnotationMenu(const ReaderAnnotationContextMenuRequest&,
                             AnnotationNotePresence) override {}

 private:
  // Space pages forward (back with Shift); Left and Right page without Shift. Only the first
  // key-down of a held key acts; Control, Alt and Super leave the key to the page.
  static gboolean handleKeyPressed(GtkEventControllerKey*, guint keyValue, guint,
                                   GdkModifierType state, gpointer data) {
    auto* self = static_cast<WindowWebViewHost*>(data);
    const bool isRepeat = !self->keysDown_.insert(keyValue).second;
    if (isRepeat || !self->onNavigationKey) return FALSE;
    if ((state & (GDK_CONTROL_MASK | GDK_ALT_MASK | GDK_SUPER_MASK | GDK_META_MASK)) != 0) {
      return FALSE;
    }
    const bool shift = (state & GDK_SHIFT_MASK) != 0;
    std::optional<ReaderNavigationDirection> direction;
    switch (keyValue) {
      case GDK_KEY_space:
        direction = shift ? ReaderNavigationDirection::previous : ReaderNavigationDirection::next;
        break;
      case GDK_KEY_Left:
        if (!shift) direction = ReaderNavigationDirection::previous;
        break;
      case GDK_KEY_Right:
        if (!shift) direction = ReaderNavigationDirection::next;
        break;
      default:
        break;
    }
    if (!direction) return FALSE;
    self->onNavigationKey(*direction);
    return TRUE;
  }

  static void handleKeyReleased(GtkEventControllerKey*, guint keyValue, guint, GdkModifierType,
                                gpointer data) {
    static_cast<WindowWebViewHost*>(data)->keysDown_.erase(keyValue);
  }

  std::shared_ptr<ReaderWebViewHost> host_;
  GtkEventController* keyController_ = nullptr;
  std::set<guint> keysDown_;
};

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
  return PublicationTitle{publication->title, publication->authors};
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
  auto host = std::make_shared<WindowWebViewHost>();
  host->connect();
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
  return std::make_shared<ApplicationReaderSession>(ReaderSession::create(std::move(dependencies)),
                                                    webView);
}

}  // namespace tomekeeper
