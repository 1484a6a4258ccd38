#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/GraphicsAcceleration.h"
#include "support/TemporaryDirectory.h"

namespace tomekeeper {
namespace {

TEST(GraphicsAccelerationTest, CountsOnlyRenderNodesAndTheNvidiaControlDevice) {
  struct Case {
    const char* name;
    // Files made under the device directory; a name ending in "/" is a directory.
    std::vector<std::string> devices;
    GraphicsAcceleration expected;
  };
  const std::vector<Case> cases = {
      {"no devices at all", {}, GraphicsAcceleration::softwareOnly},
      {"an empty dri directory", {"dri/"}, GraphicsAcceleration::softwareOnly},
      {"a display node without a render node",
       {"dri/card0", "dri/by-path/"},
       GraphicsAcceleration::softwareOnly},
      {"a render node", {"dri/card0", "dri/renderD128"}, GraphicsAcceleration::possible},
      {"a second GPU's render node alone",
       {"dri/card1", "dri/renderD129"},
       GraphicsAcceleration::possible},
      {"the nvidia control device without dri",
       {"nvidiactl", "nvidia0"},
       GraphicsAcceleration::possible},
      {"a render node's name elsewhere",
       {"renderD128", "dri/by-path/renderD128"},
       GraphicsAcceleration::softwareOnly},
      {"dri as a file", {"dri"}, GraphicsAcceleration::softwareOnly},
  };
  for (const Case& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    testing::TemporaryDirectory devices;
    for (const std::string& device : testCase.devices) {
      if (device.ends_with('/')) {
        std::filesystem::create_directories(devices / device);
      } else {
        testing::writeFile(devices / device, "");
      }
    }
    EXPECT_EQ(graphicsAcceleration(devices.path()), testCase.expected);
  }
}

TEST(GraphicsAccelerationTest, AMissingDeviceDirectoryMeansSoftwareOnly) {
  testing::TemporaryDirectory directory;
  EXPECT_EQ(graphicsAcceleration(directory / "absent"), GraphicsAcceleration::softwareOnly);
}

}  // namespace
}  // namespace tomekeeper
