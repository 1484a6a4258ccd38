#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <gio/gio.h>

#include "model/Locator.h"
#include "model/PageLayout.h"
#include "model/ReadingMode.h"
#include "platform/GObjectHandle.h"
#include "runtime/BridgeMessages.h"
#include "session/ReaderHosting.h"

namespace tomekeeper {

// Whether the location log is on. Read at every call, so it can be switched while a book is
// open. Main executor.
class LocationDiagnosticsSetting {
 public:
  virtual ~LocationDiagnosticsSetting() = default;
  virtual bool isEnabled() = 0;
};

// The key `reader-location-diagnostics` of the application's settings schema. A schema that
// is not installed (or lacks the key) reads as off; nothing here can fail.
class GSettingsLocationDiagnosticsSetting final : public LocationDiagnosticsSetting {
 public:
  static constexpr std::string_view kSchemaID = "org.tomekeeper.Tomekeeper";
  static constexpr std::string_view kKey = "reader-location-diagnostics";

  bool isEnabled() override;

 private:
  // Made at the first read that finds the schema installed.
  GObjectHandle<GSettings> settings_;
};

// Where the lines of the location log go. Main executor.
class LocationLog {
 public:
  virtual ~LocationLog() = default;
  virtual void write(const std::string& line) = 0;
};

// GLib structured logging: domain "Tomekeeper", field TOMEKEEPER_CATEGORY "LocationRestore",
// message level.
class GLibLocationLog final : public LocationLog {
 public:
  static constexpr std::string_view kCategory = "LocationRestore";
  void write(const std::string& line) override;
};

// `cfi` with every bracketed text assertion ("[...]") reduced to "[]", so that words of the
// book never reach a log; "nil" without a CFI.
std::string cleanedCFIForLog(const std::optional<std::string>& cfi);

// A number as the log writes it: the shortest form that reads back, with ".0" on whole values.
std::string formatLogNumber(double value);

// What one line of the location log reports.
struct LocationLogEntry {
  std::string sessionID;
  std::string stage;
  std::optional<Locator> locator;
  std::optional<ReaderPositionResult> position;
  ReaderViewportSize viewport;
  ReadingMode readingMode = ReadingMode::paginated;
  PageLayout pageLayout = PageLayout::adaptive;
};

// "session=… stage=… spine=… cfi=… fraction=… page=… pages=… resolution=… viewport=(w, h)
// mode=… layout=…".
std::string locationLogLine(const LocationLogEntry& entry);

}  // namespace tomekeeper
