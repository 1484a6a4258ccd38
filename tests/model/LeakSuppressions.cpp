// fontconfig keeps its configuration and caches for the life of the process, and LeakSanitizer
// reports them at exit. This is the fontconfig line of tests/lsan.supp, compiled into the test
// program so that it applies however the program is started.
extern "C" const char* __lsan_default_suppressions();

extern "C" const char* __lsan_default_suppressions() {
  return "leak:libfontconfig\n";
}
