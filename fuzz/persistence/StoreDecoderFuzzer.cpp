// The decoders of every store file on arbitrary bytes. The first byte picks
// the store, the rest is the file's text. A decoder either refuses with its
// store's failure or gives a store that encodes and decodes back to itself:
// a file that loads is a file that a later save can write again unchanged.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "async/Failure.h"
#include "persistence/JSONAnnotationRepository.h"
#include "persistence/JSONBookmarkRepository.h"
#include "persistence/JSONPreferenceValueRepository.h"
#include "persistence/JSONReadingPositionRepository.h"
#include "persistence/JSONTypographyPreferencesRepository.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

template <typename Repository>
void checkRoundTrip(std::string_view contents) {
  typename Repository::Store store;
  try {
    store = Repository::decodeStore(contents);
  } catch (const tomekeeper::Failure&) {
    return;
  }
  if (!(Repository::decodeStore(Repository::encodeStore(store)) == store)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view contents(reinterpret_cast<const char*>(data) + 1, size - 1);
  switch (data[0] % 8) {
    case 0:
      checkRoundTrip<tomekeeper::JSONReadingPositionRepository>(contents);
      break;
    case 1:
      checkRoundTrip<tomekeeper::JSONBookmarkRepository>(contents);
      break;
    case 2:
      checkRoundTrip<tomekeeper::JSONAnnotationRepository>(contents);
      break;
    case 3:
      checkRoundTrip<tomekeeper::JSONTypographyPreferencesRepository>(contents);
      break;
    case 4:
      checkRoundTrip<tomekeeper::JSONReadingThemeRepository>(contents);
      break;
    case 5:
      checkRoundTrip<tomekeeper::JSONReadingModeRepository>(contents);
      break;
    case 6:
      checkRoundTrip<tomekeeper::JSONPageLayoutRepository>(contents);
      break;
    default:
      checkRoundTrip<tomekeeper::JSONScrolledContentWidthRepository>(contents);
      break;
  }
  return 0;
}
