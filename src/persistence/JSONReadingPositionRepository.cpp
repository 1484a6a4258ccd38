#include "persistence/JSONReadingPositionRepository.h"

#include "model/JSONCoding.h"
#include "persistence/ConflictCopies.h"
#include "persistence/JSONStoreFile.h"
#include "persistence/PersistenceFailures.h"
#include "persistence/StoreBackups.h"

namespace tomekeeper {

namespace {

using StoreFailure = ReadingPositionPersistenceFailure;

nlohmann::json encodeStoreValue(const JSONReadingPositionRepository::Store& store) {
  nlohmann::json locators = nlohmann::json::object();
  for (const auto& [fingerprint, locator] : store.locators) locators[fingerprint] = locator;
  return {{"schemaVersion", store.schemaVersion}, {"locators", std::move(locators)}};
}

void writeStore(const std::filesystem::path& fileURL,
                const JSONReadingPositionRepository::Store& store) {
  detail::writeStoreFileKeepingBackups(fileURL, encodeStoreValue(store), StoreFailure::cannotWrite);
}

}  // namespace

JSONReadingPositionRepository::JSONReadingPositionRepository(std::filesystem::path fileURL)
    : fileURL_(std::move(fileURL)), executor_(std::make_shared<async::SerialExecutor>()) {}

JSONReadingPositionRepository::Store JSONReadingPositionRepository::decodeStore(
    std::string_view contents) {
  Store store;
  try {
    const nlohmann::json document = detail::parseStoreDocument(contents);
    requireJSONObject(document, "JSONReadingPositionRepository.Store");
    store.schemaVersion = decodeRequiredField<std::int64_t>(document, "schemaVersion");
    store.locators = detail::decodeDictionaryField<Locator>(document, "locators");
  } catch (const JSONDecodingError&) {
    throwFailure(StoreFailure::corruptStore);
  }
  // An unknown version is no different from damage to this store.
  if (store.schemaVersion != 1) throwFailure(StoreFailure::corruptStore);
  return store;
}

std::string JSONReadingPositionRepository::encodeStore(const Store& store) {
  return detail::encodeStoreDocument(encodeStoreValue(store));
}

JSONReadingPositionRepository::Store JSONReadingPositionRepository::loadStore(
    const std::filesystem::path& fileURL) {
  const std::optional<std::string> contents =
      detail::readStoreFile(fileURL, StoreFailure::cannotRead);
  if (!contents) return Store{};
  return decodeStore(*contents);
}

async::Task<std::optional<Locator>> JSONReadingPositionRepository::locator(
    std::string fingerprint) {
  return detail::runSerially(executor_, [fileURL = fileURL_, fingerprint = std::move(fingerprint)] {
    detail::mergeConflictCopiesBeforeUse(PublicationStore::readingPosition, fileURL);
    const Store store = loadStore(fileURL);
    const auto found = store.locators.find(fingerprint);
    return found == store.locators.end() ? std::nullopt : std::optional<Locator>(found->second);
  });
}

async::Task<void> JSONReadingPositionRepository::save(Locator locator, std::string fingerprint) {
  return detail::runSerially(executor_, [fileURL = fileURL_, locator = std::move(locator),
                                         fingerprint = std::move(fingerprint)] {
    detail::mergeConflictCopiesBeforeUse(PublicationStore::readingPosition, fileURL);
    Store store = loadStore(fileURL);
    store.locators.insert_or_assign(fingerprint, locator);
    writeStore(fileURL, store);
  });
}

async::Task<void> JSONReadingPositionRepository::deleteLocator(std::string fingerprint) {
  return detail::runSerially(executor_, [fileURL = fileURL_, fingerprint = std::move(fingerprint)] {
    detail::mergeConflictCopiesBeforeUse(PublicationStore::readingPosition, fileURL);
    Store store = loadStore(fileURL);
    store.locators.erase(fingerprint);
    writeStore(fileURL, store);
  });
}

}  // namespace tomekeeper
