// Sanitizer settings compiled into every test program, so that they hold
// however the program is started (CTest, by hand, under Xvfb).

extern "C" {
const char* __asan_default_options();
const char* __ubsan_default_options();
const char* __lsan_default_suppressions();

const char* __asan_default_options() { return "detect_leaks=1:strict_string_checks=1"; }

const char* __ubsan_default_options() { return "print_stacktrace=1:halt_on_error=1"; }

// Process-lifetime allocations of the desktop libraries, reported at exit.
// Our own code is never suppressed.
const char* __lsan_default_suppressions() {
  return "leak:libfontconfig\n"
         "leak:libgtk-4\n"
         "leak:libadwaita\n"
         "leak:libwebkitgtk\n"
         "leak:libjavascriptcoregtk\n";
}
}
