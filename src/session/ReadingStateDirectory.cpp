#include "session/ReadingStateDirectory.h"

#include <glib.h>

#include <string>

namespace tomekeeper {

std::filesystem::path readingStateDirectory(std::string_view setting,
                                            const std::filesystem::path& defaultDirectory) {
  std::filesystem::path chosen;
  if (setting == "~" || setting.starts_with("~/")) {
    chosen = std::filesystem::path(g_get_home_dir()) /
             std::string(setting.substr(std::min<std::size_t>(2, setting.size())));
  } else {
    chosen = std::string(setting);
  }
  if (setting.empty() || !chosen.is_absolute()) return defaultDirectory.lexically_normal();
  return chosen.lexically_normal();
}

}  // namespace tomekeeper
