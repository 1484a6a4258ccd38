#include "library/CoverThumbnail.h"

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

#include "platform/GObjectHandle.h"

namespace tomekeeper {

namespace {

// A decoded image this large (about 160 MB of pixels) is refused before it is decoded.
constexpr std::int64_t kMaximumSourcePixels = 40'000'000;

// gdk-pixbuf's names of the loaders of those types.
constexpr std::array<std::string_view, 4> kDecodableFormats = {"jpeg", "png", "gif", "webp"};

constexpr std::array<std::string_view, 5> kDecodableTypes = {"image/jpeg", "image/png", "image/gif",
                                                             "image/webp", "image/jpg"};

std::string messageOf(GError* error, const char* fallback) {
  std::string message = error != nullptr ? error->message : fallback;
  g_clear_error(&error);
  return message;
}

}  // namespace

bool isDecodableCoverMediaType(const std::string& mediaType) {
  return std::find(kDecodableTypes.begin(), kDecodableTypes.end(), mediaType) !=
         kDecodableTypes.end();
}

std::string makeCoverThumbnail(const std::filesystem::path& imageFile,
                               const std::string& mediaType) {
  if (!isDecodableCoverMediaType(mediaType)) {
    throw CoverThumbnailError("The cover's type is not a decodable image: " + mediaType);
  }
  int width = 0;
  int height = 0;
  // gdk-pixbuf picks its loader by the file's content, whatever the package declares: the
  // content must be a raster type too.
  GdkPixbufFormat* format = gdk_pixbuf_get_file_info(imageFile.c_str(), &width, &height);
  if (format == nullptr || width <= 0 || height <= 0) {
    throw CoverThumbnailError("The cover is not an image gdk-pixbuf reads");
  }
  gchar* formatName = gdk_pixbuf_format_get_name(format);
  const std::string detected = formatName != nullptr ? formatName : "";
  g_free(formatName);
  if (std::find(kDecodableFormats.begin(), kDecodableFormats.end(), detected) ==
      kDecodableFormats.end()) {
    throw CoverThumbnailError("The cover's content is not a decodable image: " + detected);
  }
  if (static_cast<std::int64_t>(width) * height > kMaximumSourcePixels) {
    throw CoverThumbnailError("The cover is too large to decode");
  }
  GError* error = nullptr;
  GdkPixbuf* decoded =
      std::max(width, height) > kCoverThumbnailLongSide
          ? gdk_pixbuf_new_from_file_at_scale(imageFile.c_str(), kCoverThumbnailLongSide,
                                              kCoverThumbnailLongSide, TRUE, &error)
          : gdk_pixbuf_new_from_file(imageFile.c_str(), &error);
  if (decoded == nullptr) throw CoverThumbnailError(messageOf(error, "The cover does not decode"));
  const GObjectHandle<GdkPixbuf> pixbuf = GObjectHandle<GdkPixbuf>::adopt(decoded);

  gchar* buffer = nullptr;
  gsize size = 0;
  if (!gdk_pixbuf_save_to_buffer(pixbuf.get(), &buffer, &size, "png", &error, nullptr)) {
    throw CoverThumbnailError(messageOf(error, "The cover cannot be written as PNG"));
  }
  std::string bytes(buffer, size);
  g_free(buffer);
  return bytes;
}

}  // namespace tomekeeper
