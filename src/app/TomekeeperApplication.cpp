#include "app/TomekeeperApplication.h"

#include <glib-unix.h>
#include <malloc.h>

#include <csignal>
#include <string>
#include <utility>
#include <vector>

#include "app/AboutWindow.h"
#include "app/ApplicationResources.h"
#include "app/ApplicationWindowSession.h"
#include "app/GtkReaderWindowFactory.h"
#include "app/GtkShellPlatform.h"
#include "app/ReadingCommands.h"
#include "app/SettingsWindow.h"
#include "async/BackgroundPool.h"
#include "async/Spawn.h"
#include "library/LibraryRecording.h"
#include "platform/GLibString.h"
#include "runtime/ReaderBridgeCatalogue.h"
#include "session/ReadingStateDirectory.h"
#include "session/WebKitReaderHosting.h"

namespace tomekeeper {

namespace {

// The sessions save their last position on tasks of the main loop when their windows close;
// quitting waits this long for them.
constexpr guint kQuitGraceMilliseconds = 300;

// Where the library reads, as the sessions' stores are placed (the reading-state setting is read
// each time, like theirs), and the coordinator's relocation for a book whose file has gone.
LibraryWindowServices libraryServices(const std::filesystem::path& supportDirectory,
                                      std::weak_ptr<DocumentOpenCoordinator> coordinator) {
  const auto settings = applicationSettings();
  const GLibString setting(settings ? g_settings_get_string(settings.get(), "state-directory")
                                    : nullptr);
  LibraryWindowServices services;
  services.locations = {(supportDirectory / "Publications").lexically_normal(),
                        (readingStateDirectory(setting.string(), supportDirectory) / "Publications")
                            .lexically_normal()};
  services.locate = [coordinator = std::move(coordinator)](std::string fingerprint) {
    const auto strong = coordinator.lock();
    if (!strong) return;
    async::spawn([](std::shared_ptr<DocumentOpenCoordinator> relocating,
                    std::string lost) -> async::Task<void> {
      co_await relocating->locate(std::move(lost));
    }(strong, std::move(fingerprint)));
  };
  return services;
}

// What an open used and let go (the archive's buffers, the hashing, the package document and its
// parse) lies free in malloc's arenas once the book shows: glibc hands back by itself only the top
// of the main heap, and the worker threads' arenas keep the rest, about 18 MB after a large book.
// malloc_trim returns the free pages of every arena; it locks each in turn, so it runs on the pool.
void returnMemoryFreedByTheOpen() {
#ifdef __GLIBC__
  async::submitToBackgroundPool([] { malloc_trim(0); });
#endif
}

}  // namespace

TomekeeperApplication::TomekeeperApplication()
    : application_(GObjectHandle<AdwApplication>::adopt(
          adw_application_new(kApplicationID, G_APPLICATION_HANDLES_OPEN))) {
  g_signal_connect(application_.get(), "startup", G_CALLBACK(handleStartup), this);
  g_signal_connect(application_.get(), "activate", G_CALLBACK(handleActivate), this);
  g_signal_connect(application_.get(), "open", G_CALLBACK(handleOpen), this);
  g_signal_connect(application_.get(), "shutdown", G_CALLBACK(handleShutdown), this);
}

TomekeeperApplication::~TomekeeperApplication() {
  recentDocumentsConnection_.disconnect();
  for (guint source : terminationSources_) {
    if (source != 0) g_source_remove(source);
  }
  g_signal_handlers_disconnect_by_data(application_.get(), this);
}

int TomekeeperApplication::run(int argc, char** argv) {
  return g_application_run(G_APPLICATION(application_.get()), argc, argv);
}

void TomekeeperApplication::handleStartup(GApplication*, gpointer data) {
  static_cast<TomekeeperApplication*>(data)->start();
}

void TomekeeperApplication::start() {
  GtkApplication* application = GTK_APPLICATION(application_.get());
  installStyle();
  // The application stays when its last window closes; Quit ends it.
  g_application_hold(G_APPLICATION(application));
  isHeld_ = true;

  recentMenu_ = GObjectHandle<GMenu>::adopt(g_menu_new());
  primaryMenu_ = makeMainMenu(G_MENU_MODEL(recentMenu_.get()));

  platform_ = std::make_shared<GtkShellPlatform>(application);
  DocumentOpenCoordinator::Environment environment =
      DocumentOpenCoordinator::standardEnvironment(readerRuntimeDirectory());
  if (!environment.runtimeRoot) {
    g_warning("The reader runtime page was not found beside the executable; books cannot open");
  }
  environment.startReaderAhead = [](const std::filesystem::path& runtimeRoot) {
    startWebKitReaderHostingAhead(runtimeRoot, kReaderBridgeRequestTimeout);
  };
  auto sessions = std::make_shared<ApplicationWindowSessionFactory>(environment.supportDirectory);
  auto windows =
      std::make_shared<GtkReaderWindowFactory>(application, G_MENU_MODEL(primaryMenu_.get()));
  // The library: each book opened is recorded beside its source bookmark, and the empty window
  // shows the books once there are some.
  const std::filesystem::path supportDirectory = environment.supportDirectory;
  environment.bookOpened = [publications = supportDirectory / "Publications"](
                               const PreparedPublicationResources& resources,
                               const std::filesystem::path& sourceURL) {
    async::spawn(recordOpenedBook(publications, resources, sourceURL));
    returnMemoryFreedByTheOpen();
  };
  windows->setLibrary(
      [this, supportDirectory] { return libraryServices(supportDirectory, coordinator_); });
  coordinator_ = DocumentOpenCoordinator::create(std::move(environment), platform_,
                                                 std::move(windows), std::move(sessions));
  delegate_ = std::make_shared<TomekeeperAppDelegate>(coordinator_);
  recentDocumentsConnection_ =
      coordinator_->recentDocumentURLsChanged.connect([this] { rebuildRecentMenu(); });
  rebuildRecentMenu();
  installActions();

  terminationSources_[0] = g_unix_signal_add(SIGTERM, handleTerminationSignal, this);
  terminationSources_[1] = g_unix_signal_add(SIGINT, handleTerminationSignal, this);
  isStarted_ = true;
  delegate_->applicationDidFinishLaunching();
}

void TomekeeperApplication::installStyle() {
  // The page label is a pill, the error banner a rounded card, both over the page.
  static constexpr const char* kStyle =
      ".reader-page-label { padding: 2px 10px; border-radius: 999px; }\n"
      ".reader-banner { padding: 8px 12px; border-radius: 12px; }\n";
  const auto provider = GObjectHandle<GtkCssProvider>::adopt(gtk_css_provider_new());
  gtk_css_provider_load_from_data(provider.get(), kStyle, -1);
  gtk_style_context_add_provider_for_display(gdk_display_get_default(),
                                             GTK_STYLE_PROVIDER(provider.get()),
                                             GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
  // The application's icon beside its resources: share/icons of the build tree or the prefix.
  if (const std::optional<std::filesystem::path> resources = applicationResourceDirectory()) {
    const std::filesystem::path icons = (*resources / ".." / "icons").lexically_normal();
    gtk_icon_theme_add_search_path(gtk_icon_theme_get_for_display(gdk_display_get_default()),
                                   icons.c_str());
  }
}

void TomekeeperApplication::installActions() {
  actions_ = installApplicationActions(G_ACTION_MAP(application_.get()), *this);
  const auto setKeys = [this](const char* action, std::vector<const char*> keys) {
    keys.push_back(nullptr);
    gtk_application_set_accels_for_action(GTK_APPLICATION(application_.get()), action, keys.data());
  };
  for (const auto& table : {applicationCommands(), readerWindowCommands()}) {
    for (const ReadingCommand& command : table) setKeys(command.action.c_str(), command.keys);
  }
}

void TomekeeperApplication::open() {
  coordinator_->presentOpenPanel();
}

void TomekeeperApplication::openRecent(std::string_view path) {
  coordinator_->requestOpen(std::filesystem::path(path));
}

void TomekeeperApplication::clearRecent() {
  coordinator_->clearRecentDocuments();
}

void TomekeeperApplication::showSettings() {
  presentSettingsWindow(GTK_APPLICATION(application_.get()), coordinator_);
}

void TomekeeperApplication::showAbout() {
  presentAboutWindow(GTK_APPLICATION(application_.get()));
}

void TomekeeperApplication::rebuildRecentMenu() {
  GMenu* menu = recentMenu_.get();
  g_menu_remove_all(menu);
  const std::vector<std::filesystem::path>& documents = coordinator_->recentDocumentURLs();
  if (documents.empty()) {
    // An item without an action is shown insensitive: a line of text.
    g_menu_append(menu, "No Recent Documents", nullptr);
    return;
  }
  const auto documentSection = GObjectHandle<GMenu>::adopt(g_menu_new());
  for (const auto& document : documents) {
    const auto item =
        GObjectHandle<GMenuItem>::adopt(g_menu_item_new(document.filename().c_str(), nullptr));
    g_menu_item_set_action_and_target_value(item.get(), "app.open-recent",
                                            g_variant_new_string(document.c_str()));
    g_menu_append_item(documentSection.get(), item.get());
  }
  g_menu_append_section(menu, nullptr, G_MENU_MODEL(documentSection.get()));
  const auto clearSection = GObjectHandle<GMenu>::adopt(g_menu_new());
  g_menu_append(clearSection.get(), "Clear Menu", "app.clear-recent");
  g_menu_append_section(menu, nullptr, G_MENU_MODEL(clearSection.get()));
}

void TomekeeperApplication::handleActivate(GApplication* application, gpointer data) {
  auto* self = static_cast<TomekeeperApplication*>(data);
  // The first activation is the launch itself, whose decision waits for files.
  if (std::exchange(self->isFirstActivation_, false)) return;
  bool someVisible = false;
  for (GList* window = gtk_application_get_windows(GTK_APPLICATION(application)); window != nullptr;
       window = window->next) {
    if (gtk_widget_get_visible(GTK_WIDGET(window->data))) someVisible = true;
  }
  self->delegate_->applicationShouldHandleReopen(someVisible ? WindowVisibility::someVisible
                                                             : WindowVisibility::noneVisible);
  if (someVisible) {
    if (GtkWindow* active = gtk_application_get_active_window(GTK_APPLICATION(application))) {
      gtk_window_present(active);
    }
  }
}

void TomekeeperApplication::handleOpen(GApplication*, GFile** files, int count, const char*,
                                       gpointer data) {
  auto* self = static_cast<TomekeeperApplication*>(data);
  self->isFirstActivation_ = false;
  std::vector<std::filesystem::path> paths;
  for (int index = 0; index < count; ++index) {
    if (const GLibString path(g_file_get_path(files[index])); path) paths.emplace_back(path.get());
  }
  self->delegate_->applicationOpen(paths);
}

gboolean TomekeeperApplication::handleTerminationSignal(gpointer data) {
  auto* self = static_cast<TomekeeperApplication*>(data);
  // A second signal while quitting ends the main loop at once.
  if (self->isQuitting_) {
    g_application_quit(G_APPLICATION(self->application_.get()));
  } else {
    self->quit();
  }
  return G_SOURCE_CONTINUE;
}

void TomekeeperApplication::terminate() {
  if (!isStarted_ || isQuitting_) return;
  isQuitting_ = true;
  delegate_->applicationWillTerminate();
  std::vector<std::shared_ptr<ShellWindow>> windows;
  for (const auto& [fingerprint, entry] : coordinator_->openWindows()) {
    windows.push_back(entry.controller);
  }
  if (coordinator_->openDocumentWindow()) windows.push_back(coordinator_->openDocumentWindow());
  for (const auto& window : windows) window->close();
}

void TomekeeperApplication::quit() {
  if (isQuitting_) return;
  terminate();
  g_timeout_add(
      kQuitGraceMilliseconds,
      [](gpointer data) -> gboolean {
        auto* self = static_cast<TomekeeperApplication*>(data);
        if (std::exchange(self->isHeld_, false))
          g_application_release(G_APPLICATION(self->application_.get()));
        g_application_quit(G_APPLICATION(self->application_.get()));
        return G_SOURCE_REMOVE;
      },
      this);
}

void TomekeeperApplication::handleShutdown(GApplication*, gpointer data) {
  auto* self = static_cast<TomekeeperApplication*>(data);
  self->terminate();
  if (std::exchange(self->isHeld_, false))
    g_application_release(G_APPLICATION(self->application_.get()));
}

}  // namespace tomekeeper
