#pragma once

#include <string>
#include <string_view>

namespace tomekeeper {

// How much a line of the event log matters, as the journal ranks it.
enum class EventLogLevel {
  // Something failed (journal priority 3). Logged at GLib's warning level: its error level would
  // abort the program.
  error,
  // Worth keeping without being asked for (priority 5).
  notice,
  // Shown only with G_MESSAGES_DEBUG=Tomekeeper (priority 6).
  information,
};

// Writes one structured line in the log domain "Tomekeeper", with `category` in the field
// TOMEKEEPER_CATEGORY. The application's display tests follow what it does through these lines,
// so their wording is kept. Any thread.
void logEvent(EventLogLevel level, std::string_view category, const std::string& message);

}  // namespace tomekeeper
