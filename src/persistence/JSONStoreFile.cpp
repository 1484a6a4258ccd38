#include "persistence/JSONStoreFile.h"

#include "opening/AtomicFileWriter.h"

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

std::string encodeStoreDocument(const nlohmann::json& store) {
  return store.dump();
}

void writeStoreFileOrThrow(const std::filesystem::path& file, const nlohmann::json& store) {
  std::filesystem::create_directories(file.parent_path());
  writeFileAtomically(file, encodeStoreDocument(store));
}

}  // namespace tomekeeper::detail
