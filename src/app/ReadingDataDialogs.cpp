#include "app/ReadingDataDialogs.h"

#include <memory>

#include "app/GtkShellPlatform.h"
#include "async/Completion.h"
#include "async/OperationCancelled.h"
#include "platform/GLibString.h"

namespace tomekeeper {

namespace {

struct SavePanelResponse {
  std::shared_ptr<async::Completion<std::optional<std::filesystem::path>>> completion;
  GtkFileFilter* jsonFilter;
};

void handleSavePanelResponse(GtkNativeDialog* dialog, int response, gpointer data) {
  auto* panel = static_cast<SavePanelResponse*>(data);
  std::optional<std::filesystem::path> chosen;
  if (response == GTK_RESPONSE_ACCEPT) {
    const auto file =
        GObjectHandle<GFile>::adopt(gtk_file_chooser_get_file(GTK_FILE_CHOOSER(dialog)));
    if (file) {
      if (const GLibString path(g_file_get_path(file.get())); path) {
        chosen = std::filesystem::path(path.get());
      }
    }
    // A name without an extension takes the one of the chosen filter.
    if (chosen && !ReadingDataMaintenance::formatForFileName(*chosen)) {
      *chosen += gtk_file_chooser_get_filter(GTK_FILE_CHOOSER(dialog)) == panel->jsonFilter
                     ? ".json"
                     : ".md";
    }
  }
  panel->completion->resolve(std::move(chosen));
}

std::string savedAtText(Date date) {
  const auto seconds = std::chrono::system_clock::to_time_t(date.systemClockTime());
  const std::unique_ptr<GDateTime, decltype(&g_date_time_unref)> local(
      g_date_time_new_from_unix_local(static_cast<gint64>(seconds)), g_date_time_unref);
  if (!local) return "an unknown date";
  GLibString text(g_date_time_format(local.get(), "%e %B %Y, %H:%M"));
  return text ? g_strstrip(text.data()) : "an unknown date";
}

std::string counted(std::size_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

// "a", "a and b", "a, b and c".
std::string listed(const std::vector<std::string>& items) {
  std::string text;
  for (std::size_t index = 0; index < items.size(); ++index) {
    if (index > 0) text += index + 1 == items.size() ? " and " : ", ";
    text += items[index];
  }
  return text;
}

// What restoring `offer` does, store by store: a store that has no backup in the offer is left
// as it is, which a count of zero would wrongly say it empties.
std::string restoreQuestionText(const ReadingDataBackupOffer& offer) {
  const bool highlights = offer.find(PublicationStore::annotations) != nullptr;
  const bool bookmarks = offer.find(PublicationStore::bookmarks) != nullptr;
  std::vector<std::string> held;
  if (highlights) held.push_back(counted(offer.annotationCount(), "highlight", "highlights"));
  if (bookmarks) held.push_back(counted(offer.bookmarkCount(), "bookmark", "bookmarks"));
  if (offer.hasReadingPosition()) held.push_back("a reading position");
  std::string text =
      "The backup from " + savedAtText(*offer.savedAt()) + " holds " + listed(held) + ".";
  if (!highlights && !bookmarks) {
    text += " Highlights and bookmarks have no backup and stay as they are.";
  } else if (!highlights) {
    text += " Highlights have no backup and stay as they are.";
  } else if (!bookmarks) {
    text += " Bookmarks have no backup and stay as they are.";
  }
  return text + " What it replaces is kept as a backup.";
}

// The cause of `failure`, for the log.
std::string causeOf(const std::exception_ptr& failure) {
  try {
    std::rethrow_exception(failure);
  } catch (const std::exception& error) {
    return error.what();
  } catch (...) {
    return "unknown error";
  }
}

}  // namespace

async::Task<void> runHighlightExport(GtkWindow* parent,
                                     std::shared_ptr<const ReadingDataMaintenance> maintenance,
                                     std::string suggestedName) {
  const auto panel = GObjectHandle<GtkFileChooserNative>::adopt(gtk_file_chooser_native_new(
      "Export Highlights", parent, GTK_FILE_CHOOSER_ACTION_SAVE, "_Export", "_Cancel"));
  GtkFileChooser* chooser = GTK_FILE_CHOOSER(panel.get());
  const auto markdown = GObjectHandle<GtkFileFilter>::adopt(gtk_file_filter_new());
  gtk_file_filter_set_name(markdown.get(), "Markdown");
  gtk_file_filter_add_suffix(markdown.get(), "md");
  gtk_file_filter_add_suffix(markdown.get(), "markdown");
  const auto json = GObjectHandle<GtkFileFilter>::adopt(gtk_file_filter_new());
  gtk_file_filter_set_name(json.get(), "JSON");
  gtk_file_filter_add_suffix(json.get(), "json");
  gtk_file_chooser_add_filter(chooser, markdown.get());
  gtk_file_chooser_add_filter(chooser, json.get());
  gtk_file_chooser_set_current_name(chooser, (suggestedName + ".md").c_str());
  gtk_native_dialog_set_modal(GTK_NATIVE_DIALOG(panel.get()), parent != nullptr);
  auto completion = std::make_shared<async::Completion<std::optional<std::filesystem::path>>>();
  // The panel, held by this task, lives until it has answered.
  g_signal_connect_data(
      panel.get(), "response", G_CALLBACK(handleSavePanelResponse),
      new SavePanelResponse{completion, json.get()},
      [](gpointer data, GClosure*) { delete static_cast<SavePanelResponse*>(data); },
      GConnectFlags{});
  gtk_native_dialog_show(GTK_NATIVE_DIALOG(panel.get()));
  const std::optional<std::filesystem::path> chosen = co_await *completion;
  if (!chosen) co_return;
  std::exception_ptr failure;
  try {
    co_await maintenance->exportHighlights(
        *chosen, ReadingDataMaintenance::formatForFileName(*chosen).value_or(
                     HighlightExportFormat::markdown));
  } catch (const async::OperationCancelled&) {
    throw;
  } catch (...) {
    failure = std::current_exception();
  }
  co_await async::checkCancellation();
  if (!failure) co_return;
  // The cause is for the log; the reader learns that the file was not written, and the book
  // stays open: an export touches neither the book nor its stores.
  g_warning("Highlights not exported to %s: %s", chosen->c_str(), causeOf(failure).c_str());
  const GLibString fileName(g_filename_display_basename(chosen->c_str()));
  co_await runMessageDialog(
      parent, AlertContent{AlertStyle::warning,
                           "Highlights Not Exported",
                           "The highlights could not be written to \u201c" + fileName.string() +
                               "\u201d. Nothing was changed.",
                           {"OK"}});
}

async::Task<void> runReadingDataRestore(GtkWindow* parent,
                                        std::shared_ptr<const ReadingDataMaintenance> maintenance) {
  const ReadingDataBackupOffer offer = co_await maintenance->findBackups();
  if (offer.stores.empty()) {
    co_await runMessageDialog(
        parent, AlertContent{AlertStyle::informational,
                             "No Backup to Restore",
                             "Tomekeeper keeps the last three versions of this book\u2019s "
                             "bookmarks and highlights, and none of them can be read.",
                             {"OK"}});
    co_return;
  }
  const std::size_t answer =
      co_await runMessageDialog(parent, AlertContent{AlertStyle::warning,
                                                     "Restore Reading Data?",
                                                     restoreQuestionText(offer),
                                                     {"Cancel", "Restore"}});
  if (answer != 1) co_return;
  std::exception_ptr failure;
  try {
    co_await maintenance->restore(offer);
  } catch (const async::OperationCancelled&) {
    throw;
  } catch (...) {
    failure = std::current_exception();
  }
  co_await async::checkCancellation();
  if (!failure) co_return;
  // Stores are restored one after another: those before the failure are restored (the watch on
  // the book's store folder has the page show them), the others are as they were.
  g_warning("Reading data not restored: %s", causeOf(failure).c_str());
  co_await runMessageDialog(
      parent, AlertContent{AlertStyle::warning,
                           "Reading Data Not Restored",
                           "The backup could no longer be read, or could not be saved in place "
                           "of this book\u2019s reading data. What was not restored is as it was.",
                           {"OK"}});
}

async::Task<void> runHighlightCarryOverOffer(
    GtkWindow* parent, std::shared_ptr<const ReadingDataMaintenance> maintenance,
    HighlightCarryOverPresentation presentation) {
  std::optional<std::string> earlier;
  try {
    earlier = co_await maintenance->recordAndFindEarlierEdition();
  } catch (const async::OperationCancelled&) {
    throw;
  } catch (const std::exception& error) {
    // A book whose package cannot be read again is neither offered to a later edition nor
    // offered one.
    g_warning("No earlier edition looked for: %s", error.what());
  }
  co_await async::checkCancellation();
  if (!earlier) co_return;
  const std::size_t answer = co_await runMessageDialog(
      parent, AlertContent{AlertStyle::informational,
                           "Carry Over Your Highlights?",
                           "The highlights of an earlier edition of this book can be placed in "
                           "this one by their text.",
                           {"Not Now", "Carry Over"}});
  co_await async::checkCancellation();
  if (answer != 1) co_return;
  CarryOverResult result;
  std::optional<std::string> failure;
  try {
    result = co_await maintenance->carryOver(*earlier);
  } catch (const async::OperationCancelled&) {
    throw;
  } catch (const std::exception& error) {
    failure = error.what();
  } catch (...) {
    failure = "unknown error";
  }
  co_await async::checkCancellation();
  if (failure) {
    // The cause is for the log; the reader learns what happened and that nothing is lost.
    g_warning("Highlights not carried over: %s", failure->c_str());
    co_await runMessageDialog(
        parent, AlertContent{AlertStyle::warning,
                             "Highlights Not Carried Over",
                             "The highlights of the earlier edition could not be read, or could "
                             "not be saved in this one. The earlier edition still holds all of "
                             "them.",
                             {"OK"}});
    co_return;
  }
  std::string summary =
      counted(result.carried.size(), "highlight", "highlights") + " carried over";
  if (!result.notFound.empty()) {
    summary += ", " + std::to_string(result.notFound.size()) + " not found in this edition";
  }
  if (presentation.showHighlightsNotFound) {
    presentation.showHighlightsNotFound(std::move(result.notFound));
  }
  if (presentation.showToast) presentation.showToast(summary);
}

}  // namespace tomekeeper
