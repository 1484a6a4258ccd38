#include "platform/GraphicsAcceleration.h"

#include <string>
#include <system_error>

namespace tomekeeper {

GraphicsAcceleration graphicsAcceleration(const std::filesystem::path& deviceDirectory) noexcept {
  std::error_code error;
  if (std::filesystem::exists(deviceDirectory / "nvidiactl", error)) {
    return GraphicsAcceleration::possible;
  }
  // Stepped with an error code: a range-for would throw where the listing fails half way.
  std::filesystem::directory_iterator entry(deviceDirectory / "dri", error);
  for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    if (entry->path().filename().string().starts_with("renderD")) {
      return GraphicsAcceleration::possible;
    }
  }
  return GraphicsAcceleration::softwareOnly;
}

}  // namespace tomekeeper
