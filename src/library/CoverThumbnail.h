#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace tomekeeper {

// The longest side of a cover thumbnail, in pixels.
inline constexpr int kCoverThumbnailLongSide = 512;

// The image cannot serve as a cover: its type is not one of the raster types the library
// decodes, it does not decode, or it is too large to decode safely.
class CoverThumbnailError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The raster media types a cover may have: JPEG, PNG, GIF and WebP. Anything else (SVG
// among them, which could reach for other files) is never handed to a decoder.
bool isDecodableCoverMediaType(const std::string& mediaType);

// The PNG bytes of the image in `imageFile`, decoded by gdk-pixbuf and, when its long side is
// longer than kCoverThumbnailLongSide, scaled down to that with its aspect kept; a smaller image
// keeps its size. `mediaType` is the type the package declares. Throws CoverThumbnailError.
// Blocking; any thread.
std::string makeCoverThumbnail(const std::filesystem::path& imageFile,
                               const std::string& mediaType);

}  // namespace tomekeeper
