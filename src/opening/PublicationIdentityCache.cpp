#include "opening/PublicationIdentityCache.h"

#include <sys/stat.h>

#include <cerrno>
#include <nlohmann/json.hpp>
#include <system_error>

#include "platform/AtomicFileWriter.h"
#include "opening/OpeningFailures.h"

namespace tomekeeper {

namespace {

using nlohmann::json;

// Seconds between the Unix epoch and 2001-01-01T00:00:00Z.
constexpr double kReferenceDateOffset = 978307200.0;

json encode(const PublicationIdentityCache::Record& record) {
  json source = {{"path", record.source.path},
                 {"byteCount", record.source.byteCount},
                 {"modificationTime", record.source.modificationTime}};
  if (record.source.fileResourceIdentifier) {
    source["fileResourceIdentifier"] = *record.source.fileResourceIdentifier;
  }
  return {{"source", std::move(source)}, {"fingerprint", record.fingerprint}};
}

// Throws for anything that is not a well-formed record.
PublicationIdentityCache::Record decode(const json& value) {
  const json& source = value.at("source");
  PublicationIdentityCache::Record record;
  record.fingerprint = value.at("fingerprint").get<std::string>();
  record.source.path = source.at("path").get<std::string>();
  if (!source.at("byteCount").is_number_integer()) throw std::runtime_error("byteCount");
  record.source.byteCount = source.at("byteCount").get<std::int64_t>();
  if (!source.at("modificationTime").is_number()) throw std::runtime_error("modificationTime");
  record.source.modificationTime = source.at("modificationTime").get<double>();
  if (auto identifier = source.find("fileResourceIdentifier");
      identifier != source.end() && !identifier->is_null()) {
    record.source.fileResourceIdentifier = identifier->get<std::string>();
  }
  return record;
}

std::vector<PublicationIdentityCache::Record> load(const std::filesystem::path& storeFile) {
  try {
    const std::optional<std::string> contents = readWholeFile(storeFile);
    if (!contents) return {};
    const json store = json::parse(*contents);
    const json& version = store.at("schemaVersion");
    if (!version.is_number_integer() || version.get<std::int64_t>() != 1) return {};
    std::vector<PublicationIdentityCache::Record> records;
    for (const json& record : store.at("records")) records.push_back(decode(record));
    return records;
  } catch (...) {
    return {};
  }
}

bool isValidFor(const PublicationIdentityCache::Record& record,
                const PublicationIdentityCache::SourceSnapshot& snapshot) {
  return record.source.namesSameFile(snapshot) && record.source.byteCount == snapshot.byteCount &&
         record.source.modificationTime == snapshot.modificationTime;
}

}  // namespace

PublicationIdentityCache::SourceSnapshot PublicationIdentityCache::SourceSnapshot::capture(
    const std::filesystem::path& file) {
  struct stat status {};
  if (::lstat(file.c_str(), &status) != 0) {
    throw std::system_error(errno, std::generic_category(), "lstat");
  }
  if (!S_ISREG(status.st_mode))
    throw DocumentOpenFailureError(DocumentOpenFailure::sourceUnavailable);
  SourceSnapshot snapshot;
  snapshot.path = std::filesystem::weakly_canonical(std::filesystem::absolute(file)).string();
  snapshot.fileResourceIdentifier =
      std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
  snapshot.byteCount = status.st_size;
  snapshot.modificationTime = static_cast<double>(status.st_mtim.tv_sec) - kReferenceDateOffset +
                              static_cast<double>(status.st_mtim.tv_nsec) / 1e9;
  return snapshot;
}

bool PublicationIdentityCache::SourceSnapshot::namesSameFile(const SourceSnapshot& other) const {
  if (path == other.path) return true;
  return fileResourceIdentifier && other.fileResourceIdentifier &&
         *fileResourceIdentifier == *other.fileResourceIdentifier;
}

PublicationIdentityCache::PublicationIdentityCache(std::filesystem::path storeFile)
    : storeFile_(std::filesystem::absolute(std::move(storeFile)).lexically_normal()) {}

std::vector<PublicationIdentityCache::Record> PublicationIdentityCache::loadRecords() const {
  return load(storeFile_);
}

async::Task<std::optional<std::string>> PublicationIdentityCache::cachedFingerprint(
    std::filesystem::path file) {
  co_return co_await executor_.run([storeFile = storeFile_, file]() -> std::optional<std::string> {
    SourceSnapshot snapshot;
    try {
      snapshot = SourceSnapshot::capture(file);
    } catch (...) {
      return std::nullopt;
    }
    const std::vector<Record> records = load(storeFile);
    for (auto record = records.rbegin(); record != records.rend(); ++record) {
      if (isValidFor(*record, snapshot)) return record->fingerprint;
    }
    return std::nullopt;
  });
}

async::Task<void> PublicationIdentityCache::record(std::filesystem::path file,
                                                   std::string fingerprint) {
  co_await executor_.run([storeFile = storeFile_, file, fingerprint] {
    SourceSnapshot snapshot;
    try {
      snapshot = SourceSnapshot::capture(file);
    } catch (...) {
      return;
    }
    std::vector<Record> records = load(storeFile);
    std::erase_if(records,
                  [&](const Record& record) { return record.source.namesSameFile(snapshot); });
    records.push_back(Record{snapshot, fingerprint});
    if (records.size() > kMaximumRecords) {
      records.erase(records.begin(), records.end() - kMaximumRecords);
    }
    try {
      json encoded = json::array();
      for (const Record& record : records) encoded.push_back(encode(record));
      std::filesystem::create_directories(storeFile.parent_path());
      writeFileAtomically(storeFile, json{{"schemaVersion", 1}, {"records", encoded}}.dump());
    } catch (...) {
      // The next open of this file simply hashes it again.
    }
  });
}

}  // namespace tomekeeper
