// Compiled into every display test program: GTK and the web views draw without GL.
//
// The tests draw with cairo already, but GDK still opens a GL context when it starts, which
// loads the GL driver into the test process. A driver update can bring allocations that it
// never frees (Mesa's software driver did, after a Debian point release), and LeakSanitizer
// then fails every display test at exit over code that is not ours. With GL disabled the
// driver is never loaded, and the leak check stays on for everything else in the process.
// Set before main, so it holds however the program is started.

#include <glib.h>

#include <string>

namespace {

[[gnu::constructor]] void drawWithoutGL() {
  std::string debug = "gl-disable";
  if (const char* existing = g_getenv("GDK_DEBUG"); existing != nullptr && *existing != '\0') {
    debug = std::string(existing) + "," + debug;
  }
  g_setenv("GDK_DEBUG", debug.c_str(), TRUE);
  g_setenv("GSK_RENDERER", "cairo", TRUE);
}

}  // namespace
