#pragma once

#include <filesystem>

namespace tomekeeper {

// Whether a GPU driver may serve OpenGL on this machine.
enum class GraphicsAcceleration {
  // A GPU device is there; whether its driver works is only known once a context is made.
  possible,
  // No GPU device: OpenGL, if any, is Mesa's rasterizer on the processor.
  softwareOnly,
};

// Looks for the devices through which a GPU driver is reached under `deviceDirectory` (/dev): a
// DRM render node (dri/renderD*), which every Mesa hardware driver opens, or the control device
// of NVIDIA's own driver (nvidiactl). A display node (dri/card*) alone does not count: a
// display controller without a GPU has one. A directory that cannot be read counts as holding
// neither. Never throws; reads only directory entries, so it is cheap enough to ask at start.
GraphicsAcceleration graphicsAcceleration(
    const std::filesystem::path& deviceDirectory = "/dev") noexcept;

}  // namespace tomekeeper
