#include <glib.h>

#include "app/TomekeeperApplication.h"
#include "platform/GraphicsAcceleration.h"

int main(int argc, char** argv) {
  // Without a GPU, GTK's GL renderer runs on Mesa's software rasterizer: it compiles its shaders
  // into about 100 MB of this process and still draws every frame on the processor, and the web
  // view's frames come over in shared memory, which cairo paints as they are. So the windows are
  // drawn with cairo there. Set before GTK starts, which reads it once; a renderer the user
  // chose in GSK_RENDERER stays (an empty one chooses none, as GTK reads it).
  const char* chosenRenderer = g_getenv("GSK_RENDERER");
  if ((chosenRenderer == nullptr || *chosenRenderer == '\0') &&
      tomekeeper::graphicsAcceleration() == tomekeeper::GraphicsAcceleration::softwareOnly) {
    g_setenv("GSK_RENDERER", "cairo", TRUE);
  }
  g_set_application_name("Tomekeeper");
  tomekeeper::TomekeeperApplication application;
  return application.run(argc, argv);
}
