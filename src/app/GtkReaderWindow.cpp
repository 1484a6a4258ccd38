#include "app/GtkReaderWindow.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include <sigc++/connection.h>

#include "app/ApplicationWindowSession.h"
#include "app/GtkShellWindow.h"
#include "app/ReaderWindowActions.h"
#include "app/ReaderWindowKeys.h"
#include "app/ReadingCommands.h"
#include "app/ReadingControls.h"
#include "app/ReadingDataDialogs.h"
#include "app/ReadingOptionsMenu.h"
#include "app/SidebarVisibilitySetting.h"
#include "async/Spawn.h"
#include "model/StringEnumeration.h"
#include "platform/EventLog.h"
#include "session/BookSafetySummary.h"
#include "views/BookSafetyDialog.h"
#include "views/BookmarkButton.h"
#include "views/ReaderScreen.h"
#include "views/SessionCommand.h"
#include "views/ViewSupport.h"

namespace tomekeeper {

namespace {

constexpr double kTextSizeStep = 0.1;

// An informational line of category "ReaderWindow": shown with G_MESSAGES_DEBUG=Tomekeeper. It
// says what a reader window shows, which is how the application's display tests follow it.
void logReaderWindowEvent(const std::string& message) {
  logEvent(EventLogLevel::information, "ReaderWindow", message);
}

// The window a reader window lives in: the one shown while its book was prepared, taken over,
// or a new one.
GObjectHandle<GtkWindow> readerGtkWindow(GtkApplication* application,
                                         const ReaderWindowRequest& request) {
  if (const auto opening = std::dynamic_pointer_cast<GtkShellWindow>(request.openingWindow)) {
    if (auto taken = opening->handOver()) return taken;
  }
  return GObjectHandle<GtkWindow>::retain(GTK_WINDOW(adw_application_window_new(application)));
}

// The reader window: header bar, web view, page label and error banner, the page keys and the
// window actions of the Reading menu.
class GtkReaderWindow final : public GtkShellWindow, private ReaderWindowCommands {
 public:
  GtkReaderWindow(ShellWindowDelegate& delegate, GtkApplication* application,
                  GMenuModel* primaryMenu, ReaderWindowRequest request)
      : GtkShellWindow(delegate, request.fingerprint, readerGtkWindow(application, request).get()) {
    const auto applicationSession =
        std::dynamic_pointer_cast<ApplicationWindowSession>(request.session);
    if (applicationSession) session_ = applicationSession->session();
    applicationSession_ = applicationSession;
    GtkWindow* gtkWindow = window();
    // A window taken over keeps its title and the size it has on the screen.
    if (!request.openingWindow) {
      gtk_window_set_title(gtkWindow, request.sourceURL.stem().c_str());
      gtk_widget_set_size_request(GTK_WIDGET(gtkWindow), 680, 500);
      gtk_window_set_default_size(gtkWindow, request.frame.width, request.frame.height);
      if (request.frame.isMaximized) gtk_window_maximize(gtkWindow);
    }
    installShortcutsWindow(gtkWindow);

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
    leftPageButton_ = previous;
    rightPageButton_ = next;
    GtkWidget* fullScreen = gtk_button_new_from_icon_name("view-fullscreen-symbolic");
    gtk_widget_set_tooltip_text(fullScreen, "Toggle Full Screen (F11)");
    gtk_actionable_set_action_name(GTK_ACTIONABLE(fullScreen), "win.toggle-fullscreen");
    views::setAccessibleLabel(sidebar, "Toggle Sidebar");
    views::setAccessibleLabel(previous, "Previous Page");
    views::setAccessibleLabel(next, "Next Page");
    views::setAccessibleLabel(fullScreen, "Toggle Full Screen");
    adw_header_bar_pack_end(ADW_HEADER_BAR(headerBar_), makeMainMenuButton(primaryMenu));
    adw_header_bar_pack_end(ADW_HEADER_BAR(headerBar_), fullScreen);

    GtkWidget* page = nullptr;
    if (session_ && applicationSession->webView() != nullptr) {
      screen_ = std::make_unique<ReaderScreen>(session_, applicationSession->webView(),
                                               storedSidebarVisibility(identifier()), lifetime());
      page = screen_->widget();
      sidebarConnection_ =
          screen_->sidebarVisibilityChanged().connect([this] { storeSidebarVisibility(); });
      logSidebarVisibility("opens with the sidebar");
      addScreenControls();
    } else {
      page = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    }
    controls_ = std::make_unique<ReadingControls>(headerBar_, page);
    controlsConnection_ = controls_->changed().connect([this] { showReadingControlsState(); });
    adw_application_window_set_content(ADW_APPLICATION_WINDOW(gtkWindow), controls_->root());

    keys_ = std::make_unique<ReaderWindowKeys>(
        gtkWindow, screen_ ? applicationSession->webView() : nullptr,
        ReaderWindowKeys::Handlers{
            [this] { return showHiddenControls(); },
            [pageKey = std::move(request.handlePaginationKey)](
                ReaderNavigationDirection direction) { return pageKey && pageKey(direction); },
            [weak = std::weak_ptr<ApplicationWindowSession>(applicationSession)](
                ReaderNavigationDirection direction) {
              if (const auto locked = weak.lock()) locked->handleNavigationKey(direction);
            }});

    actions_ = installReaderWindowActions(G_ACTION_MAP(gtkWindow), *this);
    if (session_) observeSession();
    if (applicationSession) {
      sessionConnections_.push_back(
          applicationSession->bookOpened().connect([this] { offerHighlightCarryOver(); }));
    }
  }

  ~GtkReaderWindow() override {
    keys_.reset();
    windowClosing();
  }

 protected:
  // The screen goes before the session closes.
  void windowClosing() override {
    sidebarConnection_.disconnect();
    controlsConnection_.disconnect();
    bookmarkConnection_.disconnect();
    bookmarkButton_.reset();
    for (sigc::connection& connection : sessionConnections_) connection.disconnect();
    sessionConnections_.clear();
    screen_.reset();
  }

 private:
  // ---- The window's commands: the actions table (ReaderWindowActions.h) names them ----
  void previousPage() override {
    runCommand([](ReaderSession& session) { return session.previousPage(); });
  }
  void nextPage() override {
    runCommand([](ReaderSession& session) { return session.nextPage(); });
  }
  void goBack() override {
    runCommand([](ReaderSession& session) { return session.goBack(); });
  }
  void goForward() override {
    runCommand([](ReaderSession& session) { return session.goForward(); });
  }
  void decreaseTextSize() override {
    runCommand([](ReaderSession& session) { return session.adjustFontScale(-kTextSizeStep); });
  }
  void increaseTextSize() override {
    runCommand([](ReaderSession& session) { return session.adjustFontScale(kTextSizeStep); });
  }
  void toggleFullScreen() override {
    if (gtk_window_is_fullscreen(window())) {
      gtk_window_unfullscreen(window());
    } else {
      gtk_window_fullscreen(window());
    }
  }
  void toggleSidebar() override {
    if (screen_) screen_->toggleSidebar();
  }
  void showContents() override { showSidebarSection("contents"); }
  void search() override { togglePanel(searchButton_); }
  void toggleFonts() override { togglePanel(fontButton_); }
  void toggleBookmark() override {
    if (screen_) screen_->toggleBookmark();
  }
  void highlightSelection() override {
    if (screen_) screen_->highlightSelection();
  }
  void closeBook() override { close(); }
  void showBookSafety() override {
    if (!session_) return;
    if (const auto& report = session_->safetyReport().value()) presentBookSafety(window(), *report);
  }
  void clearReadingData() override {
    if (screen_) screen_->presentClearReadingDataConfirmation();
  }
  // Its state says whether the controls are hidden; the toolbar's menu shows it checked.
  void toggleReadingControls() override {
    controls_->setVisibility(controls_->visibility() == ReadingControlsVisibility::shown
                                 ? ReadingControlsVisibility::hidden
                                 : ReadingControlsVisibility::shown);
  }
  void chooseReadingTheme(std::string_view value) override {
    choose<ReadingThemeSelection>(value, [](ReaderSession& session, ReadingThemeSelection chosen) {
      return session.setReadingTheme(chosen);
    });
  }
  void chooseReadingMode(std::string_view value) override {
    choose<ReadingMode>(value, [](ReaderSession& session, ReadingMode chosen) {
      return session.setReadingMode(chosen);
    });
  }
  void choosePageLayout(std::string_view value) override {
    choose<PageLayout>(value, [](ReaderSession& session, PageLayout chosen) {
      return session.setPageLayout(chosen);
    });
  }
  void chooseScrollWidth(std::string_view value) override {
    choose<ScrolledContentWidth>(value, [](ReaderSession& session, ScrolledContentWidth chosen) {
      return session.setScrolledContentWidth(chosen);
    });
  }
  std::string readingTheme() const override {
    return session_ ? std::string(rawValue(session_->readingTheme().value())) : std::string();
  }
  std::string readingMode() const override {
    return session_ ? std::string(rawValue(session_->readingMode().value())) : std::string();
  }
  std::string pageLayout() const override {
    return session_ ? std::string(rawValue(session_->pageLayout().value())) : std::string();
  }
  std::string scrollWidth() const override {
    return session_ ? std::string(rawValue(session_->scrolledContentWidth().value()))
                    : std::string();
  }

  // Asks the session for the option with this raw value; another value does nothing. The
  // action's state follows the session (observeSession), so a refused choice leaves the old
  // value checked.
  template <StringEnumeration Option>
  void choose(std::string_view raw, async::Task<void> (*apply)(ReaderSession&, Option)) {
    const std::optional<Option> value = parseRawValue<Option>(raw);
    if (!value) return;
    runCommand([apply, chosen = *value](ReaderSession& session) { return apply(session, chosen); });
  }

  // "Export Highlights…" and "Restore Reading Data…"; nothing before the book is open.
  void exportHighlights() override {
    if (!applicationSession_ || !applicationSession_->readingDataMaintenance()) return;
    const std::optional<PublicationTitle> title = applicationSession_->publicationTitle();
    std::string name =
        title && title->title && !title->title->empty() ? *title->title : std::string("Highlights");
    std::replace(name.begin(), name.end(), '/', ' ');
    async::spawn(runHighlightExport(window(), applicationSession_->readingDataMaintenance(), name),
                 lifetime());
  }
  void restoreReadingData() override {
    if (!applicationSession_ || !applicationSession_->readingDataMaintenance()) return;
    async::spawn(runReadingDataRestore(window(), applicationSession_->readingDataMaintenance()),
                 lifetime());
  }

  // The highlights of an earlier edition of the book, offered once it has opened; those not
  // found in this edition stay in the sidebar for the window's life.
  void offerHighlightCarryOver() {
    if (!applicationSession_ || !applicationSession_->readingDataMaintenance()) return;
    HighlightCarryOverPresentation presentation{
        [this](std::vector<Annotation> notFound) {
          logReaderWindowEvent("Highlights of " + identifier() +
                               " not found in this edition: " + std::to_string(notFound.size()));
          if (!screen_ || notFound.empty()) return;
          screen_->sidebar().showHighlightsNotFound(std::move(notFound));
          screen_->sidebar().setSection(SidebarSection::highlights);
        },
        [this](const std::string& text) {
          logReaderWindowEvent("Toast of " + identifier() + ": " + text);
          controls_->showToast(text);
        }};
    async::spawn(runHighlightCarryOverOffer(window(), applicationSession_->readingDataMaintenance(),
                                            presentation),
                 lifetime());
  }

  // Shows the panel of a toolbar menu button, or hides it when it is up.
  static void togglePopover(GtkWidget* menuButton) {
    if (menuButton == nullptr) return;
    GtkPopover* popover = gtk_menu_button_get_popover(GTK_MENU_BUTTON(menuButton));
    if (popover != nullptr && gtk_widget_get_visible(GTK_WIDGET(popover))) {
      gtk_menu_button_popdown(GTK_MENU_BUTTON(menuButton));
    } else {
      gtk_menu_button_popup(GTK_MENU_BUTTON(menuButton));
    }
  }

  // Search and fonts work with the controls hidden: their panel brings the header bar with it.
  void togglePanel(GtkWidget* menuButton) {
    if (menuButton == nullptr) return;
    controls_->revealHeader();
    togglePopover(menuButton);
  }

  // Follows the controls into the toolbar menu's check mark and the log.
  void showReadingControlsState() {
    const bool hidden = controls_->visibility() == ReadingControlsVisibility::hidden;
    GAction* action = g_action_map_lookup_action(G_ACTION_MAP(window()), "toggle-reading-controls");
    if (action != nullptr) {
      g_simple_action_set_state(G_SIMPLE_ACTION(action), g_variant_new_boolean(hidden));
    }
    const char* state = !hidden                         ? "shown"
                        : controls_->headerIsOnScreen() ? "hidden, header revealed"
                                                        : "hidden";
    logReaderWindowEvent("Reading controls of " + identifier() + " are " + state);
  }

  // The page buttons follow the book's page progression: the arrow that points the way the
  // pages advance reads on.
  void arrangePageButtons() {
    const auto& publication = session_->publication().value();
    const bool readsFromRight = publication && publication->pageProgressionDirection == "rtl";
    const char* leftTitle = readsFromRight ? "Next Page" : "Previous Page";
    const char* rightTitle = readsFromRight ? "Previous Page" : "Next Page";
    gtk_actionable_set_action_name(GTK_ACTIONABLE(leftPageButton_),
                                   readsFromRight ? "win.next-page" : "win.previous-page");
    gtk_actionable_set_action_name(GTK_ACTIONABLE(rightPageButton_),
                                   readsFromRight ? "win.previous-page" : "win.next-page");
    gtk_widget_set_tooltip_text(leftPageButton_, leftTitle);
    gtk_widget_set_tooltip_text(rightPageButton_, rightTitle);
    views::setAccessibleLabel(leftPageButton_, leftTitle);
    views::setAccessibleLabel(rightPageButton_, rightTitle);
  }

  // Back and Forward are enabled while there is somewhere to go.
  void showNavigationAvailability() {
    const NavigationAvailability availability = session_->navigationAvailability().value();
    GActionMap* map = G_ACTION_MAP(window());
    if (GAction* back = g_action_map_lookup_action(map, "go-back")) {
      g_simple_action_set_enabled(G_SIMPLE_ACTION(back), availability.canGoBack);
    }
    if (GAction* forward = g_action_map_lookup_action(map, "go-forward")) {
      g_simple_action_set_enabled(G_SIMPLE_ACTION(forward), availability.canGoForward);
    }
  }

  // Shows the sidebar on "contents", "bookmarks" or "highlights"; another name does nothing.
  void showSidebarSection(std::string_view name) override {
    if (!screen_) return;
    std::optional<SidebarSection> section;
    if (name == "contents") section = SidebarSection::contents;
    if (name == "bookmarks") section = SidebarSection::bookmarks;
    if (name == "highlights") section = SidebarSection::highlights;
    if (!section) return;
    screen_->sidebar().setSection(*section);
    screen_->setSidebarVisibility(SidebarVisibility::visible);
  }

  // Opens the note sheet of the highlight with this id; an unknown id does nothing.
  void editNote(std::string_view annotationID) override {
    const std::optional<Uuid> id = Uuid::fromString(annotationID);
    if (!screen_ || !id) return;
    for (const Annotation& annotation : session_->annotations().value()) {
      if (annotation.id == *id) {
        screen_->presentNoteEditor(annotation);
        return;
      }
    }
  }

  // Puts the session's choice into the state of the action `name`, and logs it.
  template <StringEnumeration Option>
  void showOption(const char* name, const char* description, Option value) {
    const std::string raw(rawValue(value));
    GAction* action = g_action_map_lookup_action(G_ACTION_MAP(window()), name);
    if (action != nullptr) {
      g_simple_action_set_state(G_SIMPLE_ACTION(action), g_variant_new_string(raw.c_str()));
    }
    logReaderWindowEvent(std::string(description) + " of " + identifier() + " is " + raw);
  }

  // Follows what the window shows of the session: the checked reading options, and for the
  // log the bookmark and highlight counts and the end of each search.
  void observeSession() {
    const std::weak_ptr<ReaderSession> weakSession = session_;
    auto observe = [this](sigc::connection connection) {
      sessionConnections_.push_back(std::move(connection));
    };
    observe(session_->readingTheme().changed().connect([this] {
      showOption("reading-theme", "Reading theme", session_->readingTheme().value());
    }));
    observe(session_->publication().changed().connect([this] { arrangePageButtons(); }));
    // A book that tried to run script or reach the web says so once, quietly.
    observe(session_->safetyReport().changed().connect([this] {
      const auto& report = session_->safetyReport().value();
      const std::optional<std::string> note = report ? bookSafetyToast(*report) : std::nullopt;
      if (note) controls_->showToast(*note);
    }));
    observe(session_->navigationAvailability().changed().connect(
        [this] { showNavigationAvailability(); }));
    arrangePageButtons();
    showNavigationAvailability();
    observe(session_->readingMode().changed().connect(
        [this] { showOption("reading-mode", "Reading mode", session_->readingMode().value()); }));
    observe(session_->pageLayout().changed().connect(
        [this] { showOption("page-layout", "Page layout", session_->pageLayout().value()); }));
    observe(session_->scrolledContentWidth().changed().connect([this] {
      showOption("scroll-width", "Scroll width", session_->scrolledContentWidth().value());
    }));
    observe(session_->bookmarks().changed().connect([this] {
      logReaderWindowEvent("Bookmarks of " + identifier() + ": " +
                           std::to_string(session_->bookmarks().value().size()));
    }));
    observe(session_->annotations().changed().connect([this] {
      logReaderWindowEvent("Highlights of " + identifier() + ": " +
                           std::to_string(session_->annotations().value().size()));
    }));
    // Only the end of a search that ran: the session also marks a search complete when it
    // clears the way for a new one.
    observe(session_->isSearchComplete().changed().connect([this] {
      if (!session_->isSearchComplete().value()) {
        searchIsRunning_ = true;
        return;
      }
      if (!searchIsRunning_) return;
      searchIsRunning_ = false;
      logReaderWindowEvent("Search in " + identifier() + " ended with " +
                           std::to_string(session_->searchResults().value().size()) + " results");
    }));
    observe(session_->state().changed().connect([this] {
      if (session_->state().value() != ReaderSession::State::ready) return;
      logReaderWindowEvent("Reader of " + identifier() + " is ready");
    }));
  }

  void logSidebarVisibility(const char* what) {
    if (!screen_) return;
    logReaderWindowEvent("Reader window of " + identifier() + " " + what + " " +
                         (screen_->sidebarIsVisible() ? "shown" : "hidden"));
  }

  void runCommand(std::function<async::Task<void>(ReaderSession&)> command) {
    if (session_) views::runSessionCommand(session_, std::move(command), lifetime());
  }

  void addScreenControls() {
    searchButton_ = gtk_menu_button_new();
    gtk_menu_button_set_icon_name(GTK_MENU_BUTTON(searchButton_), "system-search-symbolic");
    gtk_widget_set_tooltip_text(searchButton_, "Search this book (Ctrl+F)");
    GtkWidget* searchPopover = gtk_popover_new();
    gtk_popover_set_child(GTK_POPOVER(searchPopover), screen_->searchView().widget());
    gtk_menu_button_set_popover(GTK_MENU_BUTTON(searchButton_), searchPopover);

    fontButton_ = gtk_menu_button_new();
    GtkWidget* fontButton = fontButton_;
    gtk_menu_button_set_icon_name(GTK_MENU_BUTTON(fontButton), "font-x-generic-symbolic");
    gtk_widget_set_tooltip_text(fontButton, "Reading Font");
    GtkWidget* fontPopover = gtk_popover_new();
    gtk_popover_set_child(GTK_POPOVER(fontPopover), screen_->fontSelectionView().widget());
    gtk_menu_button_set_popover(GTK_MENU_BUTTON(fontButton), fontPopover);

    bookmarkButton_ = std::make_unique<BookmarkButton>(session_);
    GtkWidget* bookmark = bookmarkButton_->widget();
    bookmarkConnection_ = session_->visibleBookmarkIDs().changed().connect([this] {
      logReaderWindowEvent("Bookmark button of " + identifier() + " says " +
                           (bookmarkButton_->state() == BookmarkButtonState::add
                                ? "Add Bookmark"
                                : "Remove Bookmark"));
    });
    GtkWidget* highlight = gtk_button_new_from_icon_name("document-edit-symbolic");
    gtk_widget_set_tooltip_text(highlight, "Highlight Selection");
    gtk_actionable_set_action_name(GTK_ACTIONABLE(highlight), "win.highlight-selection");

    GtkWidget* optionsButton = gtk_menu_button_new();
    gtk_menu_button_set_icon_name(GTK_MENU_BUTTON(optionsButton), "view-paged-symbolic");
    gtk_widget_set_tooltip_text(optionsButton, "Reading Options");
    const GObjectHandle<GMenu> optionsMenu = makeReadingOptionsMenu();
    gtk_menu_button_set_menu_model(GTK_MENU_BUTTON(optionsButton), G_MENU_MODEL(optionsMenu.get()));

    views::setAccessibleLabel(searchButton_, "Search Book");
    views::setAccessibleLabel(fontButton, "Reading Font");
    views::setAccessibleLabel(highlight, "Highlight Selection");
    views::setAccessibleLabel(optionsButton, "Reading Options");

    adw_header_bar_pack_start(ADW_HEADER_BAR(headerBar_), bookmark);
    adw_header_bar_pack_start(ADW_HEADER_BAR(headerBar_), highlight);
    adw_header_bar_pack_end(ADW_HEADER_BAR(headerBar_), optionsButton);
    adw_header_bar_pack_end(ADW_HEADER_BAR(headerBar_), fontButton);
    adw_header_bar_pack_end(ADW_HEADER_BAR(headerBar_), searchButton_);
  }

  void storeSidebarVisibility() {
    if (!screen_) return;
    tomekeeper::storeSidebarVisibility(identifier(), screen_->sidebarIsVisible()
                                                         ? SidebarVisibility::visible
                                                         : SidebarVisibility::hidden);
    logSidebarVisibility("has the sidebar");
  }

  // Escape brings hidden controls back; otherwise it goes on to the page.
  bool showHiddenControls() {
    if (controls_->visibility() != ReadingControlsVisibility::hidden) return false;
    controls_->setVisibility(ReadingControlsVisibility::shown);
    return true;
  }

  std::shared_ptr<ReaderSession> session_;
  std::shared_ptr<ApplicationWindowSession> applicationSession_;
  GtkWidget* headerBar_ = nullptr;
  std::unique_ptr<ReadingControls> controls_;
  sigc::connection controlsConnection_;
  std::unique_ptr<BookmarkButton> bookmarkButton_;
  sigc::connection bookmarkConnection_;
  GtkWidget* searchButton_ = nullptr;
  GtkWidget* fontButton_ = nullptr;
  std::unique_ptr<ReaderWindowKeys> keys_;
  std::vector<GObjectHandle<GSimpleAction>> actions_;
  std::unique_ptr<ReaderScreen> screen_;
  sigc::connection sidebarConnection_;
  std::vector<sigc::connection> sessionConnections_;
  bool searchIsRunning_ = false;
  // The page buttons by side: the left one reads on in a book read from right to left.
  GtkWidget* leftPageButton_ = nullptr;
  GtkWidget* rightPageButton_ = nullptr;
};

}  // namespace

std::shared_ptr<ShellWindow> makeGtkReaderWindow(ShellWindowDelegate& delegate,
                                                 GtkApplication* application,
                                                 GMenuModel* primaryMenu,
                                                 ReaderWindowRequest request) {
  return std::make_shared<GtkReaderWindow>(delegate, application, primaryMenu, std::move(request));
}

}  // namespace tomekeeper
