#pragma once

#include <adwaita.h>

#include <filesystem>
#include <optional>
#include <string>

namespace tomekeeper {

// What the About window says of the application, read from its AppStream metainfo: the name,
// the version of the newest release, the developer, the project licence (an SPDX expression)
// and the home page.
struct ApplicationDescription {
  std::string name;
  std::string version;
  std::string developerName;
  std::string projectLicense;
  std::string website;
  bool operator==(const ApplicationDescription&) const = default;
};

// Reads `metainfo`; absent, with a warning in the log that says why, when the file cannot be
// read, is not well-formed XML or has no name.
std::optional<ApplicationDescription> readApplicationDescription(
    const std::filesystem::path& metainfo);

// The GTK licence of an SPDX expression, or GTK_LICENSE_CUSTOM for one GTK does not know.
GtkLicense licenseTypeOf(const std::string& spdx);

// The metainfo beside the application's resources: share/metainfo of the prefix or of the
// build tree.
std::optional<std::filesystem::path> applicationMetainfoFile();

// A new About window (AdwAboutWindow) for `description`, transient for `parent` (may be null),
// not yet shown; it destroys itself when closed.
GtkWidget* makeAboutWindow(const ApplicationDescription& description, GtkWindow* parent);

// app.about: the About window over the active window, from the installed metainfo (name and
// version alone when it cannot be read). Main thread only.
void presentAboutWindow(GtkApplication* application);

}  // namespace tomekeeper
