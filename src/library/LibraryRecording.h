#pragma once

#include <filesystem>
#include <string>

#include "async/Task.h"
#include "library/LibraryRecord.h"
#include "model/Date.h"
#include "opening/PreparedPublicationResources.h"

namespace tomekeeper {

// What a book's library record is made from, as the open road prepared it.
struct PreparedBook {
  std::string fingerprint;
  // The unpacked publication, and its package document relative to it.
  std::filesystem::path extractedRoot;
  std::string packageDocumentPath;
  // The user's file the book was opened from.
  std::filesystem::path sourceURL;
};

// Writes the library record of `book` into `publicationsRoot`/<fingerprint>/ (the directory that
// holds the book's source bookmark), opened at `openedAt`: its title, authors and language from
// the package document and, the first time only, its cover thumbnail (cover.png, written
// atomically). A later record keeps the thumbnail already made. A cover that is missing or does
// not decode leaves the record without one. Gives the record written.
//
// Throws PublicationStateRepositoryFailure::invalidFingerprint for anything but a fingerprint,
// before any file is touched; PackageMetadataError or std::system_error when the package
// document cannot be read; std::system_error or filesystem_error when a file cannot be written.
// A failure leaves the old record as it was. Blocking: call on the background pool.
LibraryRecord recordPreparedBook(const std::filesystem::path& publicationsRoot,
                                 const PreparedBook& book, Date openedAt);

// Updates only the last-opened date of a book's existing record; nothing when it has none or it
// does not decode (the next prepare writes it whole). Throws what writeLibraryRecord throws.
// Blocking.
void touchLibraryRecord(const std::filesystem::path& publicationDirectory, Date openedAt);

// The package document's path inside the extraction, from the descriptor's package URL
// (tomekeeper://publication/<id>/<escaped path>).
std::string packageDocumentPathOf(const PublicationDescriptor& descriptor);

// Records the book the open road prepared from `sourceURL`, now, on the background pool. A book
// that cannot be recorded keeps its old record (or shows as a placeholder); the failure is
// logged and nothing is thrown. Main executor.
async::Task<void> recordOpenedBook(std::filesystem::path publicationsRoot,
                                   PreparedPublicationResources resources,
                                   std::filesystem::path sourceURL);

// True for 64 lower-case hexadecimal characters, the only names of a book's directory.
bool isFingerprint(std::string_view name);

}  // namespace tomekeeper
