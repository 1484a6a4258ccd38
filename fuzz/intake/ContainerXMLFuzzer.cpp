// META-INF/container.xml handling on arbitrary bytes: the rootfile choice and
// its path validation either give a path that is safe to join to the root or
// refuse with a container failure.

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
    if (path.empty() || path.front() == '/' || path.find("..") == 0 ||
        path.find("/../") != std::string::npos || path.find('\\') != std::string::npos) {
      std::abort();
    }
  } catch (const tomekeeper::EPUBContainerValidationFailureError&) {
  }
  return 0;
}
