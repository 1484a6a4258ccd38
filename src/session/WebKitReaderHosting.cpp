#include "session/WebKitReaderHosting.h"

#include <utility>

#include "runtime/ReaderWebViewHost.h"

namespace tomekeeper {

namespace {

// The session's view of a ReaderWebViewHost. The host's own callbacks forward to the slots of
// ReaderHosting, holding this adapter weakly.
class RuntimeWebKitReaderHosting final
    : public WebKitReaderHosting,
      public std::enable_shared_from_this<RuntimeWebKitReaderHosting> {
 public:
  RuntimeWebKitReaderHosting() : host_(ReaderWebViewHost::create()) {}

  void connect() {
    host_->onExternalLink = [weak = weak_from_this()](std::string url) {
      const auto self = weak.lock();
      if (self && self->onExternalLink) self->onExternalLink(std::move(url));
    };
  }

  // A WebKitWebView is a GtkWidget.
  GtkWidget* webView() const override { return reinterpret_cast<GtkWidget*>(host_->webView()); }

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
    const ReaderWebViewSize size = host_->viewSize();
    return {size.width, size.height};
  }

  // Hands the shell the menu's request at the point the page asked for.
  void presentAnnotationMenu(const ReaderAnnotationContextMenuRequest& request,
                             AnnotationNotePresence notePresence) override {
    if (!onAnnotationMenuRequest) return;
    // The items call back through the adapter, which may be gone by the time one is chosen.
    const std::weak_ptr<RuntimeWebKitReaderHosting> weak = weak_from_this();
    onAnnotationMenuRequest(AnnotationMenuRequest{request.x, request.y, notePresence,
                                                  [weak, request] {
                                                    const auto self = weak.lock();
                                                    if (self && self->onEditAnnotation)
                                                      self->onEditAnnotation(request);
                                                  },
                                                  [weak, annotationID = request.annotationID] {
                                                    const auto self = weak.lock();
                                                    if (self && self->onRemoveAnnotation)
                                                      self->onRemoveAnnotation(annotationID);
                                                  }});
  }

 private:
  std::shared_ptr<ReaderWebViewHost> host_;
};

}  // namespace

std::shared_ptr<WebKitReaderHosting> makeWebKitReaderHosting() {
  auto host = std::make_shared<RuntimeWebKitReaderHosting>();
  host->connect();
  return host;
}

}  // namespace tomekeeper
