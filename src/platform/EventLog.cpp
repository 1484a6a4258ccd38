#include "platform/EventLog.h"

#include <glib.h>

namespace tomekeeper {

void logEvent(EventLogLevel level, std::string_view category, const std::string& message) {
  const std::string categoryText(category);
  const char* priority = level == EventLogLevel::error    ? "3"
                         : level == EventLogLevel::notice ? "5"
                                                          : "6";
  const GLogLevelFlags glibLevel = level == EventLogLevel::error    ? G_LOG_LEVEL_WARNING
                                   : level == EventLogLevel::notice ? G_LOG_LEVEL_MESSAGE
                                                                    : G_LOG_LEVEL_INFO;
  const GLogField fields[] = {
      {"GLIB_DOMAIN", "Tomekeeper", -1},
      {"PRIORITY", priority, -1},
      {"TOMEKEEPER_CATEGORY", categoryText.c_str(), -1},
      {"MESSAGE", message.c_str(), -1},
  };
  g_log_structured_array(glibLevel, fields, G_N_ELEMENTS(fields));
}

}  // namespace tomekeeper
