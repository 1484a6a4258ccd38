#include "app/TomekeeperApplication.h"

#include <glib-unix.h>

#include <csignal>
#include <string>
#include <utility>
#include <vector>

#include "app/AboutWindow.h"
#include "app/ApplicationResources.h"
#include "app/ApplicationWindowSession.h"
#include "app/GtkReaderWindowFactory.h"
#include "app/ReadingCommands.h"
#include "app/SettingsWindow.h"

namespace tomekeeper {

namespace {

// The sessions save their last position on tasks of the main loop when their windows close;
// quitting waits this long for them.
constexpr guint kQuitGraceMilliseconds = 300;

void addAction(GActionMap* map, const char* name, const GVariantType* parameterType,
               GCallback callback, gpointer data) {
  const auto action = GObjectHandle<GSimpleAction>::adopt(g_simple_action_new(name, parameterType));
  g_signal_connect(action.get(), "activate", callback, data);
  g_action_map_add_action(map, G_ACTION(action.get()));
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

  primaryMenu_ = GObjectHandle<GMenu>::adopt(g_menu_new());
  recentMenu_ = GObjectHandle<GMenu>::adopt(g_menu_new());
  const auto fileSection = GObjectHandle<GMenu>::adopt(g_menu_new());
  g_menu_append(fileSection.get(), "Open\u2026", "app.open");
  g_menu_append_submenu(fileSection.get(), "Open Recent", G_MENU_MODEL(recentMenu_.get()));
  g_menu_append_section(primaryMenu_.get(), nullptr, G_MENU_MODEL(fileSection.get()));
  const auto readingSection = GObjectHandle<GMenu>::adopt(g_menu_new());
  const auto readingMenu = GObjectHandle<GMenu>::adopt(makeReadingMenu());
  g_menu_append_submenu(readingSection.get(), "Reading", G_MENU_MODEL(readingMenu.get()));
  g_menu_append_section(primaryMenu_.get(), nullptr, G_MENU_MODEL(readingSection.get()));
  const auto applicationSection = GObjectHandle<GMenu>::adopt(g_menu_new());
  g_menu_append(applicationSection.get(), "Settings", "app.settings");
  g_menu_append(applicationSection.get(), "Keyboard Shortcuts", "win.show-help-overlay");
  g_menu_append(applicationSection.get(), "About Tomekeeper", "app.about");
  g_menu_append(applicationSection.get(), "Quit", "app.quit");
  g_menu_append_section(primaryMenu_.get(), nullptr, G_MENU_MODEL(applicationSection.get()));

  platform_ = std::make_shared<GtkShellPlatform>(application);
  DocumentOpenCoordinator::Environment environment =
      DocumentOpenCoordinator::standardEnvironment(readerRuntimeDirectory());
  if (!environment.runtimeRoot) {
    g_warning("The reader runtime page was not found beside the executable; books cannot open");
  }
  auto sessions = std::make_shared<ApplicationWindowSessionFactory>(environment.supportDirectory);
  auto windows =
      std::make_shared<GtkReaderWindowFactory>(application, G_MENU_MODEL(primaryMenu_.get()));
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
  GActionMap* map = G_ACTION_MAP(application_.get());
  addAction(map, "open", nullptr, G_CALLBACK(+[](GSimpleAction*, GVariant*, gpointer data) {
              static_cast<TomekeeperApplication*>(data)->coordinator_->presentOpenPanel();
            }),
            this);
  addAction(map, "open-recent", G_VARIANT_TYPE_STRING,
            G_CALLBACK(+[](GSimpleAction*, GVariant* parameter, gpointer data) {
              const std::filesystem::path file(g_variant_get_string(parameter, nullptr));
              static_cast<TomekeeperApplication*>(data)->coordinator_->requestOpen(file);
            }),
            this);
  addAction(map, "clear-recent", nullptr, G_CALLBACK(+[](GSimpleAction*, GVariant*, gpointer data) {
              static_cast<TomekeeperApplication*>(data)->coordinator_->clearRecentDocuments();
            }),
            this);
  addAction(map, "settings", nullptr, G_CALLBACK(+[](GSimpleAction*, GVariant*, gpointer data) {
              auto* self = static_cast<TomekeeperApplication*>(data);
              presentSettingsWindow(GTK_APPLICATION(self->application_.get()), self->coordinator_);
            }),
            this);
  addAction(map, "about", nullptr, G_CALLBACK(+[](GSimpleAction*, GVariant*, gpointer data) {
              auto* self = static_cast<TomekeeperApplication*>(data);
              presentAboutWindow(GTK_APPLICATION(self->application_.get()));
            }),
            this);
  addAction(map, "quit", nullptr, G_CALLBACK(+[](GSimpleAction*, GVariant*, gpointer data) {
              static_cast<TomekeeperApplication*>(data)->quit();
            }),
            this);
  const auto setKeys = [this](const char* action, std::vector<const char*> keys) {
    keys.push_back(nullptr);
    gtk_application_set_accels_for_action(GTK_APPLICATION(application_.get()), action, keys.data());
  };
  for (const auto& table : {applicationCommands(), readerWindowCommands()}) {
    for (const ReadingCommand& command : table) setKeys(command.action.c_str(), command.keys);
  }
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
    if (char* path = g_file_get_path(files[index])) {
      paths.emplace_back(path);
      g_free(path);
    }
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
