#include "library/LibraryRecord.h"

#include <system_error>

#include <nlohmann/json.hpp>

#include "platform/AtomicFileWriter.h"

namespace tomekeeper {

namespace {

constexpr int kSchemaVersion = 1;

// A name that stays in the book's own directory: no separator, not "." or "..", not empty.
bool isPlainFileName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
         name.find('\0') == std::string::npos;
}

template <typename Value>
Value required(const nlohmann::json& document, const char* key) {
  const auto found = document.find(key);
  if (found == document.end()) throwFailure(LibraryRecordFailure::corruptRecord);
  return found->get<Value>();
}

}  // namespace

std::string encodeLibraryRecord(const LibraryRecord& record) {
  nlohmann::json document = {
      {"schemaVersion", kSchemaVersion},
      {"title", record.title},
      {"authors", record.authors},
      {"language", record.language},
      {"lastOpened", record.lastOpened},
      {"sourceBookmark", record.sourceBookmark},
      {"sourceFileName", record.sourceFileName},
  };
  if (record.cover) document["cover"] = *record.cover;
  return document.dump();
}

LibraryRecord decodeLibraryRecord(std::string_view contents) {
  try {
    const nlohmann::json document = nlohmann::json::parse(contents);
    if (!document.is_object() || required<int>(document, "schemaVersion") != kSchemaVersion) {
      throwFailure(LibraryRecordFailure::corruptRecord);
    }
    LibraryRecord record;
    record.title = required<std::string>(document, "title");
    record.authors = required<std::vector<std::string>>(document, "authors");
    record.language = required<std::string>(document, "language");
    record.lastOpened = required<Date>(document, "lastOpened");
    record.sourceBookmark = required<std::string>(document, "sourceBookmark");
    record.sourceFileName = required<std::string>(document, "sourceFileName");
    if (const auto cover = document.find("cover"); cover != document.end() && !cover->is_null()) {
      record.cover = cover->get<std::string>();
      if (!isPlainFileName(*record.cover)) throwFailure(LibraryRecordFailure::corruptRecord);
    }
    if (!isPlainFileName(record.sourceBookmark)) throwFailure(LibraryRecordFailure::corruptRecord);
    return record;
  } catch (const Failure&) {
    throw;
  } catch (const std::exception&) {
    // nlohmann's parse and type errors, and the Date decoder's.
    throwFailure(LibraryRecordFailure::corruptRecord);
  }
}

std::optional<LibraryRecord> readLibraryRecord(const std::filesystem::path& publicationDirectory) {
  std::optional<std::string> contents;
  try {
    contents = readWholeFile(publicationDirectory / kLibraryRecordFileName);
  } catch (const std::system_error&) {
    throwFailure(LibraryRecordFailure::cannotRead);
  }
  if (!contents) return std::nullopt;
  return decodeLibraryRecord(*contents);
}

void writeLibraryRecord(const std::filesystem::path& publicationDirectory,
                        const LibraryRecord& record) {
  std::filesystem::create_directories(publicationDirectory);
  writeFileAtomically(publicationDirectory / kLibraryRecordFileName, encodeLibraryRecord(record));
}

}  // namespace tomekeeper
