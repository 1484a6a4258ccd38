#include "app/EPUBOpenControls.h"

#include <utility>
#include <vector>

#include "app/GtkShellPlatform.h"
#include "async/Spawn.h"
#include "platform/EPUBFileName.h"
#include "platform/GLibString.h"
#include "platform/GObjectHandle.h"

namespace tomekeeper {

namespace {

async::Task<void> chooseAndOpen(GObjectHandle<GtkWindow> parent,
                                std::weak_ptr<EPUBOpenControls::OpenFunction> weakOpen) {
  const std::vector<std::filesystem::path> chosen =
      co_await runEPUBOpenPanel(parent.get(), FileSelection::multiple);
  const auto open = weakOpen.lock();
  if (!open) co_return;
  for (const auto& file : chosen) (*open)(file);
}

}  // namespace

EPUBOpenControls::EPUBOpenControls(GtkWindow* window, std::stop_token lifetime, OpenFunction open)
    : window_(window),
      lifetime_(std::move(lifetime)),
      open_(std::make_shared<OpenFunction>(std::move(open))) {}

EPUBOpenControls::~EPUBOpenControls() {
  if (openButton_ != nullptr) g_signal_handlers_disconnect_by_data(openButton_, this);
  if (dropTarget_ != nullptr) g_signal_handlers_disconnect_by_data(dropTarget_, this);
}

void EPUBOpenControls::attachOpenButton(GtkWidget* button) {
  openButton_ = button;
  g_signal_connect(button, "clicked", G_CALLBACK(handleOpenClicked), this);
}

void EPUBOpenControls::attachDropTarget(GtkWidget* area) {
  dropArea_ = area;
  dropTarget_ = gtk_drop_target_new(GDK_TYPE_FILE_LIST, GDK_ACTION_COPY);
  g_signal_connect(dropTarget_, "enter", G_CALLBACK(handleDropEnter), this);
  g_signal_connect(dropTarget_, "leave", G_CALLBACK(handleDropLeave), this);
  g_signal_connect(dropTarget_, "drop", G_CALLBACK(handleDrop), this);
  gtk_widget_add_controller(area, GTK_EVENT_CONTROLLER(dropTarget_));
}

void EPUBOpenControls::openLater(std::filesystem::path file) const {
  using Call = std::pair<std::weak_ptr<OpenFunction>, std::filesystem::path>;
  g_idle_add_full(
      G_PRIORITY_DEFAULT,
      [](gpointer pending) -> gboolean {
        auto* call = static_cast<Call*>(pending);
        if (const auto function = call->first.lock()) (*function)(call->second);
        return G_SOURCE_REMOVE;
      },
      new Call(open_, std::move(file)), [](gpointer pending) { delete static_cast<Call*>(pending); });
}

void EPUBOpenControls::handleOpenClicked(GtkButton*, gpointer data) {
  auto* self = static_cast<EPUBOpenControls*>(data);
  async::spawn(chooseAndOpen(GObjectHandle<GtkWindow>::retain(self->window_), self->open_),
               self->lifetime_);
}

GdkDragAction EPUBOpenControls::handleDropEnter(GtkDropTarget*, double, double, gpointer data) {
  gtk_widget_add_css_class(static_cast<EPUBOpenControls*>(data)->dropArea_, "accent");
  return GDK_ACTION_COPY;
}

void EPUBOpenControls::handleDropLeave(GtkDropTarget*, gpointer data) {
  gtk_widget_remove_css_class(static_cast<EPUBOpenControls*>(data)->dropArea_, "accent");
}

// Only the first file counts, and only an EPUB.
gboolean EPUBOpenControls::handleDrop(GtkDropTarget*, const GValue* value, double, double,
                                      gpointer data) {
  auto* self = static_cast<EPUBOpenControls*>(data);
  gtk_widget_remove_css_class(self->dropArea_, "accent");
  if (!G_VALUE_HOLDS(value, GDK_TYPE_FILE_LIST)) return FALSE;
  // The list is the value's; only its links are ours.
  const std::unique_ptr<GSList, decltype(&g_slist_free)> files(
      gdk_file_list_get_files(static_cast<GdkFileList*>(g_value_get_boxed(value))), g_slist_free);
  GFile* first = files ? static_cast<GFile*>(files->data) : nullptr;
  const GLibString path(first != nullptr ? g_file_get_path(first) : nullptr);
  if (!path || !hasEPUBExtension(path.get())) return FALSE;
  self->openLater(std::filesystem::path(path.get()));
  return TRUE;
}

}  // namespace tomekeeper
