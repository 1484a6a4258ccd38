// META-INF/encryption.xml handling on arbitrary bytes: it either says that
// fonts are obfuscated or refuses with a container failure.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "intake/EPUBContainerValidator.h"
#include "intake/IntakeFailures.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view document(reinterpret_cast<const char*>(data), size);
  try {
    if (!tomekeeper::EPUBContainerValidator::checkEncryption(document)) std::abort();
  } catch (const tomekeeper::EPUBContainerValidationFailureError&) {
  }
  return 0;
}
