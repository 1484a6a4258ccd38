#pragma once

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <filesystem>
#include <string>

#include "platform/GObjectHandle.h"

namespace tomekeeper::testing {

// The bytes of a `width` by `height` image in gdk-pixbuf's `format` ("png", "jpeg"), one colour.
inline std::string encodedImage(int width, int height, const char* format) {
  GObjectHandle<GdkPixbuf> pixbuf =
      GObjectHandle<GdkPixbuf>::adopt(gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, width, height));
  gdk_pixbuf_fill(pixbuf.get(), 0x3366ccff);
  gchar* buffer = nullptr;
  gsize size = 0;
  gdk_pixbuf_save_to_buffer(pixbuf.get(), &buffer, &size, format, nullptr, nullptr);
  std::string bytes(buffer, size);
  g_free(buffer);
  return bytes;
}

// The width and height of the image in `file`; zeros when it is not one.
inline std::pair<int, int> imageSize(const std::filesystem::path& file) {
  int width = 0;
  int height = 0;
  gdk_pixbuf_get_file_info(file.c_str(), &width, &height);
  return {width, height};
}

inline std::string fingerprintOf(char digit) {
  return std::string(64, digit);
}

}  // namespace tomekeeper::testing
