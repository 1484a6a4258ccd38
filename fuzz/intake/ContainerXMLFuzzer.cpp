// META-INF/container.xml handling on arbitrary bytes: the rootfile choice and
// its path validation either give a path that is safe to join to the root or
// refuse with a container failure.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "intake/EPUBContainerValidator.h"
#include "intake/IntakeFailures.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view document(reinterpret_cast<const char*>(data), size);
  try {
    const std::string path = tomekeeper::EPUBContainerValidator::chooseRootfilePath(document);
    if (path.empty() || path.front() == '/' || path.find('\\') != std::string::npos) std::abort();
    // A component of exactly ".." climbs out of the root; "..name" is a name.
    for (std::size_t start = 0; start <= path.size();) {
      const std::size_t end = std::min(path.find('/', start), path.size());
      if (path.compare(start, end - start, "..") == 0) std::abort();
      start = end + 1;
    }
  } catch (const tomekeeper::EPUBContainerValidationFailureError&) {
  }
  return 0;
}
