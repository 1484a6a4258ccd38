#include "session/WebKitReaderHosting.h"

#include <optional>
#include <utility>

#include "async/Completion.h"
#include "async/Spawn.h"
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

  // The load started ahead (startAhead) when it is of the same directory, else a load now.
  async::Task<void> prepareRuntime(std::filesystem::path runtimeDirectory,
                                   std::chrono::steady_clock::duration timeout) override {
    if (ahead_ && ahead_->directory == runtimeDirectory) {
      return awaitLoad(std::exchange(ahead_, std::nullopt)->loaded);
    }
    return host_->prepareRuntime(std::move(runtimeDirectory), timeout);
  }

  // Starts loading the runtime page now, for the session that will take this host.
  void startAhead(std::filesystem::path runtimeDirectory,
                  std::chrono::steady_clock::duration timeout) {
    ahead_ = AheadLoad{runtimeDirectory, std::make_shared<async::Completion<void>>(),
                       std::make_shared<bool>(false)};
    async::spawn(
        loadAhead(host_, std::move(runtimeDirectory), timeout, ahead_->loaded, ahead_->failed));
  }

  // Whether the load started ahead has failed: such a host is not handed out.
  bool aheadLoadFailed() const { return ahead_ && *ahead_->failed; }

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
  struct AheadLoad {
    std::filesystem::path directory;
    std::shared_ptr<async::Completion<void>> loaded;
    std::shared_ptr<bool> failed;
  };

  static async::Task<void> loadAhead(std::shared_ptr<ReaderWebViewHost> host,
                                     std::filesystem::path runtimeDirectory,
                                     std::chrono::steady_clock::duration timeout,
                                     std::shared_ptr<async::Completion<void>> loaded,
                                     std::shared_ptr<bool> failed) {
    std::exception_ptr failure;
    try {
      co_await host->prepareRuntime(std::move(runtimeDirectory), timeout);
    } catch (...) {
      failure = std::current_exception();
    }
    if (failure) {
      *failed = true;
      loaded->reject(failure);
    } else {
      loaded->resolve();
    }
  }

  static async::Task<void> awaitLoad(std::shared_ptr<async::Completion<void>> loaded) {
    co_await *loaded;
  }

  std::shared_ptr<ReaderWebViewHost> host_;
  std::optional<AheadLoad> ahead_;
};

// The host started ahead, waiting for the next make. Never destroyed: a web view must not go
// after GTK has ended, at exit.
std::shared_ptr<RuntimeWebKitReaderHosting>& waitingHost() {
  static auto* waiting = new std::shared_ptr<RuntimeWebKitReaderHosting>();
  return *waiting;
}

std::shared_ptr<RuntimeWebKitReaderHosting> makeConnectedHost() {
  auto host = std::make_shared<RuntimeWebKitReaderHosting>();
  host->connect();
  return host;
}

}  // namespace

std::shared_ptr<WebKitReaderHosting> makeWebKitReaderHosting() {
  auto waiting = std::exchange(waitingHost(), nullptr);
  if (waiting && !waiting->aheadLoadFailed()) return waiting;
  if (waiting) waiting->close();
  return makeConnectedHost();
}

void startWebKitReaderHostingAhead(std::filesystem::path runtimeDirectory,
                                   std::chrono::steady_clock::duration timeout) {
  if (waitingHost()) return;
  auto host = makeConnectedHost();
  host->startAhead(std::move(runtimeDirectory), timeout);
  waitingHost() = std::move(host);
}

}  // namespace tomekeeper
