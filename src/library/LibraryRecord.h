#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "async/Failure.h"
#include "model/Date.h"

namespace tomekeeper {

// What the library shows of one book without opening its archive or its extraction, kept in
// Publications/<fingerprint>/library-record.json beside the book's source bookmark:
// {"schemaVersion":1,"title":…,"authors":[…],"language":…,"lastOpened":<Date>,
//  "sourceBookmark":"source-bookmark.data","sourceFileName":…,"cover":"cover.png"}.
// "cover" is absent when the book has no cover image that could be decoded.
struct LibraryRecord {
  std::string title;
  std::vector<std::string> authors;
  std::string language;
  Date lastOpened;
  // The file name of the book's source bookmark in the same directory.
  std::string sourceBookmark;
  // The name the book's file had when it was opened, for a book without a title.
  std::string sourceFileName;
  // The file name of the cover thumbnail in the same directory.
  std::optional<std::string> cover;

  bool operator==(const LibraryRecord&) const = default;
};

inline constexpr std::string_view kLibraryRecordFileName = "library-record.json";
inline constexpr std::string_view kCoverThumbnailFileName = "cover.png";
inline constexpr std::string_view kSourceBookmarkFileName = "source-bookmark.data";

// corruptRecord: the file is not a record of schemaVersion 1 (bad JSON, wrong types, a file name
// that is not a plain name in the book's directory); cannotRead: the file exists but cannot be
// read.
TOMEKEEPER_FAILURE(LibraryRecordFailure, corruptRecord, cannotRead);

// The compact JSON text of `record`. Throws nlohmann::json::exception for text that is not UTF-8.
std::string encodeLibraryRecord(const LibraryRecord& record);
// The record in `contents`. Throws LibraryRecordFailure::corruptRecord. Pure.
LibraryRecord decodeLibraryRecord(std::string_view contents);

// The record in `publicationDirectory`; nothing when there is none. Throws LibraryRecordFailure.
// Blocking.
std::optional<LibraryRecord> readLibraryRecord(const std::filesystem::path& publicationDirectory);

// Writes `record` into `publicationDirectory` atomically, making the directory. Throws
// std::system_error or std::filesystem::filesystem_error; the old record is then untouched.
// Blocking.
void writeLibraryRecord(const std::filesystem::path& publicationDirectory,
                        const LibraryRecord& record);

}  // namespace tomekeeper
