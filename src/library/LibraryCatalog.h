#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "async/Task.h"
#include "model/Date.h"
#include "opening/SourceBookmarkStore.h"

namespace tomekeeper {

// Whether the user's file of a book can still be reached through its source bookmark.
enum class LibraryAvailability { available, unavailable };

// How much the library knows of a book: its record, or only what a book opened before the
// library existed left (or a record that does not decode), shown with a placeholder cover.
enum class LibraryRecordState { recorded, placeholder };

// One book as the library shows it.
struct LibraryBook {
  std::string fingerprint;
  // The package's title; for a placeholder, the title recorded beside the reading data or the
  // file's name without its extension.
  std::string title;
  std::vector<std::string> authors;
  std::string language;
  // The later of the record's last open and the last save of the reading position.
  std::optional<Date> lastRead;
  // The reading position's total progression, within [0, 1].
  std::optional<double> progress;
  // The cover thumbnail (a PNG of at most 512 pixels); absent for the placeholder cover.
  std::optional<std::filesystem::path> coverFile;
  // Where the source bookmark resolves now; absent when the book is unavailable.
  std::optional<std::filesystem::path> sourceURL;
  LibraryAvailability availability = LibraryAvailability::unavailable;
  LibraryRecordState recordState = LibraryRecordState::placeholder;

  bool operator==(const LibraryBook&) const = default;
};

// Where the library reads from. Records, covers and source bookmarks sit in the application's
// own Publications/ folder; reading positions in that of the reading-state directory, which the
// user may have moved.
struct LibraryLocations {
  std::filesystem::path recordsRoot;
  std::filesystem::path readingStateRoot;

  bool operator==(const LibraryLocations&) const = default;
};

// Every book of the library, in no particular order: each directory of `recordsRoot` named by a
// fingerprint that holds a library record or a source bookmark. Reads only those small files
// and the reading position store; never an archive or an extraction. A record, bookmark or
// position that cannot be read or decoded never fails the load: the book shows as a placeholder,
// unavailable, or without progress. A missing root is an empty library. `codec` decodes the
// bookmarks (called on this thread). Blocking: call on the background pool.
std::vector<LibraryBook> loadLibraryBooks(const LibraryLocations& locations,
                                          SecurityScopedBookmarkCoding& codec);

// Whether loadLibraryBooks would find a book: a directory of `recordsRoot` named by a
// fingerprint that holds a library record or a source bookmark. Stops at the first one and
// reads no file, so that the shell can choose its window before loading. Blocking.
bool hasLibraryBooks(const std::filesystem::path& recordsRoot);

// Takes a book out of the library: its reading position, bookmarks, highlights and notes go
// through the stores' own delete operations (as "Delete Reading History" does for an open
// book), then its library record, cover thumbnail and source bookmark are removed, so that it
// is listed again only when it is opened again. The EPUB file and the extraction cache are left
// alone. Throws PublicationStateRepositoryFailure::invalidFingerprint before touching anything,
// the stores' failures (nothing of the record is then removed), or filesystem_error.
// Main executor; the file work runs on the stores' executors and the background pool.
async::Task<void> removeFromLibrary(LibraryLocations locations, std::string fingerprint);

}  // namespace tomekeeper
