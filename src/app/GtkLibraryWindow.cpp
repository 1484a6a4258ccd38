#include "app/GtkLibraryWindow.h"

#include <string>
#include <utility>
#include <vector>

#include "app/EPUBOpenControls.h"
#include "app/GtkShellPlatform.h"
#include "app/GtkShellWindow.h"
#include "views/LibraryView.h"
#include "views/ViewSupport.h"

namespace tomekeeper {

namespace {

constexpr int kLibraryWindowWidth = 1000;
constexpr int kLibraryWindowHeight = 720;

using OpenFunction = std::function<void(std::filesystem::path)>;

class GtkLibraryWindow final : public GtkShellWindow {
 public:
  GtkLibraryWindow(ShellWindowDelegate& delegate, GtkApplication* application,
                   GMenuModel* primaryMenu, OpenFunction open, LibraryWindowServices services)
      : GtkShellWindow(delegate, "", GTK_WINDOW(adw_application_window_new(application))),
        openControls_(std::make_shared<EPUBOpenControls>(window(), lifetime(), std::move(open))) {
    GtkWindow* gtkWindow = window();
    gtk_window_set_title(gtkWindow, "Tomekeeper");
    gtk_window_set_default_size(gtkWindow, kLibraryWindowWidth, kLibraryWindowHeight);
    installShortcutsWindow(gtkWindow);

    GtkWidget* content = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    GtkWidget* headerBar = adw_header_bar_new();
    adw_header_bar_set_title_widget(ADW_HEADER_BAR(headerBar),
                                    adw_window_title_new("Library", nullptr));
    GtkWidget* openButton = views::makeTextButton("Open EPUB\u2026");
    openControls_->attachOpenButton(openButton);
    adw_header_bar_pack_start(ADW_HEADER_BAR(headerBar), openButton);
    adw_header_bar_pack_end(ADW_HEADER_BAR(headerBar), makeMainMenuButton(primaryMenu));
    gtk_box_append(GTK_BOX(content), headerBar);

    LibraryCommands commands;
    commands.open = [weakControls =
                         std::weak_ptr<EPUBOpenControls>(openControls_)](const LibraryBook& book) {
      const auto controls = weakControls.lock();
      if (controls && book.sourceURL) controls->openLater(*book.sourceURL);
    };
    commands.locate = std::move(services.locate);
    library_ = std::make_unique<LibraryView>(services.locations,
                                             std::make_shared<SystemSecurityScopedBookmarkCodec>(),
                                             std::move(commands));
    library_->loaded.connect([this](std::size_t count) { showLoaded(count); });
    keepPresentation();

    stack_ = gtk_stack_new();
    gtk_widget_set_vexpand(stack_, TRUE);
    gtk_stack_add_named(GTK_STACK(stack_), library_->widget(), "library");
    GtkWidget* empty = adw_status_page_new();
    adw_status_page_set_icon_name(ADW_STATUS_PAGE(empty), "org.tomekeeper.Tomekeeper");
    adw_status_page_set_title(ADW_STATUS_PAGE(empty), "Tomekeeper");
    adw_status_page_set_description(ADW_STATUS_PAGE(empty), "Drop an EPUB here");
    gtk_stack_add_named(GTK_STACK(stack_), empty, "empty");
    gtk_box_append(GTK_BOX(content), stack_);
    adw_application_window_set_content(ADW_APPLICATION_WINDOW(gtkWindow), content);
    // Typing anywhere in the window searches, whatever has the focus; the field has it first.
    gtk_search_entry_set_key_capture_widget(GTK_SEARCH_ENTRY(library_->searchEntry()), content);
    gtk_window_set_focus(gtkWindow, library_->searchEntry());

    openControls_->attachDropTarget(content);
  }

 private:
  void windowClosing() override { library_->loaded.clear(); }

  // The layout and sort order last chosen come back at the next start: the stored ones are
  // applied before the books arrive, and each choice is stored. Without installed settings,
  // the defaults stay and nothing is kept.
  void keepPresentation() {
    settings_ = applicationSettings();
    if (!settings_) return;
    if (const auto layout = libraryLayoutNamed(storedName(kLayoutKey))) {
      library_->setLayout(*layout);
    }
    if (const auto order = librarySortOrderNamed(storedName(kSortKey))) {
      library_->setSortOrder(*order);
    }
    library_->presentationChanged.connect([this] {
      g_settings_set_string(settings_.get(), kLayoutKey, libraryLayoutName(library_->layout()));
      g_settings_set_string(settings_.get(), kSortKey, librarySortOrderName(library_->sortOrder()));
    });
  }

  std::string storedName(const char* key) const {
    gchar* value = g_settings_get_string(settings_.get(), key);
    std::string name = value != nullptr ? value : "";
    g_free(value);
    return name;
  }

  void showLoaded(std::size_t count) {
    gtk_stack_set_visible_child_name(GTK_STACK(stack_), count == 0 ? "empty" : "library");
    // The application's display tests follow the library through this line.
    g_info("Library shows %zu books", count);
  }

  static constexpr const char* kLayoutKey = "library-layout";
  static constexpr const char* kSortKey = "library-sort";

  // Shared with the library's commands, which may outlive the window for a moment.
  std::shared_ptr<EPUBOpenControls> openControls_;
  GObjectHandle<GSettings> settings_;  // outlives the library, whose signal uses it
  std::unique_ptr<LibraryView> library_;
  GtkWidget* stack_ = nullptr;
};

}  // namespace

std::shared_ptr<ShellWindow> makeGtkLibraryWindow(ShellWindowDelegate& delegate,
                                                  GtkApplication* application,
                                                  GMenuModel* primaryMenu,
                                                  std::function<void(std::filesystem::path)> open,
                                                  LibraryWindowServices services) {
  return std::make_shared<GtkLibraryWindow>(delegate, application, primaryMenu, std::move(open),
                                            std::move(services));
}

}  // namespace tomekeeper
