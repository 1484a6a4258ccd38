#include "session/WebViewReaderHost.h"

#include <gtk/gtk.h>

#include <utility>

#include "runtime/ReaderWebViewHost.h"

namespace tomekeeper {

namespace {

// The session's view of a ReaderWebViewHost. The host's own callbacks forward to the slots of
// ReaderHosting, holding this adapter weakly.
class WebViewReaderHost final : public ReaderHosting,
                                public std::enable_shared_from_this<WebViewReaderHost> {
 public:
  WebViewReaderHost() : host_(ReaderWebViewHost::create()) {}

  void connect() {
    host_->onExternalLink = [weak = weak_from_this()](std::string url) {
      const auto self = weak.lock();
      if (self && self->onExternalLink) self->onExternalLink(std::move(url));
    };
  }

  const std::shared_ptr<ReaderBridge>& bridge() const override { return host_->bridge(); }

  void registerPublication(const Uuid& publicationID, const std::filesystem::path& root) override {
    host_->registerPublication(publicationID, root);
  }

  async::Task<void> prepareRuntime(std::filesystem::path runtimeDirectory,
                                   std::chrono::steady_clock::duration timeout) override {
    return host_->prepareRuntime(std::move(runtimeDirectory), timeout);
  }

  void close() override { host_->close(); }

  ReaderViewportSize viewportSize() const override {
    GtkWidget* widget = GTK_WIDGET(host_->webView());
    if (widget == nullptr) return {};
    return {static_cast<double>(gtk_widget_get_width(widget)),
            static_cast<double>(gtk_widget_get_height(widget))};
  }

  // The web view host does not offer its highlight menu yet; until it does, the menu is not
  // shown and the session's removal and note callbacks are reached from the sidebar only.
  void presentAnnotationMenu(const ReaderAnnotationContextMenuRequest&,
                             AnnotationNotePresence) override {}

 private:
  std::shared_ptr<ReaderWebViewHost> host_;
};

}  // namespace

std::shared_ptr<ReaderHosting> makeWebViewReaderHost() {
  auto host = std::make_shared<WebViewReaderHost>();
  host->connect();
  return host;
}

}  // namespace tomekeeper
