#pragma once

#include <gtk/gtk.h>

#include <memory>
#include <string>

#include "async/Task.h"
#include "session/ReaderSession.h"
#include "session/ReadingDataMaintenance.h"

namespace tomekeeper {

// The book menu's "Export Highlights…": a save panel offering Markdown and JSON (the file name's
// extension decides; a name without one takes the chosen filter's), then the export. A failure
// shows in the session's error banner. Main executor; `parent` may be null.
async::Task<void> runHighlightExport(GtkWindow* parent, std::weak_ptr<ReaderSession> session,
                                     std::shared_ptr<const ReadingDataMaintenance> maintenance,
                                     std::string suggestedName);

// The book menu's "Restore Reading Data…": says what the newest backups that can be read hold
// and from when, and restores them when the reader agrees; says so when there is none.
async::Task<void> runReadingDataRestore(GtkWindow* parent, std::weak_ptr<ReaderSession> session,
                                        std::shared_ptr<const ReadingDataMaintenance> maintenance);

}  // namespace tomekeeper
