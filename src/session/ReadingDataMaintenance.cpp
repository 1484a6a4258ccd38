#include "session/ReadingDataMaintenance.h"

#include <glib.h>

#include <algorithm>
#include <cctype>

#include "async/BackgroundPool.h"
#include "persistence/ConflictCopies.h"
#include "persistence/EditionCarryOver.h"
#include "persistence/JSONAnnotationRepository.h"
#include "persistence/PublicationOutline.h"
#include "persistence/PublicationStateRepositoryFactory.h"
#include "platform/AtomicFileWriter.h"
#include "platform/GLibString.h"

namespace tomekeeper {

ReadingDataMaintenance::ReadingDataMaintenance(std::weak_ptr<ReaderSession> session, Book book)
    : session_(std::move(session)), book_(std::move(book)) {}

std::optional<HighlightExportFormat> ReadingDataMaintenance::formatForFileName(
    const std::filesystem::path& file) {
  std::string extension = file.extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char character) { return std::tolower(character); });
  if (extension == ".md" || extension == ".markdown") return HighlightExportFormat::markdown;
  if (extension == ".json") return HighlightExportFormat::json;
  return std::nullopt;
}

std::string ReadingDataMaintenance::packageDocumentPath(const PublicationDescriptor& descriptor) {
  // tomekeeper://publication/<id>/<escaped path>
  const std::string prefix = "tomekeeper://publication/" + descriptor.publicationID.string() + "/";
  const std::string& url = descriptor.packageURL;
  const std::string escaped = url.starts_with(prefix) ? url.substr(prefix.size()) : url;
  const GLibString unescaped(g_uri_unescape_string(escaped.c_str(), nullptr));
  return unescaped ? unescaped.string() : escaped;
}

async::Task<void> ReadingDataMaintenance::exportHighlights(std::filesystem::path destination,
                                                           HighlightExportFormat format) const {
  const std::shared_ptr<ReaderSession> session = session_.lock();
  if (!session) co_return;
  std::vector<Annotation> annotations = session->annotations().value();
  co_await async::runInBackground([book = book_, annotations = std::move(annotations), format,
                                   destination = std::move(destination)]() mutable {
    const std::string text =
        exportHighlightsOfPublication(book.extractedRoot, packageDocumentPath(book.descriptor),
                                      book.fingerprint, std::move(annotations), format);
    writeFileAtomically(destination, text);
  });
}

async::Task<ReadingDataBackupOffer> ReadingDataMaintenance::findBackups() const {
  co_return co_await async::runInBackground([book = book_] {
    ReadingDataBackupOffer offer =
        findReadingDataBackups(book.publicationDirectory, book.fingerprint);
    std::erase_if(offer.stores, [](const StoreBackupSummary& entry) {
      return entry.store == PublicationStore::readingPosition && entry.currentStoreDecodes;
    });
    return offer;
  });
}

async::Task<void> ReadingDataMaintenance::restore(ReadingDataBackupOffer offer) const {
  co_await async::runInBackground([offer = std::move(offer)] { restoreReadingDataBackups(offer); });
  if (const std::shared_ptr<ReaderSession> session = session_.lock()) {
    co_await session->rereadReadingData();
  }
}

async::Task<std::optional<std::string>> ReadingDataMaintenance::recordAndFindEarlierEdition()
    const {
  co_return co_await async::runInBackground([book = book_]() -> std::optional<std::string> {
    const PublicationOutline outline =
        readPublicationOutline(book.extractedRoot, packageDocumentPath(book.descriptor));
    const PublicationRecord record{outline.identifier, outline.title};
    try {
      writePublicationRecord(book.publicationDirectory, record);
    } catch (const std::exception&) {
      // Only a later edition misses it.
    }
    const auto own = JSONAnnotationRepository::loadStore(
        book.publicationDirectory / PublicationStateRepositoryFactory::kAnnotationsFileName);
    const auto list = own.annotationsByFingerprint.find(book.fingerprint);
    if (list != own.annotationsByFingerprint.end() && !list->second.empty()) return std::nullopt;
    return findEarlierEdition(book.publicationDirectory.parent_path(), book.fingerprint, record);
  });
}

async::Task<std::vector<Annotation>> ReadingDataMaintenance::carryOverFrom(
    std::string earlierFingerprint) const {
  CarryOverResult result = co_await carryOver(std::move(earlierFingerprint));
  co_return std::move(result.notFound);
}

async::Task<CarryOverResult> ReadingDataMaintenance::carryOver(
    std::string earlierFingerprint) const {
  CarryOverResult result =
      co_await async::runInBackground([book = book_, earlier = std::move(earlierFingerprint)] {
        const std::filesystem::path store =
            std::filesystem::path(PublicationStateRepositoryFactory::kAnnotationsFileName);
        auto stored = loadAnnotationsWithConflictCopies(book.publicationDirectory.parent_path() /
                                                        earlier / store)
                          .annotationsByFingerprint;
        CarryOverResult outcome =
            carryOverHighlights(stored[earlier], book.extractedRoot,
                                packageDocumentPath(book.descriptor), book.fingerprint);
        for (const Annotation& carried : outcome.carried) {
          JSONAnnotationRepository::saveNow(book.publicationDirectory / store, carried);
        }
        return outcome;
      });
  if (const std::shared_ptr<ReaderSession> session = session_.lock()) {
    co_await session->rereadReadingData();
  }
  co_return result;
}

}  // namespace tomekeeper
