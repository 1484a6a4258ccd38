#include "views/ExternalLinkConsent.h"

#include <string_view>
#include <utility>

namespace tomekeeper {

namespace {

constexpr const char* kCancelResponse = "cancel";
constexpr const char* kOpenResponse = "open";

}  // namespace

ExternalLinkConsent::ExternalLinkConsent(GtkWidget* anchor,
                                         std::shared_ptr<ExternalURLOpening> launcher)
    : anchor_(anchor), launcher_(std::move(launcher)) {}

ExternalLinkConsent::~ExternalLinkConsent() {
  dismiss();
}

bool ExternalLinkConsent::open(const std::string& url) {
  dismiss();
  GtkWindow* parent = nullptr;
  const GObjectHandle<GtkWidget> anchor = anchor_.lock();
  if (anchor) {
    GtkRoot* root = gtk_widget_get_root(anchor.get());
    if (root != nullptr && GTK_IS_WINDOW(root)) parent = GTK_WINDOW(root);
  }
  // The whole address, as plain text: the reader decides on what will really be opened.
  GtkWidget* dialog = adw_message_dialog_new(parent, "Open Link?", url.c_str());
  dialog_ = views::WidgetHandle::retain(dialog);
  pendingURL_ = url;
  auto* messageDialog = ADW_MESSAGE_DIALOG(dialog);
  adw_message_dialog_add_responses(messageDialog, kCancelResponse, "Cancel", kOpenResponse,
                                   "Open Link", nullptr);
  adw_message_dialog_set_response_appearance(messageDialog, kOpenResponse, ADW_RESPONSE_SUGGESTED);
  adw_message_dialog_set_default_response(messageDialog, kCancelResponse);
  adw_message_dialog_set_close_response(messageDialog, kCancelResponse);
  dialogConnections_.add(dialog, "response", G_CALLBACK(handleResponse), this);
  gtk_window_present(GTK_WINDOW(dialog));
  return false;
}

AdwMessageDialog* ExternalLinkConsent::dialog() const {
  return dialog_ ? ADW_MESSAGE_DIALOG(dialog_.get()) : nullptr;
}

void ExternalLinkConsent::handleResponse(AdwMessageDialog*, const char* response, gpointer data) {
  auto* consent = static_cast<ExternalLinkConsent*>(data);
  const std::string url = std::exchange(consent->pendingURL_, {});
  // The dialog closes itself after the response.
  consent->dialogConnections_.disconnectAll();
  consent->dialog_.reset();
  if (response != nullptr && std::string_view(response) == kOpenResponse && consent->launcher_) {
    consent->launcher_->open(url);
  }
}

void ExternalLinkConsent::dismiss() {
  dialogConnections_.disconnectAll();
  pendingURL_.clear();
  if (dialog_) {
    gtk_window_destroy(GTK_WINDOW(dialog_.get()));
    dialog_.reset();
  }
}

}  // namespace tomekeeper
