#include "intake/NewUUID.h"

#include <glib.h>

#include <algorithm>
#include <cctype>

namespace tomekeeper {

std::string newUpperCaseUUIDString() {
  gchar* random = g_uuid_string_random();
  std::string text(random);
  g_free(random);
  std::ranges::transform(text, text.begin(),
                         [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

}  // namespace tomekeeper
