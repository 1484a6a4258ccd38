#include "persistence/JSONPreferenceValueRepository.h"

#include "model/JSONCoding.h"
#include "persistence/JSONStoreFile.h"

namespace tomekeeper {

namespace {

template <typename Format>
nlohmann::json encodeStoreValue(
    const typename JSONPreferenceValueRepository<Format>::Store& store) {
  return {{"schemaVersion", store.schemaVersion}, {std::string(Format::kValueKey), store.value}};
}

}  // namespace

template <typename Format>
JSONPreferenceValueRepository<Format>::JSONPreferenceValueRepository(std::filesystem::path fileURL)
    : fileURL_(std::move(fileURL)), executor_(std::make_shared<async::SerialExecutor>()) {}

template <typename Format>
std::filesystem::path JSONPreferenceValueRepository<Format>::fileURLIn(
    const std::filesystem::path& applicationSupportDirectory) {
  return detail::standardisedFileURL(applicationSupportDirectory / "Global" / Format::kFileName);
}

template <typename Format>
auto JSONPreferenceValueRepository<Format>::decodeStore(std::string_view contents) -> Store {
  using Failure = typename Format::Failure;
  Store store;
  try {
    const nlohmann::json document = detail::parseStoreDocument(contents);
    requireJSONObject(document, "Store");
    store.schemaVersion = decodeRequiredField<std::int64_t>(document, "schemaVersion");
    store.value = decodeRequiredField<Value>(document, Format::kValueKey);
  } catch (const JSONDecodingError&) {
    throwFailure(Failure::corruptStore);
  }
  if (store.schemaVersion != 1) throwFailure(Failure::unsupportedSchema);
  return store;
}

template <typename Format>
std::string JSONPreferenceValueRepository<Format>::encodeStore(const Store& store) {
  return detail::encodeStoreDocument(encodeStoreValue<Format>(store));
}

template <typename Format>
auto JSONPreferenceValueRepository<Format>::load() -> async::Task<Value> {
  return detail::runSerially(executor_, [fileURL = fileURL_] {
    const std::optional<std::string> contents =
        detail::readStoreFile(fileURL, Format::Failure::corruptStore);
    if (!contents) return Format::kValueWithoutFile;
    return decodeStore(*contents).value;
  });
}

template <typename Format>
async::Task<void> JSONPreferenceValueRepository<Format>::save(Value value) {
  return detail::runSerially(executor_, [fileURL = fileURL_, value] {
    detail::writeStoreFile(fileURL, encodeStoreValue<Format>(Store{1, value}),
                           Format::Failure::cannotWrite);
  });
}

template class JSONPreferenceValueRepository<ReadingThemeStoreFormat>;
template class JSONPreferenceValueRepository<ReadingModeStoreFormat>;
template class JSONPreferenceValueRepository<PageLayoutStoreFormat>;
template class JSONPreferenceValueRepository<ScrolledContentWidthStoreFormat>;

}  // namespace tomekeeper
