#include "app/AboutWindow.h"

#include <fstream>
#include <sstream>
#include <vector>

#include "app/ApplicationResources.h"
#include "platform/GLibError.h"
#include "platform/GLibString.h"

namespace tomekeeper {

namespace {

constexpr const char* kApplicationID = "org.tomekeeper.Tomekeeper";

// The metainfo as GLib's markup parser walks it: the open elements, the text of the one that is
// open, and what was found so far.
struct MetainfoReading {
  std::vector<std::string> path;
  std::string text;
  bool textIsTranslated = false;
  std::optional<std::string> homepageURL;
  ApplicationDescription description;
};

bool pathIs(const std::vector<std::string>& path, std::initializer_list<const char*> expected) {
  if (path.size() != expected.size()) return false;
  std::size_t index = 0;
  for (const char* name : expected) {
    if (path[index++] != name) return false;
  }
  return true;
}

void onStartElement(GMarkupParseContext*, const char* element, const char** names,
                    const char** values, gpointer data, GError**) {
  auto* reading = static_cast<MetainfoReading*>(data);
  reading->path.emplace_back(element);
  reading->text.clear();
  reading->textIsTranslated = false;
  bool isHomepage = false;
  for (std::size_t index = 0; names[index] != nullptr; ++index) {
    const std::string name = names[index];
    if (name == "xml:lang") reading->textIsTranslated = true;
    if (name == "type" && std::string(values[index]) == "homepage") isHomepage = true;
    // The newest release comes first.
    if (name == "version" && pathIs(reading->path, {"component", "releases", "release"}) &&
        reading->description.version.empty()) {
      reading->description.version = values[index];
    }
  }
  if (pathIs(reading->path, {"component", "url"}) && isHomepage) reading->homepageURL = "";
}

void onEndElement(GMarkupParseContext*, const char*, gpointer data, GError**) {
  auto* reading = static_cast<MetainfoReading*>(data);
  std::string text = reading->text;
  // Trimmed of the white space around it; the fields read here are one line each.
  GLibString trimmed(g_strdup(text.c_str()));
  text = g_strstrip(trimmed.data());
  ApplicationDescription& description = reading->description;
  if (!reading->textIsTranslated) {
    const auto& path = reading->path;
    if (pathIs(path, {"component", "name"}) && description.name.empty()) description.name = text;
    if (pathIs(path, {"component", "developer_name"}) || pathIs(path, {"component", "developer", "name"})) {
      if (description.developerName.empty()) description.developerName = text;
    }
    if (pathIs(path, {"component", "project_license"})) description.projectLicense = text;
    if (pathIs(path, {"component", "url"}) && reading->homepageURL && reading->homepageURL->empty()) {
      reading->homepageURL = text;
    }
  }
  reading->path.pop_back();
  reading->text.clear();
}

void onText(GMarkupParseContext*, const char* text, gsize length, gpointer data, GError**) {
  static_cast<MetainfoReading*>(data)->text.append(text, length);
}

constexpr GMarkupParser kMetainfoParser = {onStartElement, onEndElement, onText, nullptr, nullptr};

struct LicenseName {
  const char* spdx;
  GtkLicense license;
};
constexpr LicenseName kLicenses[] = {
    {"GPL-2.0-only", GTK_LICENSE_GPL_2_0_ONLY},   {"GPL-2.0-or-later", GTK_LICENSE_GPL_2_0},
    {"GPL-3.0-only", GTK_LICENSE_GPL_3_0_ONLY},   {"GPL-3.0-or-later", GTK_LICENSE_GPL_3_0},
    {"LGPL-2.1-only", GTK_LICENSE_LGPL_2_1_ONLY}, {"LGPL-2.1-or-later", GTK_LICENSE_LGPL_2_1},
    {"LGPL-3.0-only", GTK_LICENSE_LGPL_3_0_ONLY}, {"LGPL-3.0-or-later", GTK_LICENSE_LGPL_3_0},
    {"AGPL-3.0-only", GTK_LICENSE_AGPL_3_0_ONLY}, {"AGPL-3.0-or-later", GTK_LICENSE_AGPL_3_0},
    {"MIT", GTK_LICENSE_MIT_X11},                 {"BSD-3-Clause", GTK_LICENSE_BSD_3},
    {"BSD-2-Clause", GTK_LICENSE_BSD},            {"Apache-2.0", GTK_LICENSE_APACHE_2_0},
    {"MPL-2.0", GTK_LICENSE_MPL_2_0},             {"Artistic-2.0", GTK_LICENSE_ARTISTIC},
};

void warn(const std::filesystem::path& metainfo, const std::string& why) {
  g_warning("The About window cannot read %s: %s", metainfo.c_str(), why.c_str());
}

}  // namespace

std::optional<ApplicationDescription> readApplicationDescription(
    const std::filesystem::path& metainfo) {
  std::ifstream input(metainfo, std::ios::binary);
  if (!input) {
    warn(metainfo, "it cannot be opened");
    return std::nullopt;
  }
  std::ostringstream contents;
  contents << input.rdbuf();
  const std::string text = contents.str();

  MetainfoReading reading;
  GMarkupParseContext* context = g_markup_parse_context_new(
      &kMetainfoParser, G_MARKUP_TREAT_CDATA_AS_TEXT, &reading, nullptr);
  GLibError error;
  const bool parsed = g_markup_parse_context_parse(context, text.data(),
                                                   static_cast<gssize>(text.size()), error.out()) &&
                      g_markup_parse_context_end_parse(context, error.out());
  g_markup_parse_context_free(context);
  if (!parsed) {
    warn(metainfo, error ? error.message() : "it is not well-formed");
    return std::nullopt;
  }
  if (reading.description.name.empty()) {
    warn(metainfo, "it names no application");
    return std::nullopt;
  }
  if (reading.homepageURL) reading.description.website = *reading.homepageURL;
  return reading.description;
}

GtkLicense licenseTypeOf(const std::string& spdx) {
  for (const LicenseName& license : kLicenses) {
    if (spdx == license.spdx) return license.license;
  }
  return GTK_LICENSE_CUSTOM;
}

std::optional<std::filesystem::path> applicationMetainfoFile() {
  const std::optional<std::filesystem::path> resources = applicationResourceDirectory();
  if (!resources) return std::nullopt;
  const std::filesystem::path file =
      (*resources / ".." / "metainfo" / (std::string(kApplicationID) + ".metainfo.xml"))
          .lexically_normal();
  std::error_code error;
  if (!std::filesystem::is_regular_file(file, error)) return std::nullopt;
  return file;
}

GtkWidget* makeAboutWindow(const ApplicationDescription& description, GtkWindow* parent) {
  GtkWidget* window = adw_about_window_new();
  AdwAboutWindow* about = ADW_ABOUT_WINDOW(window);
  if (parent != nullptr) {
    gtk_window_set_transient_for(GTK_WINDOW(window), parent);
    gtk_window_set_modal(GTK_WINDOW(window), TRUE);
  }
  adw_about_window_set_application_name(about, description.name.c_str());
  adw_about_window_set_application_icon(about, kApplicationID);
  adw_about_window_set_version(about, description.version.c_str());
  adw_about_window_set_developer_name(about, description.developerName.c_str());
  if (!description.website.empty()) adw_about_window_set_website(about, description.website.c_str());
  if (!description.projectLicense.empty()) {
    const GtkLicense license = licenseTypeOf(description.projectLicense);
    if (license == GTK_LICENSE_CUSTOM) {
      adw_about_window_set_license(about, description.projectLicense.c_str());
    } else {
      adw_about_window_set_license_type(about, license);
    }
  }
  if (!description.developerName.empty()) {
    const char* developers[] = {description.developerName.c_str(), nullptr};
    adw_about_window_set_developers(about, developers);
  }
  // The libraries that do the work the application would otherwise have to write itself.
  const char* libraries[] = {"GTK https://www.gtk.org",
                             "libadwaita https://gnome.pages.gitlab.gnome.org/libadwaita/",
                             "WebKitGTK https://webkitgtk.org",
                             "GLib https://docs.gtk.org/glib/",
                             "JSON for Modern C++ https://github.com/nlohmann/json",
                             "Expat https://libexpat.github.io",
                             "zlib https://zlib.net",
                             "OpenSSL https://www.openssl.org",
                             "ICU https://icu.unicode.org",
                             "Fontconfig https://www.freedesktop.org/wiki/Software/fontconfig/",
                             "libsigc++ https://libsigcplusplus.github.io/libsigcplusplus/",
                             nullptr};
  adw_about_window_add_acknowledgement_section(about, "Built With", libraries);
  return window;
}

void presentAboutWindow(GtkApplication* application) {
  std::optional<ApplicationDescription> description;
  if (const std::optional<std::filesystem::path> metainfo = applicationMetainfoFile()) {
    description = readApplicationDescription(*metainfo);
  }
  if (!description) {
    description = ApplicationDescription{.name = "Tomekeeper"};
  }
  GtkWidget* window = makeAboutWindow(*description, gtk_application_get_active_window(application));
  gtk_window_set_application(GTK_WINDOW(window), application);
  gtk_window_present(GTK_WINDOW(window));
}

}  // namespace tomekeeper
