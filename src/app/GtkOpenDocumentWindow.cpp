#include "app/GtkOpenDocumentWindow.h"

#include <string>
#include <utility>
#include <vector>

#include "app/GtkShellPlatform.h"
#include "app/GtkShellWindow.h"
#include "async/Spawn.h"
#include "platform/EPUBFileName.h"
#include "platform/GLibString.h"

namespace tomekeeper {

namespace {

constexpr int kOpenDocumentWindowWidth = 560;
constexpr int kOpenDocumentWindowHeight = 380;

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
    installShortcutsWindow(gtkWindow);

    GtkWidget* content = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    GtkWidget* headerBar = adw_header_bar_new();
    adw_header_bar_pack_end(ADW_HEADER_BAR(headerBar), makeMainMenuButton(primaryMenu));
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
    async::spawn(chooseAndOpen(GObjectHandle<GtkWindow>::retain(self->window()), self->open_),
                 self->lifetime());
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
    // The list is the value's; only its links are ours.
    const std::unique_ptr<GSList, decltype(&g_slist_free)> files(
        gdk_file_list_get_files(static_cast<GdkFileList*>(g_value_get_boxed(value))), g_slist_free);
    GFile* first = files ? static_cast<GFile*>(files->data) : nullptr;
    const GLibString path(first != nullptr ? g_file_get_path(first) : nullptr);
    if (!path || !hasEPUBExtension(path.get())) return FALSE;
    const std::filesystem::path dropped(path.get());
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

std::shared_ptr<ShellWindow> makeGtkOpenDocumentWindow(
    ShellWindowDelegate& delegate, GtkApplication* application, GMenuModel* primaryMenu,
    std::function<void(std::filesystem::path)> open) {
  return std::make_shared<GtkOpenDocumentWindow>(delegate, application, primaryMenu,
                                                 std::move(open));
}

}  // namespace tomekeeper
