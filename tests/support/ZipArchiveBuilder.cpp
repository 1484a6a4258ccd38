#include "support/ZipArchiveBuilder.h"

#include <zlib.h>

#include <algorithm>
#include <fstream>
#include <stdexcept>

namespace tomekeeper::testing {
namespace {

void put16(std::string& out, std::uint16_t value) {
  out.push_back(static_cast<char>(value & 0xFF));
  out.push_back(static_cast<char>(value >> 8));
}

void put32(std::string& out, std::uint32_t value) {
  for (int shift = 0; shift < 32; shift += 8) out.push_back(static_cast<char>(value >> shift));
}

std::uint16_t length16(const std::string& bytes) {
  if (bytes.size() > 0xFFFF) throw std::length_error("field longer than 65535 bytes");
  return static_cast<std::uint16_t>(bytes.size());
}

}  // namespace

ZipArchiveBuilder::Entry& ZipArchiveBuilder::add(Entry entry) {
  entries_.push_back(std::move(entry));
  return entries_.back();
}

ZipArchiveBuilder::Entry& ZipArchiveBuilder::addStored(std::string name, std::string content) {
  Entry entry;
  entry.name = std::move(name);
  entry.content = std::move(content);
  entry.method = kStored;
  return add(std::move(entry));
}

ZipArchiveBuilder::Entry& ZipArchiveBuilder::addDeflated(std::string name, std::string content) {
  Entry entry;
  entry.name = std::move(name);
  entry.content = std::move(content);
  entry.method = kDeflated;
  return add(std::move(entry));
}

ZipArchiveBuilder::Entry& ZipArchiveBuilder::addDirectory(std::string name) {
  if (name.empty() || name.back() != '/') name.push_back('/');
  // Unix directory mode in the upper half, MS-DOS directory bit in the lower.
  Entry entry;
  entry.name = std::move(name);
  entry.externalAttributes = (0040755u << 16) | 0x10u;
  return add(std::move(entry));
}

ZipArchiveBuilder::Entry& ZipArchiveBuilder::entryNamed(const std::string& name) {
  auto found = std::find_if(entries_.begin(), entries_.end(),
                            [&](const Entry& entry) { return entry.name == name; });
  if (found == entries_.end()) throw std::out_of_range("no entry named " + name);
  return *found;
}

void ZipArchiveBuilder::remove(const std::string& name) {
  std::erase_if(entries_, [&](const Entry& entry) { return entry.name == name; });
}

std::string ZipArchiveBuilder::deflate(const std::string& content) {
  z_stream stream{};
  if (deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
    throw std::runtime_error("deflateInit2 failed");
  }
  std::string out(deflateBound(&stream, content.size()), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(content.data()));
  stream.avail_in = static_cast<uInt>(content.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  const int status = ::deflate(&stream, Z_FINISH);
  deflateEnd(&stream);
  if (status != Z_STREAM_END) throw std::runtime_error("deflate did not finish");
  out.resize(stream.total_out);
  return out;
}

std::uint32_t ZipArchiveBuilder::crc32(const std::string& content) {
  return static_cast<std::uint32_t>(::crc32(0L, reinterpret_cast<const Bytef*>(content.data()),
                                            static_cast<uInt>(content.size())));
}

std::string ZipArchiveBuilder::build() const {
  std::string out;
  std::string central;

  for (const Entry& entry : entries_) {
    std::string data = entry.compressedData
                           ? *entry.compressedData
                           : (entry.method == kDeflated ? deflate(entry.content) : entry.content);
    data += entry.trailingBytes;
    const std::uint32_t crc = crc32(entry.content);
    const auto compressedSize = static_cast<std::uint32_t>(data.size());
    const auto uncompressedSize = static_cast<std::uint32_t>(entry.content.size());
    const std::uint16_t flags = entry.flags | (entry.dataDescriptor ? 0x0008 : 0);
    const auto localHeaderOffset = static_cast<std::uint32_t>(out.size());

    const std::string& localName = entry.localName ? *entry.localName : entry.name;
    const std::string& localExtra =
        entry.localExtraField ? *entry.localExtraField : entry.extraField;
    put32(out, entry.localSignature.value_or(0x04034b50));
    put16(out, 20);  // version needed
    put16(out, entry.localFlags.value_or(flags));
    put16(out, entry.localMethod.value_or(entry.method));
    put16(out, 0);       // time
    put16(out, 0x5A21);  // date: 2025-01-01
    const std::uint32_t zeroOrCRC = entry.dataDescriptor ? 0 : crc;
    const std::uint32_t zeroOrCompressed = entry.dataDescriptor ? 0 : compressedSize;
    const std::uint32_t zeroOrUncompressed = entry.dataDescriptor ? 0 : uncompressedSize;
    put32(out, entry.localCRC.value_or(zeroOrCRC));
    put32(out, entry.localCompressedSize.value_or(zeroOrCompressed));
    put32(out, entry.localUncompressedSize.value_or(zeroOrUncompressed));
    put16(out, length16(localName));
    put16(out, length16(localExtra));
    out += localName;
    out += localExtra;
    out += data;
    if (entry.dataDescriptor) {
      put32(out, 0x08074b50);
      put32(out, crc);
      put32(out, compressedSize);
      put32(out, uncompressedSize);
    }

    put32(central, 0x02014b50);
    put16(central, (3 << 8) | 20);  // made by Unix, version 2.0
    put16(central, 20);
    put16(central, flags);
    put16(central, entry.method);
    put16(central, 0);
    put16(central, 0x5A21);
    put32(central, entry.centralCRC.value_or(crc));
    put32(central, entry.centralCompressedSize.value_or(compressedSize));
    put32(central, entry.centralUncompressedSize.value_or(uncompressedSize));
    put16(central, entry.centralNameLength.value_or(length16(entry.name)));
    put16(central, length16(entry.extraField));
    put16(central, length16(entry.comment));
    put16(central, 0);  // disk number start
    put16(central, 0);  // internal attributes
    put32(central, entry.externalAttributes);
    put32(central, entry.centralLocalHeaderOffset.value_or(localHeaderOffset));
    central += entry.name;
    central += entry.extraField;
    central += entry.comment;
  }

  out += gap_;
  const auto centralOffset = static_cast<std::uint32_t>(out.size());
  out += central;
  const auto count = static_cast<std::uint16_t>(entries_.size());
  put32(out, 0x06054b50);
  put16(out, endRecord_.diskNumber.value_or(0));
  put16(out, endRecord_.centralDirectoryDisk.value_or(0));
  put16(out, endRecord_.entriesOnDisk.value_or(count));
  put16(out, endRecord_.totalEntries.value_or(count));
  put32(out, endRecord_.centralDirectorySize.value_or(static_cast<std::uint32_t>(central.size())));
  put32(out, endRecord_.centralDirectoryOffset.value_or(centralOffset));
  put16(out, endRecord_.commentLength.value_or(length16(comment_)));
  out += comment_;
  out += tail_;
  return out;
}

void ZipArchiveBuilder::writeTo(const std::filesystem::path& path) const {
  const std::string bytes = build();
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!file) throw std::runtime_error("cannot write " + path.string());
}

}  // namespace tomekeeper::testing
