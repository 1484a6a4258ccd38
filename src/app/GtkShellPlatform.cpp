#include "app/GtkShellPlatform.h"

#include <algorithm>
#include <string>
#include <utility>

#include "async/Completion.h"
#include "platform/EPUBFileName.h"
#include "platform/GLibString.h"

namespace tomekeeper {

namespace {

constexpr const char* kSchemaID = "org.tomekeeper.Tomekeeper";
constexpr const char* kEPUBMimeType = "application/epub+zip";
constexpr const char* kWidthKey = "reader-window-width";
constexpr const char* kHeightKey = "reader-window-height";
constexpr const char* kMaximizedKey = "reader-window-maximized";

// The owner of one signal handler's data: deleted when the handler is disconnected or its
// object finalized.
template <typename Data>
void connectWithData(gpointer instance, const char* signal, GCallback callback, Data* data) {
  g_signal_connect_data(
      instance, signal, callback, data,
      [](gpointer pointer, GClosure*) { delete static_cast<Data*>(pointer); }, GConnectFlags{});
}

struct AlertResponse {
  std::shared_ptr<async::Completion<std::size_t>> completion;
  std::size_t buttonCount;
};

void handleAlertResponse(AdwMessageDialog*, const char* response, gpointer data) {
  auto* alert = static_cast<AlertResponse*>(data);
  // A response that is not ours (none was sent with another id) counts as the first button,
  // the one that cancels.
  std::size_t index = 0;
  try {
    index = std::stoul(response);
  } catch (...) {
  }
  alert->completion->resolve(index < alert->buttonCount ? index : 0);
}

struct PanelResponse {
  std::shared_ptr<async::Completion<std::vector<std::filesystem::path>>> completion;
  GObjectHandle<GtkFileChooserNative> panel;
};

void handlePanelResponse(GtkNativeDialog* dialog, int response, gpointer data) {
  auto* panel = static_cast<PanelResponse*>(data);
  std::vector<std::filesystem::path> chosen;
  if (response == GTK_RESPONSE_ACCEPT) {
    const auto files =
        GObjectHandle<GListModel>::adopt(gtk_file_chooser_get_files(GTK_FILE_CHOOSER(dialog)));
    const guint count = g_list_model_get_n_items(files.get());
    for (guint index = 0; index < count; ++index) {
      auto file = GObjectHandle<GFile>::adopt(
          static_cast<GFile*>(g_list_model_get_item(files.get(), index)));
      if (const GLibString path(g_file_get_path(file.get())); path) chosen.emplace_back(path.get());
    }
  }
  panel->completion->resolve(std::move(chosen));
}

// A small window that names the book being opened; it goes with this object.
class OpenProgressWindow final : public ShownIndicator {
 public:
  OpenProgressWindow(GtkApplication* application, GtkWindow* parent,
                     const std::string& displayName) {
    window_ = GObjectHandle<GtkWindow>::retain(GTK_WINDOW(gtk_window_new()));
    gtk_window_set_title(window_.get(), "Opening");
    gtk_window_set_resizable(window_.get(), FALSE);
    gtk_window_set_deletable(window_.get(), FALSE);
    gtk_window_set_default_size(window_.get(), 360, -1);
    if (parent != nullptr) gtk_window_set_transient_for(window_.get(), parent);
    gtk_window_set_application(window_.get(), application);

    GtkWidget* box = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 12);
    gtk_widget_set_margin_top(box, 18);
    gtk_widget_set_margin_bottom(box, 18);
    gtk_widget_set_margin_start(box, 18);
    gtk_widget_set_margin_end(box, 18);
    GtkWidget* spinner = gtk_spinner_new();
    gtk_spinner_start(GTK_SPINNER(spinner));
    gtk_box_append(GTK_BOX(box), spinner);
    const std::string text = "Opening \u201c" + displayName + "\u201d\u2026";
    GtkWidget* label = gtk_label_new(text.c_str());
    gtk_label_set_ellipsize(GTK_LABEL(label), PANGO_ELLIPSIZE_MIDDLE);
    gtk_label_set_xalign(GTK_LABEL(label), 0);
    gtk_widget_set_hexpand(label, TRUE);
    gtk_box_append(GTK_BOX(box), label);
    gtk_window_set_child(window_.get(), box);
    gtk_window_present(window_.get());
  }
  ~OpenProgressWindow() override { gtk_window_destroy(window_.get()); }

 private:
  GObjectHandle<GtkWindow> window_;
};

}  // namespace

GObjectHandle<GSettings> applicationSettings() {
  GSettingsSchemaSource* source = g_settings_schema_source_get_default();
  if (source == nullptr) return {};
  GSettingsSchema* schema = g_settings_schema_source_lookup(source, kSchemaID, TRUE);
  if (schema == nullptr) return {};
  g_settings_schema_unref(schema);
  return GObjectHandle<GSettings>::adopt(g_settings_new(kSchemaID));
}

async::Task<std::size_t> runMessageDialog(GtkWindow* parent, AlertContent content) {
  GtkWidget* dialog =
      adw_message_dialog_new(parent, content.message.c_str(), content.information.c_str());
  for (std::size_t index = 0; index < content.buttons.size(); ++index) {
    const std::string identifier = std::to_string(index);
    adw_message_dialog_add_response(ADW_MESSAGE_DIALOG(dialog), identifier.c_str(),
                                    content.buttons[index].c_str());
  }
  if (!content.buttons.empty()) {
    // The first button cancels: Escape and closing the alert choose it.
    adw_message_dialog_set_close_response(ADW_MESSAGE_DIALOG(dialog), "0");
    const std::string action = std::to_string(content.buttons.size() - 1);
    if (content.buttons.size() == 1) {
      adw_message_dialog_set_default_response(ADW_MESSAGE_DIALOG(dialog), "0");
    } else if (content.action == AlertAction::destructive) {
      // Enter must not destroy anything: it chooses the button that cancels.
      adw_message_dialog_set_response_appearance(ADW_MESSAGE_DIALOG(dialog), action.c_str(),
                                                 ADW_RESPONSE_DESTRUCTIVE);
      adw_message_dialog_set_default_response(ADW_MESSAGE_DIALOG(dialog), "0");
    } else {
      adw_message_dialog_set_response_appearance(ADW_MESSAGE_DIALOG(dialog), action.c_str(),
                                                 ADW_RESPONSE_SUGGESTED);
      adw_message_dialog_set_default_response(ADW_MESSAGE_DIALOG(dialog), action.c_str());
    }
  }
  auto completion = std::make_shared<async::Completion<std::size_t>>();
  connectWithData(dialog, "response", G_CALLBACK(handleAlertResponse),
                  new AlertResponse{completion, content.buttons.size()});
  gtk_window_set_modal(GTK_WINDOW(dialog), TRUE);
  gtk_window_present(GTK_WINDOW(dialog));
  co_return co_await *completion;
}

async::Task<std::vector<std::filesystem::path>> runEPUBOpenPanel(GtkWindow* parent,
                                                                 FileSelection selection) {
  auto panel = GObjectHandle<GtkFileChooserNative>::adopt(gtk_file_chooser_native_new(
      "Open EPUB", parent, GTK_FILE_CHOOSER_ACTION_OPEN, "_Open", "_Cancel"));
  const auto filter = GObjectHandle<GtkFileFilter>::adopt(gtk_file_filter_new());
  gtk_file_filter_set_name(filter.get(), "EPUB books");
  gtk_file_filter_add_suffix(filter.get(), "epub");
  gtk_file_filter_add_mime_type(filter.get(), kEPUBMimeType);
  gtk_file_chooser_add_filter(GTK_FILE_CHOOSER(panel.get()), filter.get());
  gtk_file_chooser_set_select_multiple(GTK_FILE_CHOOSER(panel.get()),
                                       selection == FileSelection::multiple);
  gtk_native_dialog_set_modal(GTK_NATIVE_DIALOG(panel.get()), parent != nullptr);

  auto completion = std::make_shared<async::Completion<std::vector<std::filesystem::path>>>();
  GtkFileChooserNative* shown = panel.get();
  // The handler's data keeps the panel alive until it has answered.
  connectWithData(shown, "response", G_CALLBACK(handlePanelResponse),
                  new PanelResponse{completion, std::move(panel)});
  gtk_native_dialog_show(GTK_NATIVE_DIALOG(shown));
  std::vector<std::filesystem::path> chosen = co_await *completion;
  co_return chosen;
}

GtkShellPlatform::GtkShellPlatform(GtkApplication* application)
    : application_(application), settings_(applicationSettings()) {}

GtkWindow* GtkShellPlatform::activeWindow() const {
  return gtk_application_get_active_window(application_);
}

async::Task<std::size_t> GtkShellPlatform::runAlert(AlertContent content) {
  return runMessageDialog(activeWindow(), std::move(content));
}

async::Task<std::vector<std::filesystem::path>> GtkShellPlatform::chooseEPUBFiles(
    FileSelection selection) {
  return runEPUBOpenPanel(activeWindow(), selection);
}

void GtkShellPlatform::noteRecentDocument(const std::filesystem::path& file) {
  const GLibString uri(g_filename_to_uri(file.c_str(), nullptr, nullptr));
  if (!uri) return;
  const std::string exec = std::string(g_get_prgname() ? g_get_prgname() : "tomekeeper") + " %u";
  GtkRecentData data{};
  data.mime_type = const_cast<char*>(kEPUBMimeType);
  data.app_name = const_cast<char*>(g_get_application_name());
  data.app_exec = const_cast<char*>(exec.c_str());
  gtk_recent_manager_add_full(gtk_recent_manager_get_default(), uri.get(), &data);
}

std::vector<std::filesystem::path> GtkShellPlatform::recentDocuments() const {
  std::vector<std::pair<std::filesystem::path, gint64>> entries;
  GList* items = gtk_recent_manager_get_items(gtk_recent_manager_get_default());
  for (GList* item = items; item != nullptr; item = item->next) {
    auto* info = static_cast<GtkRecentInfo*>(item->data);
    const char* mimeType = gtk_recent_info_get_mime_type(info);
    if (mimeType == nullptr || std::string(mimeType) != kEPUBMimeType) continue;
    if (!gtk_recent_info_has_application(info, g_get_application_name())) continue;
    const GLibString path(g_filename_from_uri(gtk_recent_info_get_uri(info), nullptr, nullptr));
    if (!path) continue;
    GDateTime* modified = gtk_recent_info_get_modified(info);
    entries.emplace_back(path.get(), modified ? g_date_time_to_unix(modified) : 0);
  }
  g_list_free_full(items, reinterpret_cast<GDestroyNotify>(gtk_recent_info_unref));
  std::stable_sort(entries.begin(), entries.end(),
                   [](const auto& left, const auto& right) { return left.second > right.second; });
  std::vector<std::filesystem::path> documents;
  for (auto& entry : entries) {
    if (hasEPUBExtension(entry.first)) documents.push_back(std::move(entry.first));
  }
  return documents;
}

void GtkShellPlatform::clearRecentDocuments() {
  GtkRecentManager* manager = gtk_recent_manager_get_default();
  for (const auto& document : recentDocuments()) {
    const GLibString uri(g_filename_to_uri(document.c_str(), nullptr, nullptr));
    if (!uri) continue;
    gtk_recent_manager_remove_item(manager, uri.get(), nullptr);
  }
}

std::optional<WindowFrame> GtkShellPlatform::storedReaderWindowFrame() const {
  if (!settings_) return std::nullopt;
  WindowFrame frame{g_settings_get_int(settings_.get(), kWidthKey),
                    g_settings_get_int(settings_.get(), kHeightKey),
                    g_settings_get_boolean(settings_.get(), kMaximizedKey) != FALSE};
  if (frame.width <= 0 || frame.height <= 0) return std::nullopt;
  return frame;
}

void GtkShellPlatform::storeReaderWindowFrame(const WindowFrame& frame) {
  if (!settings_ || frame.width <= 0 || frame.height <= 0) return;
  g_settings_set_int(settings_.get(), kWidthKey, frame.width);
  g_settings_set_int(settings_.get(), kHeightKey, frame.height);
  g_settings_set_boolean(settings_.get(), kMaximizedKey, frame.isMaximized);
}

std::vector<ScreenArea> GtkShellPlatform::screens() const {
  std::vector<ScreenArea> areas;
  GdkDisplay* display = gdk_display_get_default();
  if (display == nullptr) return areas;
  GListModel* monitors = gdk_display_get_monitors(display);
  const guint count = g_list_model_get_n_items(monitors);
  for (guint index = 0; index < count; ++index) {
    auto monitor = GObjectHandle<GdkMonitor>::adopt(
        static_cast<GdkMonitor*>(g_list_model_get_item(monitors, index)));
    GdkRectangle geometry;
    gdk_monitor_get_geometry(monitor.get(), &geometry);
    areas.push_back(ScreenArea{geometry.width, geometry.height});
  }
  return areas;
}

std::unique_ptr<ShownIndicator> GtkShellPlatform::showOpenProgress(const std::string& displayName) {
  return std::make_unique<OpenProgressWindow>(application_, activeWindow(), displayName);
}

}  // namespace tomekeeper
