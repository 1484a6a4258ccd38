#pragma once

#include <adwaita.h>
#include <gtk/gtk.h>

#include <memory>
#include <string>

#include "platform/GObjectHandle.h"
#include "session/ExternalURLOpening.h"
#include "views/ViewSupport.h"

namespace tomekeeper {

// The reader's consent before an address leaves a book: open() shows a message dialog over the
// anchor's window with the whole address, "Cancel" and "Open Link", and only "Open Link" hands
// the address to the launcher. Nothing has left when open() returns, so it returns false; a
// second address replaces a dialog that is still shown, which launches nothing. Closing the
// dialog, or the consent going away first, launches nothing either.
//
// Made on the main executor and confined to it. Holds the anchor weakly and the launcher
// strongly.
class ExternalLinkConsent final : public ExternalURLOpening {
 public:
  ExternalLinkConsent(GtkWidget* anchor, std::shared_ptr<ExternalURLOpening> launcher);
  ~ExternalLinkConsent() override;
  ExternalLinkConsent(const ExternalLinkConsent&) = delete;
  ExternalLinkConsent& operator=(const ExternalLinkConsent&) = delete;

  bool open(const std::string& url) override;

  // The dialog while it is shown, for tests; null otherwise.
  AdwMessageDialog* dialog() const;

 private:
  static void handleResponse(AdwMessageDialog* dialog, const char* response, gpointer data);
  void dismiss();

  GObjectWeakReference<GtkWidget> anchor_;
  std::shared_ptr<ExternalURLOpening> launcher_;
  views::WidgetHandle dialog_;
  views::ViewConnections dialogConnections_;
  std::string pendingURL_;
};

}  // namespace tomekeeper
