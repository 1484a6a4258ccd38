#include "app/GtkReaderWindows.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include <sigc++/connection.h>

#include "app/ApplicationReaderSession.h"
#include "app/GtkShellPlatform.h"
#include "app/PaginationKeyFilter.h"
#include "async/Spawn.h"
#include "views/ReaderScreen.h"

namespace tomekeeper {

namespace {

constexpr int kOpenDocumentWindowWidth = 560;
constexpr int kOpenDocumentWindowHeight = 380;
constexpr double kTextSizeStep = 0.1;
constexpr const char* kSidebarVisibilityKey = "reader-sidebar-visibility";

GtkWidget* makeMenuButton(GMenuModel* menu) {
  GtkWidget* button = gtk_menu_button_new();
  gtk_menu_button_set_icon_name(GTK_MENU_BUTTON(button), "open-menu-symbolic");
  gtk_menu_button_set_menu_model(GTK_MENU_BUTTON(button), menu);
  gtk_widget_set_tooltip_text(button, "Main Menu");
  return button;
}

bool isEPUBFile(GFile* file) {
  char* name = g_file_get_basename(file);
  if (name == nullptr) return false;
  std::string extension = std::filesystem::path(name).extension().string();
  g_free(name);
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char character) { return g_ascii_tolower(character); });
  return extension == ".epub";
}

// A top-level window of the coordinator. It holds its GtkWindow for as long as the coordinator
// holds it, and tells the delegate once that it closes, whichever way it closes.
class GtkShellWindow : public ShellWindow, public std::enable_shared_from_this<GtkShellWindow> {
 public:
  GtkShellWindow(ShellWindowDelegate& delegate, std::string identifier, GtkWindow* window)
      : delegate_(delegate),
        identifier_(std::move(identifier)),
        window_(GObjectHandle<GtkWindow>::retain(window)) {
    g_signal_connect(window_.get(), "close-request", G_CALLBACK(handleCloseRequest), this);
    g_signal_connect(window_.get(), "notify::default-width", G_CALLBACK(handleResize), this);
    g_signal_connect(window_.get(), "notify::default-height", G_CALLBACK(handleResize), this);
    g_signal_connect(window_.get(), "notify::maximized", G_CALLBACK(handleResize), this);
  }
  ~GtkShellWindow() override {
    g_signal_handlers_disconnect_by_data(window_.get(), this);
    if (!closed_) gtk_window_destroy(window_.get());
  }
  GtkShellWindow(const GtkShellWindow&) = delete;
  GtkShellWindow& operator=(const GtkShellWindow&) = delete;

  const std::string& identifier() const override { return identifier_; }
  void setTitle(const std::string& title) override {
    gtk_window_set_title(window_.get(), title.c_str());
  }
  void present() override {
    if (!closed_) gtk_window_present(window_.get());
  }
  void close() override {
    if (closed_) return;
    const auto keepAlive = shared_from_this();
    announceClose();
    gtk_window_destroy(window_.get());
  }
  WindowFrame frame() const override {
    int width = 0;
    int height = 0;
    gtk_window_get_default_size(window_.get(), &width, &height);
    return WindowFrame{width, height, gtk_window_is_maximized(window_.get()) != FALSE};
  }
  bool isVisible() const override {
    return !closed_ && gtk_widget_get_visible(GTK_WIDGET(window_.get()));
  }

  GtkWindow* window() const { return window_.get(); }

 protected:
  // The window is going: views let go of what they observe.
  virtual void windowClosing() {}

 private:
  void announceClose() {
    closed_ = true;
    windowClosing();
    delegate_.windowWillClose(*this);
  }

  static gboolean handleCloseRequest(GtkWindow*, gpointer data) {
    auto* self = static_cast<GtkShellWindow*>(data);
    if (self->closed_) return FALSE;
    // The delegate may drop the last reference to this window.
    const auto keepAlive = self->shared_from_this();
    self->announceClose();
    return FALSE;
  }

  static void handleResize(GtkWindow*, GParamSpec*, gpointer data) {
    auto* self = static_cast<GtkShellWindow*>(data);
    if (!self->closed_) self->delegate_.windowDidResize(*self);
  }

  ShellWindowDelegate& delegate_;
  std::string identifier_;
  GObjectHandle<GtkWindow> window_;
  bool closed_ = false;
};

// Runs one session command on its own task; its failure is already in the session's error.
async::Task<void> runSessionCommand(std::weak_ptr<ReaderSession> weakSession,
                                    std::function<async::Task<void>(ReaderSession&)> command) {
  const auto session = weakSession.lock();
  if (!session) co_return;
  try {
    co_await command(*session);
  } catch (...) {
    // Recorded by the session, which shows it in the window's banner.
  }
}

// The reader window: header bar, web view, page label and error banner, the page keys and the
// window actions of the Reading menu.
class GtkReaderWindow final : public GtkShellWindow {
 public:
  GtkReaderWindow(ShellWindowDelegate& delegate, GtkApplication* application,
                  GMenuModel* primaryMenu, ReaderWindowRequest request)
      : GtkShellWindow(delegate, request.fingerprint,
                       GTK_WINDOW(adw_application_window_new(application))),
        handlePaginationKey_(std::move(request.handlePaginationKey)) {
    const auto applicationSession =
        std::dynamic_pointer_cast<ApplicationReaderSession>(request.session);
    if (applicationSession) session_ = applicationSession->session();
    GtkWindow* gtkWindow = window();
    gtk_window_set_title(gtkWindow, request.sourceURL.stem().c_str());
    gtk_widget_set_size_request(GTK_WIDGET(gtkWindow), 680, 500);
    gtk_window_set_default_size(gtkWindow, request.frame.width, request.frame.height);
    if (request.frame.isMaximized) gtk_window_maximize(gtkWindow);

    GtkWidget* content = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    headerBar_ = adw_header_bar_new();
    GtkWidget* sidebar = gtk_button_new_from_icon_name("sidebar-show-symbolic");
    gtk_widget_set_tooltip_text(sidebar, "Show or hide sidebar (F9)");
    gtk_actionable_set_action_name(GTK_ACTIONABLE(sidebar), "win.toggle-sidebar");
    adw_header_bar_pack_start(ADW_HEADER_BAR(headerBar_), sidebar);
    GtkWidget* previous = gtk_button_new_from_icon_name("go-previous-symbolic");
    gtk_widget_set_tooltip_text(previous, "Previous Page");
    gtk_actionable_set_action_name(GTK_ACTIONABLE(previous), "win.previous-page");
    GtkWidget* next = gtk_button_new_from_icon_name("go-next-symbolic");
    gtk_widget_set_tooltip_text(next, "Next Page");
    gtk_actionable_set_action_name(GTK_ACTIONABLE(next), "win.next-page");
    adw_header_bar_pack_start(ADW_HEADER_BAR(headerBar_), previous);
    adw_header_bar_pack_start(ADW_HEADER_BAR(headerBar_), next);
    GtkWidget* fullScreen = gtk_button_new_from_icon_name("view-fullscreen-symbolic");
    gtk_widget_set_tooltip_text(fullScreen, "Toggle Full Screen (F11)");
    gtk_actionable_set_action_name(GTK_ACTIONABLE(fullScreen), "win.toggle-fullscreen");
    adw_header_bar_pack_end(ADW_HEADER_BAR(headerBar_), makeMenuButton(primaryMenu));
    adw_header_bar_pack_end(ADW_HEADER_BAR(headerBar_), fullScreen);
    gtk_box_append(GTK_BOX(content), headerBar_);

    if (session_ && applicationSession->webView() != nullptr) {
      screen_ = std::make_unique<ReaderScreen>(session_, applicationSession->webView(),
                                               storedSidebarVisibility());
      GtkWidget* screenWidget = screen_->widget();
      gtk_widget_set_vexpand(screenWidget, TRUE);
      gtk_widget_set_hexpand(screenWidget, TRUE);
      gtk_box_append(GTK_BOX(content), screenWidget);
      sidebarConnection_ =
          screen_->sidebarVisibilityChanged().connect([this] { storeSidebarVisibility(); });
      addScreenControls();
    }
    adw_application_window_set_content(ADW_APPLICATION_WINDOW(gtkWindow), content);

    // Before the web view sees them: Page Up and Page Down turn pages in paginated mode.
    GtkEventController* keys = gtk_event_controller_key_new();
    gtk_event_controller_set_propagation_phase(keys, GTK_PHASE_CAPTURE);
    g_signal_connect(keys, "key-pressed", G_CALLBACK(handleKeyPressed), this);
    g_signal_connect(keys, "key-released", G_CALLBACK(handleKeyReleased), this);
    gtk_widget_add_controller(GTK_WIDGET(gtkWindow), keys);
    keyController_ = keys;

    installActions();
  }

  ~GtkReaderWindow() override {
    g_signal_handlers_disconnect_by_data(keyController_, this);
    windowClosing();
  }

 protected:
  // The screen goes before the session closes.
  void windowClosing() override {
    sidebarConnection_.disconnect();
    screen_.reset();
  }

 private:
  struct ActionEntry {
    const char* name;
    void (*activate)(GtkReaderWindow&);
  };

  void installActions() {
    static const ActionEntry entries[] = {
        {"previous-page",
         [](GtkReaderWindow& window) {
           window.runCommand([](ReaderSession& session) { return session.previousPage(); });
         }},
        {"next-page",
         [](GtkReaderWindow& window) {
           window.runCommand([](ReaderSession& session) { return session.nextPage(); });
         }},
        {"decrease-text-size",
         [](GtkReaderWindow& window) {
           window.runCommand(
               [](ReaderSession& session) { return session.adjustFontScale(-kTextSizeStep); });
         }},
        {"increase-text-size",
         [](GtkReaderWindow& window) {
           window.runCommand(
               [](ReaderSession& session) { return session.adjustFontScale(kTextSizeStep); });
         }},
        {"toggle-fullscreen",
         [](GtkReaderWindow& window) {
           GtkWindow* gtkWindow = window.window();
           if (gtk_window_is_fullscreen(gtkWindow)) {
             gtk_window_unfullscreen(gtkWindow);
           } else {
             gtk_window_fullscreen(gtkWindow);
           }
         }},
        {"toggle-sidebar",
         [](GtkReaderWindow& window) {
           if (window.screen_) window.screen_->toggleSidebar();
         }},
        {"show-contents",
         [](GtkReaderWindow& window) {
           if (!window.screen_) return;
           window.screen_->sidebar().setSection(SidebarSection::contents);
           window.screen_->setSidebarVisibility(SidebarVisibility::visible);
         }},
        {"search",
         [](GtkReaderWindow& window) {
           if (window.searchButton_ != nullptr) {
             gtk_menu_button_popup(GTK_MENU_BUTTON(window.searchButton_));
           }
         }},
        {"toggle-bookmark",
         [](GtkReaderWindow& window) {
           if (window.screen_) window.screen_->toggleBookmark();
         }},
        {"highlight-selection",
         [](GtkReaderWindow& window) {
           if (window.screen_) window.screen_->highlightSelection();
         }},
        {"toggle-reading-controls",
         [](GtkReaderWindow& window) {
           gtk_widget_set_visible(window.headerBar_, !gtk_widget_get_visible(window.headerBar_));
         }},
    };
    GActionMap* map = G_ACTION_MAP(window());
    for (const ActionEntry& entry : entries) {
      GSimpleAction* action = g_simple_action_new(entry.name, nullptr);
      g_signal_connect(action, "activate",
                       G_CALLBACK(+[](GSimpleAction* activated, GVariant*, gpointer data) {
                         auto* self = static_cast<GtkReaderWindow*>(data);
                         const char* name = g_action_get_name(G_ACTION(activated));
                         for (const ActionEntry& candidate : entries) {
                           if (g_strcmp0(candidate.name, name) == 0) candidate.activate(*self);
                         }
                       }),
                       this);
      g_action_map_add_action(map, G_ACTION(action));
      actions_.push_back(GObjectHandle<GSimpleAction>::adopt(action));
    }
  }

  void runCommand(std::function<async::Task<void>(ReaderSession&)> command) {
    async::spawn(runSessionCommand(session_, std::move(command)));
  }

  void addScreenControls() {
    searchButton_ = gtk_menu_button_new();
    gtk_menu_button_set_icon_name(GTK_MENU_BUTTON(searchButton_), "system-search-symbolic");
    gtk_widget_set_tooltip_text(searchButton_, "Search this book (Ctrl+F)");
    GtkWidget* searchPopover = gtk_popover_new();
    gtk_popover_set_child(GTK_POPOVER(searchPopover), screen_->searchView().widget());
    gtk_menu_button_set_popover(GTK_MENU_BUTTON(searchButton_), searchPopover);

    GtkWidget* fontButton = gtk_menu_button_new();
    gtk_menu_button_set_icon_name(GTK_MENU_BUTTON(fontButton), "font-x-generic-symbolic");
    gtk_widget_set_tooltip_text(fontButton, "Reading Font");
    GtkWidget* fontPopover = gtk_popover_new();
    gtk_popover_set_child(GTK_POPOVER(fontPopover), screen_->fontSelectionView().widget());
    gtk_menu_button_set_popover(GTK_MENU_BUTTON(fontButton), fontPopover);

    GtkWidget* bookmark = gtk_button_new_from_icon_name("bookmark-new-symbolic");
    gtk_widget_set_tooltip_text(bookmark, "Add or remove a bookmark at this location");
    gtk_actionable_set_action_name(GTK_ACTIONABLE(bookmark), "win.toggle-bookmark");
    GtkWidget* highlight = gtk_button_new_from_icon_name("document-edit-symbolic");
    gtk_widget_set_tooltip_text(highlight, "Highlight Selection");
    gtk_actionable_set_action_name(GTK_ACTIONABLE(highlight), "win.highlight-selection");

    adw_header_bar_pack_start(ADW_HEADER_BAR(headerBar_), bookmark);
    adw_header_bar_pack_start(ADW_HEADER_BAR(headerBar_), highlight);
    adw_header_bar_pack_end(ADW_HEADER_BAR(headerBar_), fontButton);
    adw_header_bar_pack_end(ADW_HEADER_BAR(headerBar_), searchButton_);
  }

  // Each book keeps its own sidebar state, under its fingerprint; hidden when none is stored.
  SidebarVisibility storedSidebarVisibility() const {
    const GObjectHandle<GSettings> settings = applicationSettings();
    if (!settings) return SidebarVisibility::hidden;
    gboolean visible = FALSE;
    GVariant* stored = g_settings_get_value(settings.get(), kSidebarVisibilityKey);
    const bool found = g_variant_lookup(stored, identifier().c_str(), "b", &visible);
    g_variant_unref(stored);
    return found && visible ? SidebarVisibility::visible : SidebarVisibility::hidden;
  }

  void storeSidebarVisibility() {
    const GObjectHandle<GSettings> settings = applicationSettings();
    if (!settings || !screen_) return;
    GVariant* stored = g_settings_get_value(settings.get(), kSidebarVisibilityKey);
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("a{sb}"));
    GVariantIter entries;
    g_variant_iter_init(&entries, stored);
    const char* fingerprint = nullptr;
    gboolean visible = FALSE;
    while (g_variant_iter_next(&entries, "{&sb}", &fingerprint, &visible)) {
      if (identifier() != fingerprint) {
        g_variant_builder_add(&builder, "{sb}", fingerprint, visible);
      }
    }
    g_variant_builder_add(&builder, "{sb}", identifier().c_str(),
                          screen_->sidebarIsVisible() ? TRUE : FALSE);
    g_variant_unref(stored);
    g_settings_set_value(settings.get(), kSidebarVisibilityKey, g_variant_builder_end(&builder));
  }

  static KeyEventDescription describe(KeyTransition transition, guint keyValue, guint keyCode,
                                      GdkModifierType state) {
    const GdkModifierType modifiers = static_cast<GdkModifierType>(
        GDK_SHIFT_MASK | GDK_CONTROL_MASK | GDK_ALT_MASK | GDK_SUPER_MASK | GDK_META_MASK);
    return KeyEventDescription{transition, keyValue, keyCode, (state & modifiers) != 0};
  }

  bool filterKey(const KeyEventDescription& event) {
    return paginationKeys_.filter(event, [this](PageKeyDirection direction) {
      return handlePaginationKey_ && handlePaginationKey_(direction);
    }) == KeyDisposition::taken;
  }

  static gboolean handleKeyPressed(GtkEventControllerKey*, guint keyValue, guint keyCode,
                                   GdkModifierType state, gpointer data) {
    auto* self = static_cast<GtkReaderWindow*>(data);
    return self->filterKey(describe(KeyTransition::down, keyValue, keyCode, state));
  }

  static void handleKeyReleased(GtkEventControllerKey*, guint keyValue, guint keyCode,
                                GdkModifierType state, gpointer data) {
    auto* self = static_cast<GtkReaderWindow*>(data);
    self->filterKey(describe(KeyTransition::up, keyValue, keyCode, state));
  }

  std::shared_ptr<ReaderSession> session_;
  std::function<bool(PageKeyDirection)> handlePaginationKey_;
  PaginationKeyFilter paginationKeys_;
  GtkWidget* headerBar_ = nullptr;
  GtkWidget* searchButton_ = nullptr;
  GtkEventController* keyController_ = nullptr;
  std::vector<GObjectHandle<GSimpleAction>> actions_;
  std::unique_ptr<ReaderScreen> screen_;
  sigc::connection sidebarConnection_;
};

// The empty window: a large title, a line that invites a drop and a button that opens the panel.
class GtkOpenDocumentWindow final : public GtkShellWindow {
 public:
  GtkOpenDocumentWindow(ShellWindowDelegate& delegate, GtkApplication* application,
                        GMenuModel* primaryMenu, std::function<void(std::filesystem::path)> open)
      : GtkShellWindow(delegate, "", GTK_WINDOW(adw_application_window_new(application))),
        open_(std::make_shared<std::function<void(std::filesystem::path)>>(std::move(open))) {
    GtkWindow* gtkWindow = window();
    gtk_window_set_title(gtkWindow, "Tomekeeper");
    gtk_window_set_default_size(gtkWindow, kOpenDocumentWindowWidth, kOpenDocumentWindowHeight);

    GtkWidget* content = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    GtkWidget* headerBar = adw_header_bar_new();
    adw_header_bar_pack_end(ADW_HEADER_BAR(headerBar), makeMenuButton(primaryMenu));
    gtk_box_append(GTK_BOX(content), headerBar);

    statusPage_ = adw_status_page_new();
    adw_status_page_set_icon_name(ADW_STATUS_PAGE(statusPage_), "org.tomekeeper.Tomekeeper");
    adw_status_page_set_title(ADW_STATUS_PAGE(statusPage_), "Tomekeeper");
    adw_status_page_set_description(ADW_STATUS_PAGE(statusPage_), "Drop an EPUB here");
    gtk_widget_set_vexpand(statusPage_, TRUE);
    gtk_widget_add_css_class(statusPage_, "compact");
    GtkWidget* button = gtk_button_new_with_label("Open EPUB\u2026");
    gtk_widget_add_css_class(button, "suggested-action");
    gtk_widget_add_css_class(button, "pill");
    gtk_widget_set_halign(button, GTK_ALIGN_CENTER);
    g_signal_connect(button, "clicked", G_CALLBACK(handleOpenClicked), this);
    adw_status_page_set_child(ADW_STATUS_PAGE(statusPage_), button);
    gtk_box_append(GTK_BOX(content), statusPage_);
    adw_application_window_set_content(ADW_APPLICATION_WINDOW(gtkWindow), content);

    GtkDropTarget* drop = gtk_drop_target_new(GDK_TYPE_FILE_LIST, GDK_ACTION_COPY);
    g_signal_connect(drop, "enter", G_CALLBACK(handleDropEnter), this);
    g_signal_connect(drop, "leave", G_CALLBACK(handleDropLeave), this);
    g_signal_connect(drop, "drop", G_CALLBACK(handleDrop), this);
    gtk_widget_add_controller(statusPage_, GTK_EVENT_CONTROLLER(drop));
    dropTarget_ = drop;
    openButton_ = button;
  }

  ~GtkOpenDocumentWindow() override {
    g_signal_handlers_disconnect_by_data(dropTarget_, this);
    g_signal_handlers_disconnect_by_data(openButton_, this);
  }

 private:
  static async::Task<void> chooseAndOpen(
      GObjectHandle<GtkWindow> parent,
      std::weak_ptr<std::function<void(std::filesystem::path)>> weakOpen) {
    const std::vector<std::filesystem::path> chosen =
        co_await runEPUBOpenPanel(parent.get(), FileSelection::multiple);
    const auto open = weakOpen.lock();
    if (!open) co_return;
    for (const auto& file : chosen) (*open)(file);
  }

  static void handleOpenClicked(GtkButton*, gpointer data) {
    auto* self = static_cast<GtkOpenDocumentWindow*>(data);
    async::spawn(chooseAndOpen(GObjectHandle<GtkWindow>::retain(self->window()), self->open_));
  }

  // While a drag is over the window it shows it: "isTargeted".
  static GdkDragAction handleDropEnter(GtkDropTarget*, double, double, gpointer data) {
    gtk_widget_add_css_class(static_cast<GtkOpenDocumentWindow*>(data)->statusPage_, "accent");
    return GDK_ACTION_COPY;
  }

  static void handleDropLeave(GtkDropTarget*, gpointer data) {
    gtk_widget_remove_css_class(static_cast<GtkOpenDocumentWindow*>(data)->statusPage_, "accent");
  }

  // Only the first file counts, and only an EPUB.
  static gboolean handleDrop(GtkDropTarget*, const GValue* value, double, double, gpointer data) {
    auto* self = static_cast<GtkOpenDocumentWindow*>(data);
    gtk_widget_remove_css_class(self->statusPage_, "accent");
    if (!G_VALUE_HOLDS(value, GDK_TYPE_FILE_LIST)) return FALSE;
    GSList* files = gdk_file_list_get_files(static_cast<GdkFileList*>(g_value_get_boxed(value)));
    GFile* first = files != nullptr ? static_cast<GFile*>(files->data) : nullptr;
    char* path = first != nullptr && isEPUBFile(first) ? g_file_get_path(first) : nullptr;
    g_slist_free(files);
    if (path == nullptr) return FALSE;
    const std::filesystem::path dropped(path);
    g_free(path);
    // The open may close this very window; it runs after the drop has finished.
    g_idle_add_full(
        G_PRIORITY_DEFAULT,
        [](gpointer pending) -> gboolean {
          auto* call =
              static_cast<std::pair<std::weak_ptr<std::function<void(std::filesystem::path)>>,
                                    std::filesystem::path>*>(pending);
          if (const auto open = call->first.lock()) (*open)(call->second);
          return G_SOURCE_REMOVE;
        },
        new std::pair<std::weak_ptr<std::function<void(std::filesystem::path)>>,
                      std::filesystem::path>(self->open_, dropped),
        [](gpointer pending) {
          delete static_cast<std::pair<std::weak_ptr<std::function<void(std::filesystem::path)>>,
                                       std::filesystem::path>*>(pending);
        });
    return TRUE;
  }

  std::shared_ptr<std::function<void(std::filesystem::path)>> open_;
  GtkWidget* statusPage_ = nullptr;
  GtkWidget* openButton_ = nullptr;
  GtkDropTarget* dropTarget_ = nullptr;
};

}  // namespace

GtkReaderWindowFactory::GtkReaderWindowFactory(GtkApplication* application, GMenuModel* primaryMenu)
    : application_(application), primaryMenu_(GObjectHandle<GMenuModel>::retain(primaryMenu)) {}

std::shared_ptr<ShellWindow> GtkReaderWindowFactory::makeOpenDocumentWindow(
    ShellWindowDelegate& delegate, std::function<void(std::filesystem::path)> open) {
  return std::make_shared<GtkOpenDocumentWindow>(delegate, application_, primaryMenu_.get(),
                                                 std::move(open));
}

std::shared_ptr<ShellWindow> GtkReaderWindowFactory::makeReaderWindow(ShellWindowDelegate& delegate,
                                                                      ReaderWindowRequest request) {
  return std::make_shared<GtkReaderWindow>(delegate, application_, primaryMenu_.get(),
                                           std::move(request));
}

}  // namespace tomekeeper
