#include "persistence/JSONStoreFile.h"

#include <cmath>
#include <stdexcept>
#include <vector>

#include "platform/AtomicFileWriter.h"

namespace tomekeeper::detail {

std::filesystem::path standardisedFileURL(const std::filesystem::path& file) {
  return std::filesystem::absolute(file).lexically_normal();
}

nlohmann::json parseStoreDocument(std::string_view contents) {
  const nlohmann::json::parser_callback_t limitDepth = [](int depth, nlohmann::json::parse_event_t,
                                                          nlohmann::json&) {
    if (depth > kMaximumStoreDepth) {
      throw JSONDecodingError("The document is nested too deeply.");
    }
    return true;
  };
  try {
    return nlohmann::json::parse(contents, limitDepth);
  } catch (const nlohmann::json::exception& error) {
    throw JSONDecodingError(error.what());
  }
}

namespace {

// JSON has no spelling for infinities and NaN, and nlohmann-json would write null in their place:
// a progression computed as NaN would come back as a null that no longer decodes, and the store
// would be broken by its own write. Such a store is not written.
void requireFiniteNumbers(const nlohmann::json& store) {
  std::vector<const nlohmann::json*> pending{&store};
  while (!pending.empty()) {
    const nlohmann::json& value = *pending.back();
    pending.pop_back();
    if (value.is_number_float() && !std::isfinite(value.get<double>())) {
      throw std::invalid_argument("A store cannot hold a number that is not finite.");
    }
    if (value.is_structured()) {
      for (const nlohmann::json& element : value) pending.push_back(&element);
    }
  }
}

}  // namespace

std::string encodeStoreDocument(const nlohmann::json& store) {
  requireFiniteNumbers(store);
  return store.dump();
}

void writeStoreFileOrThrow(const std::filesystem::path& file, const nlohmann::json& store) {
  std::filesystem::create_directories(file.parent_path());
  writeFileAtomically(file, encodeStoreDocument(store));
}

}  // namespace tomekeeper::detail
