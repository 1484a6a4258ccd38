#pragma once

#include <gtk/gtk.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "async/Task.h"
#include "session/ReaderSession.h"
#include "session/ReadingDataMaintenance.h"

namespace tomekeeper {

// The book menu's "Export Highlights…": a save panel offering Markdown and JSON (the file name's
// extension decides; a name without one takes the chosen filter's), then the export. A failure
// is told in an alert and its cause logged; the book stays open. Spawn it on the window's
// lifetime. Main executor; `parent` may be null.
async::Task<void> runHighlightExport(GtkWindow* parent,
                                     std::shared_ptr<const ReadingDataMaintenance> maintenance,
                                     std::string suggestedName);

// The book menu's "Restore Reading Data…": says what the newest backups that can be read hold
// and from when, store by store, and restores them when the reader agrees; says so when there
// is none. A failure is told in an alert and its cause logged; the book stays open. Spawn it on
// the window's lifetime. Main executor; `parent` may be null.
async::Task<void> runReadingDataRestore(GtkWindow* parent,
                                        std::shared_ptr<const ReadingDataMaintenance> maintenance);

// Where the window shows what a carry-over of highlights came to.
struct HighlightCarryOverPresentation {
  // The highlights of the earlier edition that this one lacks, for the sidebar.
  std::function<void(std::vector<Annotation>)> showHighlightsNotFound;
  // A short line over the page.
  std::function<void(const std::string&)> showToast;
};

// After a book has opened: records it for its later editions and, when an earlier edition has
// highlights and this book has none, asks "Carry Over Your Highlights?". On "Carry Over" carries
// them, hands those not found to the presentation and says in a toast how many were carried and
// how many not found; a failure is told in an alert, and the earlier edition keeps every
// highlight. Spawn it on the window's lifetime: the presentation is called only while the task
// has not been asked to stop. Main executor; `parent` may be null.
async::Task<void> runHighlightCarryOverOffer(
    GtkWindow* parent, std::shared_ptr<const ReadingDataMaintenance> maintenance,
    HighlightCarryOverPresentation presentation);

}  // namespace tomekeeper
