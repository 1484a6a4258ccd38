#include "session/ReadingDataMaintenance.h"

#include <glib.h>

#include <algorithm>
#include <cctype>

#include "async/BackgroundPool.h"
#include "platform/AtomicFileWriter.h"

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
  char* unescaped = g_uri_unescape_string(escaped.c_str(), nullptr);
  if (unescaped == nullptr) return escaped;
  std::string path(unescaped);
  g_free(unescaped);
  return path;
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

}  // namespace tomekeeper
