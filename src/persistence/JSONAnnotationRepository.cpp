#include "persistence/JSONAnnotationRepository.h"

#include "model/JSONCoding.h"
#include "opening/Fingerprint.h"
#include "persistence/ConflictCopies.h"
#include "persistence/JSONStoreFile.h"
#include "persistence/PersistenceFailures.h"
#include "persistence/RecordList.h"
#include "persistence/StoreBackups.h"

namespace tomekeeper {

namespace {

using StoreFailure = AnnotationPersistenceFailure;
using Store = JSONAnnotationRepository::Store;

void requireValidFingerprint(std::string_view fingerprint) {
  if (!isValidFingerprint(fingerprint)) throwFailure(StoreFailure::invalidFingerprint);
}

nlohmann::json encodeStoreValue(const Store& store) {
  nlohmann::json lists = nlohmann::json::object();
  for (const auto& [fingerprint, annotations] : store.annotationsByFingerprint) {
    nlohmann::json list = nlohmann::json::array();
    for (const Annotation& annotation : annotations) list.push_back(annotation);
    lists[fingerprint] = std::move(list);
  }
  return {{"schemaVersion", store.schemaVersion}, {"annotationsByFingerprint", std::move(lists)}};
}

void writeStore(const std::filesystem::path& fileURL, const Store& store) {
  detail::writeStoreFileKeepingBackups(fileURL, encodeStoreValue(store), StoreFailure::cannotWrite);
}

}  // namespace

JSONAnnotationRepository::JSONAnnotationRepository(std::filesystem::path fileURL)
    : fileURL_(std::move(fileURL)), executor_(std::make_shared<async::SerialExecutor>()) {}

Store JSONAnnotationRepository::decodeStore(std::string_view contents) {
  Store store;
  try {
    const nlohmann::json document = detail::parseStoreDocument(contents);
    requireJSONObject(document, "JSONAnnotationRepository.Store");
    store.schemaVersion = decodeRequiredField<std::int64_t>(document, "schemaVersion");
    store.annotationsByFingerprint = detail::decodeDictionaryField<std::vector<Annotation>>(
        document, "annotationsByFingerprint");
  } catch (const JSONDecodingError&) {
    throwFailure(StoreFailure::corruptStore);
  }
  if (store.schemaVersion != 1) throwFailure(StoreFailure::unsupportedSchema);
  return store;
}

std::string JSONAnnotationRepository::encodeStore(const Store& store) {
  return detail::encodeStoreDocument(encodeStoreValue(store));
}

Store JSONAnnotationRepository::loadStore(const std::filesystem::path& fileURL) {
  const std::optional<std::string> contents =
      detail::readStoreFile(fileURL, StoreFailure::corruptStore);
  if (!contents) return Store{};
  return decodeStore(*contents);
}

void JSONAnnotationRepository::saveNow(const std::filesystem::path& fileURL,
                                       const Annotation& annotation) {
  requireValidFingerprint(annotation.bookFingerprint);
  Store store = loadStore(fileURL);
  detail::replaceOrAppend(store.annotationsByFingerprint, annotation);
  writeStore(fileURL, store);
}

async::Task<std::vector<Annotation>> JSONAnnotationRepository::annotations(
    std::string fingerprint) {
  return detail::runSerially(executor_, [fileURL = fileURL_, fingerprint = std::move(fingerprint)] {
    detail::mergeConflictCopiesBeforeUse(PublicationStore::annotations, fileURL);
    requireValidFingerprint(fingerprint);
    Store store = loadStore(fileURL);
    const auto list = store.annotationsByFingerprint.find(fingerprint);
    if (list == store.annotationsByFingerprint.end()) return std::vector<Annotation>{};
    return detail::sortedNewestFirst(std::move(list->second));
  });
}

async::Task<void> JSONAnnotationRepository::save(Annotation annotation) {
  return detail::runSerially(executor_, [fileURL = fileURL_, annotation = std::move(annotation)] {
    detail::mergeConflictCopiesBeforeUse(PublicationStore::annotations, fileURL);
    saveNow(fileURL, annotation);
  });
}

async::Task<void> JSONAnnotationRepository::deleteAnnotation(Uuid id, std::string fingerprint) {
  return detail::runSerially(
      executor_, [fileURL = fileURL_, id, fingerprint = std::move(fingerprint)] {
        detail::mergeConflictCopiesBeforeUse(PublicationStore::annotations, fileURL);
        requireValidFingerprint(fingerprint);
        Store store = loadStore(fileURL);
        detail::removeRecords(store.annotationsByFingerprint, fingerprint, id);
        writeStore(fileURL, store);
      });
}

async::Task<void> JSONAnnotationRepository::deleteAll(std::string fingerprint) {
  return detail::runSerially(executor_, [fileURL = fileURL_, fingerprint = std::move(fingerprint)] {
    detail::mergeConflictCopiesBeforeUse(PublicationStore::annotations, fileURL);
    requireValidFingerprint(fingerprint);
    Store store = loadStore(fileURL);
    store.annotationsByFingerprint.erase(fingerprint);
    writeStore(fileURL, store);
  });
}

}  // namespace tomekeeper
