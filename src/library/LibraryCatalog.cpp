#include "library/LibraryCatalog.h"

#include <glib.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>

#include "async/BackgroundPool.h"
#include "library/LibraryRecord.h"
#include "library/LibraryRecording.h"
#include "persistence/EditionCarryOver.h"
#include "persistence/PublicationStateRepositoryFactory.h"
#include "platform/AtomicFileWriter.h"

namespace tomekeeper {

namespace {

namespace fs = std::filesystem;

std::optional<Date> modificationDate(const fs::path& file) {
  struct stat status {};
  if (::stat(file.c_str(), &status) != 0) return std::nullopt;
  const auto since = std::chrono::seconds(status.st_mtim.tv_sec) +
                     std::chrono::nanoseconds(status.st_mtim.tv_nsec);
  return Date::fromSystemClock(std::chrono::system_clock::time_point(
      std::chrono::duration_cast<std::chrono::system_clock::duration>(since)));
}

std::optional<Date> later(std::optional<Date> left, std::optional<Date> right) {
  if (!left) return right;
  if (!right) return left;
  return *left < *right ? right : left;
}

std::optional<double> progressOf(const fs::path& stateDirectory, const std::string& fingerprint) {
  try {
    const auto store = JSONReadingPositionRepository::loadStore(
        stateDirectory / PublicationStateRepositoryFactory::kReadingPositionFileName);
    const auto found = store.locators.find(fingerprint);
    if (found == store.locators.end() || !found->second.totalProgression) return std::nullopt;
    const double progression = *found->second.totalProgression;
    if (!std::isfinite(progression)) return std::nullopt;
    return std::clamp(progression, 0.0, 1.0);
  } catch (const std::exception&) {
    // A broken store shows no progress; the reader's own open reports it.
    return std::nullopt;
  }
}

void resolveSource(LibraryBook& book, const fs::path& bookmarkFile,
                   SecurityScopedBookmarkCoding& codec) {
  try {
    const std::optional<std::string> data = readWholeFile(bookmarkFile);
    if (!data) return;
    book.sourceURL = codec.decode(*data).url;
    book.availability = LibraryAvailability::available;
  } catch (const std::exception&) {
    // Gone, or a bookmark that no longer decodes: "Locate…" finds the file again.
  }
}

std::optional<LibraryBook> loadBook(const LibraryLocations& locations,
                                    const std::string& fingerprint,
                                    SecurityScopedBookmarkCoding& codec) {
  const fs::path directory = locations.recordsRoot / fingerprint;
  std::optional<LibraryRecord> record;
  bool recordIsBroken = false;
  try {
    record = readLibraryRecord(directory);
  } catch (const LibraryRecordFailureError& failure) {
    recordIsBroken = true;
    g_info("The library record of %s is not used: %s", fingerprint.c_str(), failure.what());
  }
  const fs::path bookmarkFile =
      directory / (record ? record->sourceBookmark : std::string(kSourceBookmarkFileName));
  std::error_code error;
  if (!record && !recordIsBroken && !fs::exists(bookmarkFile, error)) return std::nullopt;

  LibraryBook book;
  book.fingerprint = fingerprint;
  resolveSource(book, bookmarkFile, codec);
  const fs::path stateDirectory = locations.readingStateRoot / fingerprint;
  book.progress = progressOf(stateDirectory, fingerprint);
  const std::optional<Date> positionSaved = modificationDate(
      stateDirectory / PublicationStateRepositoryFactory::kReadingPositionFileName);
  if (record) {
    book.recordState = LibraryRecordState::recorded;
    book.title = record->title;
    book.authors = record->authors;
    book.language = record->language;
    book.lastRead = later(record->lastOpened, positionSaved);
    if (record->cover) book.coverFile = directory / *record->cover;
    if (book.title.empty()) book.title = fs::path(record->sourceFileName).stem().string();
    return book;
  }
  book.lastRead = later(modificationDate(bookmarkFile), positionSaved);
  if (const auto publication = readPublicationRecord(stateDirectory)) {
    book.title = publication->title;
  }
  if (book.title.empty() && book.sourceURL) book.title = book.sourceURL->stem().string();
  return book;
}

}  // namespace

std::vector<LibraryBook> loadLibraryBooks(const LibraryLocations& locations,
                                          SecurityScopedBookmarkCoding& codec) {
  std::vector<LibraryBook> books;
  std::error_code error;
  fs::directory_iterator entries(locations.recordsRoot, error);
  if (error) return books;
  for (const fs::directory_entry& entry : entries) {
    const std::string name = entry.path().filename().string();
    if (!isFingerprint(name) || !entry.is_directory(error)) continue;
    if (auto book = loadBook(locations, name, codec)) books.push_back(std::move(*book));
  }
  return books;
}

bool hasLibraryBooks(const fs::path& recordsRoot) {
  std::error_code error;
  for (fs::directory_iterator entries(recordsRoot, error), end; !error && entries != end;
       entries.increment(error)) {
    const fs::path& directory = entries->path();
    if (!isFingerprint(directory.filename().string())) continue;
    std::error_code ignored;
    if (fs::exists(directory / kLibraryRecordFileName, ignored) ||
        fs::exists(directory / kSourceBookmarkFileName, ignored)) {
      return true;
    }
  }
  return false;
}

async::Task<void> removeFromLibrary(LibraryLocations locations, std::string fingerprint) {
  const PublicationStateRepositories repositories =
      PublicationStateRepositoryFactory{locations.readingStateRoot}.makeRepositories(fingerprint);
  co_await repositories.position->deleteLocator(fingerprint);
  co_await repositories.bookmarks->deleteAll(fingerprint);
  co_await repositories.annotations->deleteAll(fingerprint);
  co_await async::runInBackground([directory = locations.recordsRoot / fingerprint] {
    // The bookmark goes last: a removal that stops half-way leaves the book listed.
    for (const std::string_view name :
         {kLibraryRecordFileName, kCoverThumbnailFileName, kSourceBookmarkFileName}) {
      fs::remove(directory / name);
    }
  });
}

}  // namespace tomekeeper
