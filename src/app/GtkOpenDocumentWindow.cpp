#include "app/GtkOpenDocumentWindow.h"

#include <string>
#include <utility>
#include <vector>

#include "app/EPUBOpenControls.h"
#include "app/GtkShellPlatform.h"
#include "app/GtkShellWindow.h"

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
        openControls_(window(), lifetime(), std::move(open)) {
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
    openControls_.attachOpenButton(button);
    adw_status_page_set_child(ADW_STATUS_PAGE(statusPage_), button);
    gtk_box_append(GTK_BOX(content), statusPage_);
    adw_application_window_set_content(ADW_APPLICATION_WINDOW(gtkWindow), content);

    openControls_.attachDropTarget(statusPage_);
  }

 private:
  EPUBOpenControls openControls_;
  GtkWidget* statusPage_ = nullptr;
};

}  // namespace

std::shared_ptr<ShellWindow> makeGtkOpenDocumentWindow(
    ShellWindowDelegate& delegate, GtkApplication* application, GMenuModel* primaryMenu,
    std::function<void(std::filesystem::path)> open) {
  return std::make_shared<GtkOpenDocumentWindow>(delegate, application, primaryMenu,
                                                 std::move(open));
}

}  // namespace tomekeeper
