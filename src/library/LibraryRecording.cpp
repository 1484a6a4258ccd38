#include "library/LibraryRecording.h"

#include <glib.h>

#include <algorithm>

#include "async/BackgroundPool.h"
#include "library/CoverThumbnail.h"
#include "library/PackageMetadata.h"
#include "persistence/PersistenceFailures.h"
#include "platform/AtomicFileWriter.h"

namespace tomekeeper {

namespace {

namespace fs = std::filesystem;

// The cover's file when it is a regular file inside the root once links are followed.
std::optional<fs::path> containedFile(const fs::path& root, const fs::path& relative) {
  std::error_code error;
  const fs::path canonicalRoot = fs::canonical(root, error);
  if (error) return std::nullopt;
  const fs::path file = fs::canonical(root / relative, error);
  if (error || !fs::is_regular_file(file, error)) return std::nullopt;
  const fs::path inside = file.lexically_relative(canonicalRoot);
  if (inside.empty() || *inside.begin() == "..") return std::nullopt;
  return file;
}

}  // namespace

bool isFingerprint(std::string_view name) {
  return name.size() == 64 && std::all_of(name.begin(), name.end(), [](char character) {
           return (character >= '0' && character <= '9') || (character >= 'a' && character <= 'f');
         });
}

LibraryRecord recordPreparedBook(const fs::path& publicationsRoot, const PreparedBook& book,
                                 Date openedAt) {
  if (!isFingerprint(book.fingerprint)) {
    throwFailure(PublicationStateRepositoryFailure::invalidFingerprint);
  }
  const fs::path directory = publicationsRoot / book.fingerprint;
  const PackageMetadata metadata =
      readPackageMetadata(book.extractedRoot, book.packageDocumentPath);

  LibraryRecord record;
  record.title = metadata.title;
  record.authors = metadata.authors;
  record.language = metadata.language;
  record.lastOpened = openedAt;
  record.sourceBookmark = std::string(kSourceBookmarkFileName);
  record.sourceFileName = book.sourceURL.filename().string();

  fs::create_directories(directory);
  const fs::path thumbnail = directory / kCoverThumbnailFileName;
  std::error_code error;
  if (fs::is_regular_file(thumbnail, error)) {
    record.cover = std::string(kCoverThumbnailFileName);
  } else if (metadata.coverImage) {
    if (const auto image = containedFile(book.extractedRoot, *metadata.coverImage)) {
      try {
        writeFileAtomically(thumbnail, makeCoverThumbnail(*image, metadata.coverMediaType));
        record.cover = std::string(kCoverThumbnailFileName);
      } catch (const CoverThumbnailError& failure) {
        // The book shows the placeholder cover; the rest of its record is good.
        g_info("No cover thumbnail for %s: %s", book.fingerprint.c_str(), failure.what());
      }
    }
  }
  writeLibraryRecord(directory, record);
  return record;
}

void touchLibraryRecord(const fs::path& publicationDirectory, Date openedAt) {
  std::optional<LibraryRecord> record;
  try {
    record = readLibraryRecord(publicationDirectory);
  } catch (const LibraryRecordFailureError&) {
    return;
  }
  if (!record) return;
  record->lastOpened = openedAt;
  writeLibraryRecord(publicationDirectory, *record);
}

std::string packageDocumentPathOf(const PublicationDescriptor& descriptor) {
  const std::string prefix = "tomekeeper://publication/" + descriptor.publicationID.string() + "/";
  const std::string& url = descriptor.packageURL;
  const std::string escaped = url.starts_with(prefix) ? url.substr(prefix.size()) : url;
  char* unescaped = g_uri_unescape_string(escaped.c_str(), nullptr);
  if (unescaped == nullptr) return escaped;
  std::string path(unescaped);
  g_free(unescaped);
  return path;
}

async::Task<void> recordOpenedBook(fs::path publicationsRoot,
                                   PreparedPublicationResources resources, fs::path sourceURL) {
  PreparedBook book{resources.fingerprint, resources.extractedRoot,
                    packageDocumentPathOf(resources.descriptor), std::move(sourceURL)};
  const Date now = Date::now();
  try {
    co_await async::runInBackground([publicationsRoot = std::move(publicationsRoot),
                                     book = std::move(book),
                                     now] { recordPreparedBook(publicationsRoot, book, now); });
    // The application's display tests wait for this line before they close the book.
    g_info("Library record of %s written", resources.fingerprint.c_str());
  } catch (const std::exception& failure) {
    g_warning("The library record of %s was not written: %s", resources.fingerprint.c_str(),
              failure.what());
  }
}

}  // namespace tomekeeper
