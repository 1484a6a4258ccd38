#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tomekeeper::testing {

// Writes ZIP archives byte by byte for tests, with full control over every
// field a hostile archive could lie about. Entries are written in the order
// they were added: local header, data, optional data descriptor; then the
// central directory and the end record. Every field defaults to the honest
// value computed from the content; each override replaces exactly one field in
// one place (local header or central record), so a test can make the two
// disagree.
class ZipArchiveBuilder {
 public:
  // Method numbers as they appear in the headers.
  static constexpr std::uint16_t kStored = 0;
  static constexpr std::uint16_t kDeflated = 8;
  // Unix file type of a symbolic link, in the upper 16 bits of the external attributes.
  static constexpr std::uint32_t kSymbolicLinkAttributes = 0xA1FFu << 16;

  struct Entry {
    // Raw name bytes: may hold invalid UTF-8, NUL or anything else.
    std::string name;
    std::string content;
    // 8 deflates the content (raw deflate); any other value writes the content
    // as it stands under that method number.
    std::uint16_t method = kStored;
    std::uint16_t flags = 0;
    std::uint32_t externalAttributes = 0;
    std::string extraField;
    std::string comment;
    // Sets flag bit 3, writes zeros for CRC and sizes in the local header and
    // a signed descriptor with the real values after the data.
    bool dataDescriptor = false;
    // Raw bytes appended after the compressed data and counted in the
    // compressed size.
    std::string trailingBytes;
    // Replaces the compressed data altogether (trailingBytes still follow).
    std::optional<std::string> compressedData;

    // Overrides of the central record.
    std::optional<std::uint32_t> centralCRC;
    std::optional<std::uint32_t> centralCompressedSize;
    std::optional<std::uint32_t> centralUncompressedSize;
    std::optional<std::uint32_t> centralLocalHeaderOffset;
    std::optional<std::uint16_t> centralNameLength;

    // Overrides of the local header.
    std::optional<std::uint32_t> localCRC;
    std::optional<std::uint32_t> localCompressedSize;
    std::optional<std::uint32_t> localUncompressedSize;
    std::optional<std::uint16_t> localFlags;
    std::optional<std::uint16_t> localMethod;
    std::optional<std::uint32_t> localSignature;
    std::optional<std::string> localName;
    std::optional<std::string> localExtraField;
  };

  // Overrides of the end-of-central-directory record.
  struct EndRecord {
    std::optional<std::uint16_t> diskNumber;
    std::optional<std::uint16_t> centralDirectoryDisk;
    std::optional<std::uint16_t> entriesOnDisk;
    std::optional<std::uint16_t> totalEntries;
    std::optional<std::uint32_t> centralDirectorySize;
    std::optional<std::uint32_t> centralDirectoryOffset;
    std::optional<std::uint16_t> commentLength;
  };

  // Adds an entry and returns it for further changes; the reference stays
  // valid until the next add.
  Entry& add(Entry entry);
  Entry& addStored(std::string name, std::string content);
  Entry& addDeflated(std::string name, std::string content);
  // A directory entry: the name gets a trailing "/" when it has none.
  Entry& addDirectory(std::string name);

  Entry& entry(std::size_t index) { return entries_.at(index); }
  // The entry with this raw name; throws std::out_of_range when there is none.
  Entry& entryNamed(const std::string& name);
  void remove(const std::string& name);
  std::size_t entryCount() const { return entries_.size(); }

  void setComment(std::string comment) { comment_ = std::move(comment); }
  EndRecord& endRecord() { return endRecord_; }
  // Raw bytes written between the last entry's data and the central directory.
  void setBytesBeforeCentralDirectory(std::string bytes) { gap_ = std::move(bytes); }
  // Raw bytes written after the end record (after its comment).
  void setBytesAfterEndRecord(std::string bytes) { tail_ = std::move(bytes); }

  std::string build() const;
  void writeTo(const std::filesystem::path& path) const;

  // Raw deflate (no zlib header) of `content` at the best compression level.
  static std::string deflate(const std::string& content);
  // zlib's CRC-32 of `content`.
  static std::uint32_t crc32(const std::string& content);

 private:
  std::vector<Entry> entries_;
  std::string comment_;
  std::string gap_;
  std::string tail_;
  EndRecord endRecord_;
};

}  // namespace tomekeeper::testing
