#include "opening/SourceBookmarkStore.h"

#include <sys/stat.h>

#include <cerrno>
#include <nlohmann/json.hpp>
#include <system_error>

#include "platform/AtomicFileWriter.h"
#include "opening/Fingerprint.h"
#include "opening/OpeningFailures.h"

namespace tomekeeper {

namespace {

using nlohmann::json;

struct stat statOrThrow(const std::filesystem::path& file) {
  struct stat status {};
  if (::stat(file.c_str(), &status) != 0) {
    throw std::system_error(errno, std::generic_category(), "stat");
  }
  return status;
}

bool sameFile(const struct stat& status, std::uint64_t device, std::uint64_t inode) {
  return S_ISREG(status.st_mode) && status.st_dev == device && status.st_ino == inode;
}

}  // namespace

std::string SystemSecurityScopedBookmarkCodec::makeBookmarkData(const std::filesystem::path& file) {
  const std::filesystem::path canonical = std::filesystem::canonical(file);
  const struct stat status = statOrThrow(canonical);
  return json{{"path", canonical.string()},
              {"device", static_cast<std::uint64_t>(status.st_dev)},
              {"inode", static_cast<std::uint64_t>(status.st_ino)},
              {"size", static_cast<std::int64_t>(status.st_size)},
              {"modificationTime", status.st_mtim.tv_sec}}
      .dump();
}

DecodedSecurityScopedBookmark SystemSecurityScopedBookmarkCodec::decode(const std::string& data) {
  const json bookmark = json::parse(data);
  const std::filesystem::path path = bookmark.at("path").get<std::string>();
  const auto device = bookmark.at("device").get<std::uint64_t>();
  const auto inode = bookmark.at("inode").get<std::uint64_t>();

  struct stat status {};
  if (::stat(path.c_str(), &status) == 0 && sameFile(status, device, inode)) {
    return {path, false};
  }
  // Renamed inside its directory: the same device and inode under a new name.
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(path.parent_path(), error)) {
    if (::stat(entry.path().c_str(), &status) == 0 && sameFile(status, device, inode)) {
      return {entry.path(), true};
    }
  }
  throw std::system_error(std::make_error_code(std::errc::no_such_file_or_directory),
                          "the bookmarked file is gone");
}

SourceBookmarkStore::SourceBookmarkStore(std::filesystem::path publicationsRoot,
                                         std::shared_ptr<SecurityScopedBookmarkCoding> codec)
    : publicationsRoot_(std::filesystem::absolute(std::move(publicationsRoot)).lexically_normal()),
      codec_(std::move(codec)) {}

std::filesystem::path SourceBookmarkStore::bookmarkFileURL(const std::string& fingerprint) const {
  if (!isValidFingerprint(fingerprint)) {
    throw SourceBookmarkStoreFailureError(SourceBookmarkStoreFailure::invalidFingerprint);
  }
  return publicationsRoot_ / fingerprint / "source-bookmark.data";
}

void SourceBookmarkStore::saveNow(const std::filesystem::path& file,
                                  const std::string& fingerprint) const {
  const std::filesystem::path bookmarkFile = bookmarkFileURL(fingerprint);
  std::filesystem::create_directories(bookmarkFile.parent_path());
  writeFileAtomically(bookmarkFile, codec_->makeBookmarkData(file));
}

async::Task<void> SourceBookmarkStore::save(std::filesystem::path file, std::string fingerprint) {
  co_await executor_.run([this, file, fingerprint] { saveNow(file, fingerprint); });
}

async::Task<SourceBookmarkStore::Resolution> SourceBookmarkStore::resolve(std::string fingerprint) {
  co_return co_await executor_.run([this, fingerprint] {
    const std::filesystem::path bookmarkFile = bookmarkFileURL(fingerprint);
    const std::optional<std::string> data = readWholeFile(bookmarkFile);
    if (!data) {
      throw std::system_error(std::make_error_code(std::errc::no_such_file_or_directory),
                              "no source bookmark");
    }
    const DecodedSecurityScopedBookmark decoded = codec_->decode(*data);
    if (!decoded.isStale) return Resolution{decoded.url, false, false};
    saveNow(decoded.url, fingerprint);
    return Resolution{decoded.url, true, true};
  });
}

}  // namespace tomekeeper
