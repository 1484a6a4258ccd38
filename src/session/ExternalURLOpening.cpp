#include "session/ExternalURLOpening.h"

#include <gio/gio.h>

namespace tomekeeper {

bool SystemExternalURLOpener::open(const std::string& url) {
  GError* error = nullptr;
  const gboolean opened = g_app_info_launch_default_for_uri(url.c_str(), nullptr, &error);
  if (error != nullptr) g_error_free(error);
  return opened == TRUE;
}

}  // namespace tomekeeper
