#include "app/GtkOpeningWindow.h"

#include <cmath>
#include <string>
#include <utility>

#include "app/GtkShellWindow.h"
#include "platform/EventLog.h"

namespace tomekeeper {
namespace {

// An informational line of category "ReaderWindow", as the reader window writes them: the
// application's display tests follow what the window shows through them.
void logOpeningWindowEvent(const std::string& message) {
  logEvent(EventLogLevel::information, "ReaderWindow", message);
}

class GtkOpeningWindow final : public GtkShellWindow {
 public:
  GtkOpeningWindow(ShellWindowDelegate& delegate, GtkApplication* application,
                   GMenuModel* primaryMenu, const OpeningWindowRequest& request)
      : GtkShellWindow(delegate, std::string(),
                       GTK_WINDOW(adw_application_window_new(application))),
        fileName_(request.sourceURL.filename().string()) {
    GtkWindow* gtkWindow = window();
    gtk_window_set_title(gtkWindow, request.title.c_str());
    gtk_widget_set_size_request(GTK_WIDGET(gtkWindow), 680, 500);
    gtk_window_set_default_size(gtkWindow, request.frame.width, request.frame.height);
    if (request.frame.isMaximized) gtk_window_maximize(gtkWindow);

    GtkWidget* headerBar = adw_header_bar_new();
    adw_header_bar_pack_end(ADW_HEADER_BAR(headerBar), makeMainMenuButton(primaryMenu));

    progressBar_ = gtk_progress_bar_new();
    gtk_widget_set_halign(progressBar_, GTK_ALIGN_CENTER);
    gtk_widget_set_size_request(progressBar_, 320, -1);
    GtkWidget* page = adw_status_page_new();
    adw_status_page_set_icon_name(ADW_STATUS_PAGE(page), "x-office-document-symbolic");
    adw_status_page_set_title(ADW_STATUS_PAGE(page), request.title.c_str());
    adw_status_page_set_description(ADW_STATUS_PAGE(page), "Preparing the book\u2026");
    adw_status_page_set_child(ADW_STATUS_PAGE(page), progressBar_);
    gtk_widget_set_vexpand(page, TRUE);

    GtkWidget* content = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    gtk_box_append(GTK_BOX(content), headerBar);
    gtk_box_append(GTK_BOX(content), page);
    adw_application_window_set_content(ADW_APPLICATION_WINDOW(gtkWindow), content);
    logOpeningWindowEvent("Opening window of " + fileName_ + " is titled " + request.title);
  }

  void showOpenProgress(double fraction) override {
    if (progressBar_ == nullptr || !isVisible()) return;
    gtk_progress_bar_set_fraction(GTK_PROGRESS_BAR(progressBar_), fraction);
    const int percent = static_cast<int>(std::floor(fraction * 100.0));
    // A line per tenth is enough to follow it.
    if (percent / 10 == loggedTenth_) return;
    loggedTenth_ = percent / 10;
    logOpeningWindowEvent("Opening window of " + fileName_ + " shows " + std::to_string(percent) +
                          "%");
  }

 protected:
  // The page goes with the window, or with the reader window's content that replaces it.
  void windowClosing() override { progressBar_ = nullptr; }

 private:
  std::string fileName_;
  GtkWidget* progressBar_ = nullptr;
  int loggedTenth_ = -1;
};

}  // namespace

std::shared_ptr<ShellWindow> makeGtkOpeningWindow(ShellWindowDelegate& delegate,
                                                  GtkApplication* application,
                                                  GMenuModel* primaryMenu,
                                                  OpeningWindowRequest request) {
  return std::make_shared<GtkOpeningWindow>(delegate, application, primaryMenu, request);
}

}  // namespace tomekeeper
