#include "session/LocationDiagnostics.h"

#include <glib.h>

#include <charconv>
#include <cmath>

#include "model/StringEnumeration.h"
#include "platform/EventLog.h"

namespace tomekeeper {

bool GSettingsLocationDiagnosticsSetting::isEnabled() {
  if (!settings_) {
    // g_settings_new aborts on a schema that is not installed, so look it up first; the
    // schema may appear later (a run from the build tree), hence no negative caching.
    GSettingsSchemaSource* source = g_settings_schema_source_get_default();
    if (source == nullptr) return false;
    GSettingsSchema* schema =
        g_settings_schema_source_lookup(source, std::string(kSchemaID).c_str(), TRUE);
    if (schema == nullptr) return false;
    const bool hasKey = g_settings_schema_has_key(schema, std::string(kKey).c_str()) == TRUE;
    if (hasKey) {
      settings_ = GObjectHandle<GSettings>::adopt(g_settings_new_full(schema, nullptr, nullptr));
    }
    g_settings_schema_unref(schema);
    if (!settings_) return false;
  }
  return g_settings_get_boolean(settings_.get(), std::string(kKey).c_str()) == TRUE;
}

void GLibLocationLog::write(const std::string& line) {
  logEvent(EventLogLevel::notice, kCategory, line);
}

std::string cleanedCFIForLog(const std::optional<std::string>& cfi) {
  if (!cfi) return "nil";
  std::string text = *cfi;
  std::size_t from = 0;
  while (true) {
    const std::size_t open = text.find('[', from);
    if (open == std::string::npos) break;
    const std::size_t close = text.find(']', open + 1);
    if (close == std::string::npos) break;
    text.replace(open, close - open + 1, "[]");
    from = open + 2;
  }
  return text;
}

std::string formatLogNumber(double value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
  char buffer[64];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  std::string text(buffer, result.ptr);
  if (text.find_first_of(".e") == std::string::npos) text += ".0";
  return text;
}

std::string locationLogLine(const LocationLogEntry& entry) {
  std::string line = "session=" + entry.sessionID;
  line += " stage=" + entry.stage;
  line += " spine=" + std::to_string(entry.locator ? entry.locator->spineIndex : -1);
  line += " cfi=" + cleanedCFIForLog(entry.locator ? entry.locator->cfi : std::nullopt);
  const std::optional<double> fraction =
      entry.locator ? entry.locator->sectionProgression : std::nullopt;
  line += " fraction=" + formatLogNumber(fraction.value_or(-1.0));
  line += " page=" + std::to_string(entry.position ? entry.position->page : -1);
  line += " pages=" + std::to_string(entry.position ? entry.position->pageCount : -1);
  line += " resolution=";
  if (entry.position && entry.position->locatorResolution) {
    line += "Optional(\"" + *entry.position->locatorResolution + "\")";
  } else {
    line += "nil";
  }
  line += " viewport=(" + formatLogNumber(entry.viewport.width) + ", " +
          formatLogNumber(entry.viewport.height) + ")";
  line += " mode=" + std::string(rawValue(entry.readingMode));
  line += " layout=" + std::string(rawValue(entry.pageLayout));
  return line;
}

}  // namespace tomekeeper
