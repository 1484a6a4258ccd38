#include "session/WebViewReaderHost.h"

#include <gtk/gtk.h>

#include <optional>
#include <set>
#include <utility>

#include "runtime/ReaderWebViewHost.h"

namespace tomekeeper {

namespace {

// Which modifiers leave a navigation key to the page: Control, Alt, Super and Meta.
constexpr GdkModifierType kCommandModifiers =
    static_cast<GdkModifierType>(GDK_CONTROL_MASK | GDK_ALT_MASK | GDK_SUPER_MASK | GDK_META_MASK);

// The direction of a navigation key: Space pages forward (back with Shift); Left and Right
// page toward their side without Shift. Anything else is no navigation key.
std::optional<ReaderNavigationDirection> navigationKeyDirection(guint keyValue,
                                                                GdkModifierType state) {
  const bool shift = (state & GDK_SHIFT_MASK) != 0;
  switch (keyValue) {
    case GDK_KEY_space:
      return shift ? ReaderNavigationDirection::previous : ReaderNavigationDirection::next;
    case GDK_KEY_Left:
      if (!shift) return ReaderNavigationDirection::towardLeft;
      return std::nullopt;
    case GDK_KEY_Right:
      if (!shift) return ReaderNavigationDirection::towardRight;
      return std::nullopt;
    default:
      return std::nullopt;
  }
}

// The session's view of a ReaderWebViewHost. The host's own callbacks forward to the slots of
// ReaderHosting, holding this adapter weakly; the key controller lives on the web view, which
// this adapter's host owns, and is disconnected from the adapter when it goes.
class GtkWebViewReaderHost final : public WebViewReaderHost,
                                   public std::enable_shared_from_this<GtkWebViewReaderHost> {
 public:
  GtkWebViewReaderHost() : host_(ReaderWebViewHost::create()) {}

  ~GtkWebViewReaderHost() override {
    if (keyController_ != nullptr) g_signal_handlers_disconnect_by_data(keyController_, this);
  }

  GtkWebViewReaderHost(const GtkWebViewReaderHost&) = delete;
  GtkWebViewReaderHost& operator=(const GtkWebViewReaderHost&) = delete;

  void connect() {
    host_->onExternalLink = [weak = weak_from_this()](std::string url) {
      const auto self = weak.lock();
      if (self && self->onExternalLink) self->onExternalLink(std::move(url));
    };
    keyController_ = gtk_event_controller_key_new();
    g_signal_connect(keyController_, "key-pressed", G_CALLBACK(handleKeyPressed), this);
    g_signal_connect(keyController_, "key-released", G_CALLBACK(handleKeyReleased), this);
    gtk_widget_add_controller(webView(), keyController_);
  }

  GtkWidget* webView() const override { return GTK_WIDGET(host_->webView()); }

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
    GtkWidget* widget = webView();
    if (widget == nullptr) return {};
    return {static_cast<double>(gtk_widget_get_width(widget)),
            static_cast<double>(gtk_widget_get_height(widget))};
  }

  // The highlight's menu, shown by the web view host at the point the page asked for.
  void presentAnnotationMenu(const ReaderAnnotationContextMenuRequest& request,
                             AnnotationNotePresence notePresence) override {
    // The items call back through the adapter, which may be gone by the time one is chosen.
    const std::weak_ptr<GtkWebViewReaderHost> weak = weak_from_this();
    host_->presentHighlightMenu(
        request.x, request.y,
        notePresence == AnnotationNotePresence::withNote ? HighlightMenuNoteItem::editNote
                                                         : HighlightMenuNoteItem::addNote,
        [weak, request] {
          const auto self = weak.lock();
          if (self && self->onEditAnnotation) self->onEditAnnotation(request);
        },
        [weak, annotationID = request.annotationID] {
          const auto self = weak.lock();
          if (self && self->onRemoveAnnotation) self->onRemoveAnnotation(annotationID);
        });
  }

 private:
  // Only the first key-down of a held key acts: a held key is no run of page turns.
  static gboolean handleKeyPressed(GtkEventControllerKey*, guint keyValue, guint,
                                   GdkModifierType state, gpointer data) {
    auto* self = static_cast<GtkWebViewReaderHost*>(data);
    const bool isRepeat = !self->keysDown_.insert(keyValue).second;
    if (isRepeat) return FALSE;
    if (keyValue == GDK_KEY_Escape && (state & (kCommandModifiers | GDK_SHIFT_MASK)) == 0) {
      // Escape leaves the page, so the window's own keys reach the window again.
      if (GtkRoot* root = gtk_widget_get_root(self->webView())) gtk_root_set_focus(root, nullptr);
      return TRUE;
    }
    if ((state & kCommandModifiers) != 0 || !self->onNavigationKey) return FALSE;
    const std::optional<ReaderNavigationDirection> direction =
        navigationKeyDirection(keyValue, state);
    if (!direction) return FALSE;
    self->onNavigationKey(*direction);
    return TRUE;
  }

  static void handleKeyReleased(GtkEventControllerKey*, guint keyValue, guint, GdkModifierType,
                                gpointer data) {
    static_cast<GtkWebViewReaderHost*>(data)->keysDown_.erase(keyValue);
  }

  std::shared_ptr<ReaderWebViewHost> host_;
  GtkEventController* keyController_ = nullptr;
  std::set<guint> keysDown_;
};

}  // namespace

std::shared_ptr<WebViewReaderHost> makeWebViewReaderHost() {
  auto host = std::make_shared<GtkWebViewReaderHost>();
  host->connect();
  return host;
}

}  // namespace tomekeeper
