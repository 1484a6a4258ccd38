#include "session/ExternalURLOpening.h"

#include <gio/gio.h>

#include "platform/GLibError.h"

namespace tomekeeper {

bool SystemExternalURLOpener::open(const std::string& url) {
  GLibError error;
  const gboolean opened = g_app_info_launch_default_for_uri(url.c_str(), nullptr, error.out());
  if (error) g_warning("Could not open an external link: %s", error.message());
  return opened == TRUE;
}

}  // namespace tomekeeper
