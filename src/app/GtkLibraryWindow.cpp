#include "app/GtkLibraryWindow.h"

#include <utility>
#include <vector>

#include "app/GtkShellPlatform.h"
#include "app/GtkShellWindow.h"
#include "async/Spawn.h"
#include "platform/EPUBFileName.h"
#include "platform/GLibString.h"
#include "views/LibraryView.h"
#include "views/ViewSupport.h"

namespace tomekeeper {

namespace {

constexpr int kLibraryWindowWidth = 1000;
constexpr int kLibraryWindowHeight = 720;

using OpenFunction = std::function<void(std::filesystem::path)>;

// Calls `open` with `file` from the main loop, after the event that asked for it has finished.
void openLater(std::weak_ptr<OpenFunction> open, std::filesystem::path file) {
  using Call = std::pair<std::weak_ptr<OpenFunction>, std::filesystem::path>;
  g_idle_add_full(
      G_PRIORITY_DEFAULT,
      [](gpointer pending) -> gboolean {
        auto* call = static_cast<Call*>(pending);
        if (const auto function = call->first.lock()) (*function)(call->second);
        return G_SOURCE_REMOVE;
      },
      new Call(std::move(open), std::move(file)),
      [](gpointer pending) { delete static_cast<Call*>(pending); });
}

class GtkLibraryWindow final : public GtkShellWindow {
 public:
  GtkLibraryWindow(ShellWindowDelegate& delegate, GtkApplication* application,
                   GMenuModel* primaryMenu, OpenFunction open, LibraryWindowServices services)
      : GtkShellWindow(delegate, "", GTK_WINDOW(adw_application_window_new(application))),
        open_(std::make_shared<OpenFunction>(std::move(open))) {
    GtkWindow* gtkWindow = window();
    gtk_window_set_title(gtkWindow, "Tomekeeper");
    gtk_window_set_default_size(gtkWindow, kLibraryWindowWidth, kLibraryWindowHeight);
    installShortcutsWindow(gtkWindow);

    GtkWidget* content = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    GtkWidget* headerBar = adw_header_bar_new();
    adw_header_bar_set_title_widget(ADW_HEADER_BAR(headerBar),
                                    adw_window_title_new("Library", nullptr));
    openButton_ = views::makeTextButton("Open EPUB\u2026");
    g_signal_connect(openButton_, "clicked", G_CALLBACK(handleOpenClicked), this);
    adw_header_bar_pack_start(ADW_HEADER_BAR(headerBar), openButton_);
    adw_header_bar_pack_end(ADW_HEADER_BAR(headerBar), makeMainMenuButton(primaryMenu));
    gtk_box_append(GTK_BOX(content), headerBar);

    LibraryCommands commands;
    commands.open = [weakOpen = std::weak_ptr<OpenFunction>(open_)](const LibraryBook& book) {
      if (book.sourceURL) openLater(weakOpen, *book.sourceURL);
    };
    commands.locate = std::move(services.locate);
    library_ = std::make_unique<LibraryView>(services.locations,
                                             std::make_shared<SystemSecurityScopedBookmarkCodec>(),
                                             std::move(commands));
    library_->loaded.connect([this](std::size_t count) { showLoaded(count); });

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

    GtkDropTarget* drop = gtk_drop_target_new(GDK_TYPE_FILE_LIST, GDK_ACTION_COPY);
    g_signal_connect(drop, "enter", G_CALLBACK(handleDropEnter), this);
    g_signal_connect(drop, "leave", G_CALLBACK(handleDropLeave), this);
    g_signal_connect(drop, "drop", G_CALLBACK(handleDrop), this);
    gtk_widget_add_controller(content, GTK_EVENT_CONTROLLER(drop));
    dropTarget_ = drop;
    content_ = content;
  }

  ~GtkLibraryWindow() override {
    g_signal_handlers_disconnect_by_data(dropTarget_, this);
    g_signal_handlers_disconnect_by_data(openButton_, this);
  }

 private:
  void windowClosing() override { library_->loaded.clear(); }

  void showLoaded(std::size_t count) {
    gtk_stack_set_visible_child_name(GTK_STACK(stack_), count == 0 ? "empty" : "library");
    // The application's display tests follow the library through this line.
    g_info("Library shows %zu books", count);
  }

  static async::Task<void> chooseAndOpen(GObjectHandle<GtkWindow> parent,
                                         std::weak_ptr<OpenFunction> weakOpen) {
    const std::vector<std::filesystem::path> chosen =
        co_await runEPUBOpenPanel(parent.get(), FileSelection::multiple);
    const auto open = weakOpen.lock();
    if (!open) co_return;
    for (const auto& file : chosen) (*open)(file);
  }

  static void handleOpenClicked(GtkButton*, gpointer data) {
    auto* self = static_cast<GtkLibraryWindow*>(data);
    async::spawn(chooseAndOpen(GObjectHandle<GtkWindow>::retain(self->window()), self->open_),
                 self->lifetime());
  }

  static GdkDragAction handleDropEnter(GtkDropTarget*, double, double, gpointer data) {
    gtk_widget_add_css_class(static_cast<GtkLibraryWindow*>(data)->content_, "accent");
    return GDK_ACTION_COPY;
  }

  static void handleDropLeave(GtkDropTarget*, gpointer data) {
    gtk_widget_remove_css_class(static_cast<GtkLibraryWindow*>(data)->content_, "accent");
  }

  // Only the first file counts, and only an EPUB.
  static gboolean handleDrop(GtkDropTarget*, const GValue* value, double, double, gpointer data) {
    auto* self = static_cast<GtkLibraryWindow*>(data);
    gtk_widget_remove_css_class(self->content_, "accent");
    if (!G_VALUE_HOLDS(value, GDK_TYPE_FILE_LIST)) return FALSE;
    // The list is the value's; only its links are ours.
    const std::unique_ptr<GSList, decltype(&g_slist_free)> files(
        gdk_file_list_get_files(static_cast<GdkFileList*>(g_value_get_boxed(value))), g_slist_free);
    GFile* first = files ? static_cast<GFile*>(files->data) : nullptr;
    const GLibString path(first != nullptr ? g_file_get_path(first) : nullptr);
    if (!path || !hasEPUBExtension(path.get())) return FALSE;
    openLater(self->open_, std::filesystem::path(path.get()));
    return TRUE;
  }

  std::shared_ptr<OpenFunction> open_;
  std::unique_ptr<LibraryView> library_;
  GtkWidget* stack_ = nullptr;
  GtkWidget* content_ = nullptr;
  GtkWidget* openButton_ = nullptr;
  GtkDropTarget* dropTarget_ = nullptr;
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
