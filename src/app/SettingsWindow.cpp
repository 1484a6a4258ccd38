#include "app/SettingsWindow.h"

#include <exception>
#include <optional>
#include <string>

#include <sigc++/connection.h>

#include "app/GtkShellPlatform.h"
#include "async/Spawn.h"
#include "platform/GLibString.h"

namespace tomekeeper {

namespace {

// The key under which the settings window holds its view.
constexpr const char* kViewKey = "tomekeeper-settings-view";

constexpr const char* kClearCacheDescription =
    "Extracted book files make previously opened EPUBs faster to reopen. Clearing the cache "
    "preserves reading positions, bookmarks, highlights, notes, and original EPUB files. Books "
    "may take longer to open next time.";

// The description of a failed clear, as the alert shows it.
std::string localizedDescription(const std::exception_ptr& failure) {
  try {
    std::rethrow_exception(failure);
  } catch (const ReadingCacheMaintenanceErrorError& error) {
    return std::string(localizedDescription(error.failure()));
  } catch (const std::exception& error) {
    return error.what();
  } catch (...) {
    return "";
  }
}

GtkWidget* makeLabel(const char* text, const char* cssClass) {
  GtkWidget* label = gtk_label_new(text);
  gtk_label_set_wrap(GTK_LABEL(label), TRUE);
  gtk_label_set_xalign(GTK_LABEL(label), 0);
  if (cssClass != nullptr) gtk_widget_add_css_class(label, cssClass);
  return label;
}

// The state of one settings window; deleted with the window.
// The "Reading Data Folder" row: the state-directory setting, shown and chosen with a folder
// panel, or set back to the application's data folder. The row keeps the settings object.
GtkWidget* makeStateDirectoryRow() {
  GtkWidget* row = adw_action_row_new();
  adw_preferences_row_set_title(ADW_PREFERENCES_ROW(row), "Reading Data Folder");
  GObjectHandle<GSettings> settings = applicationSettings();
  if (!settings) {
    adw_action_row_set_subtitle(ADW_ACTION_ROW(row), "The application\u2019s data folder");
    return row;
  }
  const auto showSetting = +[](GSettings* source, const char*, gpointer data) {
    const GLibString value(g_settings_get_string(source, "state-directory"));
    adw_action_row_set_subtitle(ADW_ACTION_ROW(data), value.string().empty()
                                                          ? "The application\u2019s data folder"
                                                          : value.get());
  };
  showSetting(settings.get(), nullptr, row);
  g_signal_connect_object(settings.get(), "changed::state-directory", G_CALLBACK(showSetting), row,
                          GConnectFlags{});
  GtkWidget* choose = gtk_button_new_with_label("Choose\u2026");
  GtkWidget* reset = gtk_button_new_with_label("Use Default");
  for (GtkWidget* button : {reset, choose}) {
    gtk_widget_set_valign(button, GTK_ALIGN_CENTER);
    adw_action_row_add_suffix(ADW_ACTION_ROW(row), button);
  }
  g_signal_connect(reset, "clicked", G_CALLBACK(+[](GtkButton*, gpointer data) {
                     g_settings_set_string(G_SETTINGS(data), "state-directory", "");
                   }),
                   settings.get());
  g_signal_connect(
      choose, "clicked", G_CALLBACK(+[](GtkButton* button, gpointer data) {
        GtkRoot* root = gtk_widget_get_root(GTK_WIDGET(button));
        GtkFileChooserNative* panel = gtk_file_chooser_native_new(
            "Reading Data Folder", GTK_IS_WINDOW(root) ? GTK_WINDOW(root) : nullptr,
            GTK_FILE_CHOOSER_ACTION_SELECT_FOLDER, "_Choose", "_Cancel");
        gtk_native_dialog_set_modal(GTK_NATIVE_DIALOG(panel), TRUE);
        // The panel and the settings live until the panel has answered.
        g_object_set_data_full(G_OBJECT(panel), "settings", g_object_ref(data), g_object_unref);
        g_signal_connect(
            panel, "response", G_CALLBACK(+[](GtkNativeDialog* dialog, int response, gpointer) {
              // The panel held its own reference until it answered; it goes with this handler.
              const auto answered = GObjectHandle<GtkNativeDialog>::adopt(dialog);
              if (response == GTK_RESPONSE_ACCEPT) {
                const auto file = GObjectHandle<GFile>::adopt(
                    gtk_file_chooser_get_file(GTK_FILE_CHOOSER(dialog)));
                const GLibString path(file ? g_file_get_path(file.get()) : nullptr);
                if (path) {
                  g_settings_set_string(G_SETTINGS(g_object_get_data(G_OBJECT(dialog), "settings")),
                                        "state-directory", path.get());
                }
              }
            }),
            nullptr);
        gtk_native_dialog_show(GTK_NATIVE_DIALOG(panel));
      }),
      settings.get());
  // The settings object goes with the row.
  g_object_set_data_full(G_OBJECT(row), "settings", g_object_ref(settings.get()), g_object_unref);
  return row;
}

class SettingsView {
 public:
  SettingsView(GtkApplication* application, std::shared_ptr<DocumentOpenCoordinator> coordinator)
      : coordinator_(std::move(coordinator)) {
    window_ = adw_preferences_window_new();
    gtk_window_set_application(GTK_WINDOW(window_), application);
    gtk_window_set_title(GTK_WINDOW(window_), "Settings");
    gtk_window_set_default_size(GTK_WINDOW(window_), 560, 440);
    adw_preferences_window_set_search_enabled(ADW_PREFERENCES_WINDOW(window_), FALSE);

    GtkWidget* page = adw_preferences_page_new();
    GtkWidget* reading = adw_preferences_group_new();
    adw_preferences_group_set_title(ADW_PREFERENCES_GROUP(reading), "Reading");
    adw_preferences_group_set_description(
        ADW_PREFERENCES_GROUP(reading),
        "Reading preferences are stored locally and apply across books. Tomekeeper does not "
        "require an account or cloud connection.");
    GtkWidget* typography = adw_action_row_new();
    adw_preferences_row_set_title(ADW_PREFERENCES_ROW(typography), "Typography");
    adw_action_row_set_subtitle(ADW_ACTION_ROW(typography),
                                "Open a book and use Reading Font in the toolbar");
    adw_preferences_group_add(ADW_PREFERENCES_GROUP(reading), typography);
    GtkWidget* appearance = adw_action_row_new();
    adw_preferences_row_set_title(ADW_PREFERENCES_ROW(appearance), "Appearance");
    adw_action_row_set_subtitle(ADW_ACTION_ROW(appearance),
                                "Themes and layout are available in the reader toolbar");
    adw_preferences_group_add(ADW_PREFERENCES_GROUP(reading), appearance);
    adw_preferences_page_add(ADW_PREFERENCES_PAGE(page), ADW_PREFERENCES_GROUP(reading));

    GtkWidget* storage = adw_preferences_group_new();
    adw_preferences_group_set_title(ADW_PREFERENCES_GROUP(storage), "Storage");
    GtkWidget* cacheRow = adw_action_row_new();
    adw_preferences_row_set_title(ADW_PREFERENCES_ROW(cacheRow), "Reading Cache");
    cacheSizeLabel_ = gtk_label_new("Calculating\u2026");
    gtk_widget_add_css_class(cacheSizeLabel_, "dim-label");
    adw_action_row_add_suffix(ADW_ACTION_ROW(cacheRow), cacheSizeLabel_);
    adw_preferences_group_add(ADW_PREFERENCES_GROUP(storage), cacheRow);
    adw_preferences_group_add(ADW_PREFERENCES_GROUP(storage), makeStateDirectoryRow());

    GtkWidget* details = gtk_box_new(GTK_ORIENTATION_VERTICAL, 12);
    gtk_widget_set_margin_top(details, 12);
    gtk_box_append(GTK_BOX(details), makeLabel(kClearCacheDescription, "dim-label"));
    clearButton_ = gtk_button_new_with_label("Clear Reading Cache\u2026");
    gtk_widget_set_halign(clearButton_, GTK_ALIGN_START);
    gtk_widget_add_css_class(clearButton_, "destructive-action");
    g_signal_connect(clearButton_, "clicked", G_CALLBACK(handleClearClicked), this);
    gtk_box_append(GTK_BOX(details), clearButton_);
    openBooksNotice_ = makeLabel("Close all book windows before clearing the cache.", "dim-label");
    gtk_box_append(GTK_BOX(details), openBooksNotice_);
    adw_preferences_group_add(ADW_PREFERENCES_GROUP(storage), details);
    adw_preferences_page_add(ADW_PREFERENCES_PAGE(page), ADW_PREFERENCES_GROUP(storage));
    adw_preferences_window_add(ADW_PREFERENCES_WINDOW(window_), ADW_PREFERENCES_PAGE(page));

    windowCountConnection_ =
        coordinator_->activeReaderWindowCountChanged.connect([this] { updateClearButton(); });
    updateClearButton();
    // The view goes with its window.
    g_object_set_data_full(G_OBJECT(window_), kViewKey, this,
                           [](gpointer view) { delete static_cast<SettingsView*>(view); });
    // Closed or destroyed, the window is gone for the tasks; the view goes with the window.
    g_signal_connect(window_, "destroy", G_CALLBACK(handleDestroy), this);
  }

  ~SettingsView() {
    windowCountConnection_.disconnect();
    *alive_ = false;
  }
  SettingsView(const SettingsView&) = delete;
  SettingsView& operator=(const SettingsView&) = delete;

  // Shows the window over `parent` (may be null) and measures the cache again.
  void present(GtkWindow* parent) {
    gtk_window_set_transient_for(GTK_WINDOW(window_), parent);
    gtk_window_present(GTK_WINDOW(window_));
    measure();
  }

 private:
  // Tasks reach the view and its window through this flag, which says whether the window is
  // still there. They do not hold the window: one kept past its destruction would outlive the
  // window it was transient for.
  struct Reference {
    std::shared_ptr<bool> alive;
    SettingsView* view() const { return *alive ? view_ : nullptr; }
    GtkWindow* window() const { return *alive ? GTK_WINDOW(view_->window_) : nullptr; }
    SettingsView* view_;
  };
  Reference reference() { return Reference{alive_, this}; }

  void updateClearButton() {
    const bool booksAreOpen = coordinator_->activeReaderWindowCount() != 0;
    gtk_widget_set_sensitive(clearButton_, !isClearingCache_ && !booksAreOpen);
    gtk_widget_set_visible(openBooksNotice_, booksAreOpen);
  }

  void showCacheSize(std::int64_t bytes) {
    const GLibString text(g_format_size(static_cast<guint64>(std::max<std::int64_t>(bytes, 0))));
    gtk_label_set_text(GTK_LABEL(cacheSizeLabel_), text.get());
  }

  void measure() { async::spawn(measureCache(reference(), coordinator_)); }

  static async::Task<void> measureCache(Reference reference,
                                        std::shared_ptr<DocumentOpenCoordinator> coordinator) {
    std::optional<std::int64_t> size;
    try {
      size = co_await coordinator->readingCacheSize();
    } catch (...) {
      // The label keeps "Calculating…" or the last size.
    }
    if (SettingsView* view = reference.view(); view != nullptr && size) view->showCacheSize(*size);
  }

  static async::Task<void> confirmAndClear(Reference reference,
                                           std::shared_ptr<DocumentOpenCoordinator> coordinator) {
    const std::size_t choice = co_await runMessageDialog(
        reference.window(),
        AlertContent{AlertStyle::warning,
                     "Clear Reading Cache?",
                     "This frees storage used by extracted book files. Your reading progress, "
                     "bookmarks, highlights, notes, and original EPUB files will be preserved.",
                     {"Cancel", "Clear Cache"},
                     AlertAction::destructive});
    SettingsView* view = reference.view();
    if (choice != 1 || view == nullptr) co_return;
    view->isClearingCache_ = true;
    view->updateClearButton();
    std::exception_ptr failure;
    try {
      co_await coordinator->clearReadingCache();
    } catch (...) {
      failure = std::current_exception();
    }
    view = reference.view();
    if (view == nullptr) co_return;
    if (!failure) {
      view->measure();
      view->isClearingCache_ = false;
      view->updateClearButton();
      co_return;
    }
    view->isClearingCache_ = false;
    view->updateClearButton();
    std::string message = localizedDescription(failure);
    if (message.empty()) message = "Try again.";
    co_await runMessageDialog(
        reference.window(),
        AlertContent{AlertStyle::warning, "Couldn\u2019t Clear Reading Cache", message, {"OK"}});
  }

  static void handleClearClicked(GtkButton*, gpointer data) {
    auto* self = static_cast<SettingsView*>(data);
    async::spawn(confirmAndClear(self->reference(), self->coordinator_));
  }

  static void handleDestroy(GtkWidget*, gpointer data) {
    auto* self = static_cast<SettingsView*>(data);
    self->windowCountConnection_.disconnect();
    *self->alive_ = false;
  }

  std::shared_ptr<DocumentOpenCoordinator> coordinator_;
  GtkWidget* window_ = nullptr;
  GtkWidget* cacheSizeLabel_ = nullptr;
  GtkWidget* clearButton_ = nullptr;
  GtkWidget* openBooksNotice_ = nullptr;
  bool isClearingCache_ = false;
  sigc::connection windowCountConnection_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace

GtkWindow* findSettingsWindow(GtkApplication* application) {
  for (GList* window = gtk_application_get_windows(application); window != nullptr;
       window = window->next) {
    if (g_object_get_data(G_OBJECT(window->data), kViewKey) != nullptr) {
      return GTK_WINDOW(window->data);
    }
  }
  return nullptr;
}

void presentSettingsWindow(GtkApplication* application,
                           std::shared_ptr<DocumentOpenCoordinator> coordinator) {
  // Over the window the person was using: the application lists its windows most recently
  // focused first, and the settings window is not one to be over.
  GtkWindow* parent = nullptr;
  for (GList* window = gtk_application_get_windows(application); window != nullptr;
       window = window->next) {
    if (GTK_IS_APPLICATION_WINDOW(window->data)) {
      parent = GTK_WINDOW(window->data);
      break;
    }
  }
  SettingsView* view = nullptr;
  if (GtkWindow* existing = findSettingsWindow(application)) {
    view = static_cast<SettingsView*>(g_object_get_data(G_OBJECT(existing), kViewKey));
  } else {
    // Owned by its window from here on.
    view = new SettingsView(application, std::move(coordinator));
  }
  view->present(parent);
}

}  // namespace tomekeeper
