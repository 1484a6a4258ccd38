#include <glib.h>

#include "app/TomekeeperApplication.h"

int main(int argc, char** argv) {
  g_set_application_name("Tomekeeper");
  tomekeeper::TomekeeperApplication application;
  return application.run(argc, argv);
}
