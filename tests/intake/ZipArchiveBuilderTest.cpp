#include "support/ZipArchiveBuilder.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdint>
#include <string>

namespace tomekeeper::testing {
namespace {

std::uint32_t read32(const std::string& bytes, std::size_t offset) {
  std::uint32_t value = 0;
  for (int index = 3; index >= 0; --index) {
    value = (value << 8) | static_cast<unsigned char>(bytes.at(offset + index));
  }
  return value;
}

std::uint16_t read16(const std::string& bytes, std::size_t offset) {
  return static_cast<std::uint16_t>(static_cast<unsigned char>(bytes.at(offset)) |
                                    (static_cast<unsigned char>(bytes.at(offset + 1)) << 8));
}

std::string inflateRaw(const std::string& compressed, std::size_t size) {
  z_stream stream{};
  EXPECT_EQ(inflateInit2(&stream, -15), Z_OK);
  std::string out(size, '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(compressed.data()));
  stream.avail_in = static_cast<uInt>(compressed.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  EXPECT_EQ(inflate(&stream, Z_FINISH), Z_STREAM_END);
  inflateEnd(&stream);
  return out;
}

TEST(ZipArchiveBuilderTest, EndRecordPointsAtTheCentralDirectory) {
  ZipArchiveBuilder builder;
  builder.addStored("a.txt", "alpha");
  builder.addDeflated("b.txt", std::string(1000, 'b'));
  builder.setComment("note");
  const std::string bytes = builder.build();

  const std::size_t end = bytes.size() - 22 - 4;
  ASSERT_EQ(read32(bytes, end), 0x06054b50u);
  EXPECT_EQ(read16(bytes, end + 10), 2);
  const std::uint32_t size = read32(bytes, end + 12);
  const std::uint32_t offset = read32(bytes, end + 16);
  EXPECT_EQ(offset + size, end);
  EXPECT_EQ(read32(bytes, offset), 0x02014b50u);
  EXPECT_EQ(read16(bytes, end + 20), 4);
}

TEST(ZipArchiveBuilderTest, DeflatedDataInflatesBackAndCentralRecordHoldsItsSizes) {
  ZipArchiveBuilder builder;
  const std::string content(5000, 'x');
  builder.addDeflated("x.txt", content);
  const std::string bytes = builder.build();

  const std::uint32_t compressedSize = read32(bytes, 18);
  EXPECT_EQ(read32(bytes, 22), content.size());
  EXPECT_EQ(read32(bytes, 14), ZipArchiveBuilder::crc32(content));
  const std::string data = bytes.substr(30 + 5, compressedSize);
  EXPECT_EQ(inflateRaw(data, content.size()), content);
}

TEST(ZipArchiveBuilderTest, DataDescriptorZeroesTheLocalHeaderAndFollowsTheData) {
  ZipArchiveBuilder builder;
  builder.addStored("d.txt", "descriptor").dataDescriptor = true;
  const std::string bytes = builder.build();

  EXPECT_EQ(read16(bytes, 6) & 0x0008, 0x0008);
  EXPECT_EQ(read32(bytes, 14), 0u);
  EXPECT_EQ(read32(bytes, 18), 0u);
  const std::size_t descriptor = 30 + 5 + 10;
  EXPECT_EQ(read32(bytes, descriptor), 0x08074b50u);
  EXPECT_EQ(read32(bytes, descriptor + 4), ZipArchiveBuilder::crc32("descriptor"));
  EXPECT_EQ(read32(bytes, descriptor + 8), 10u);
}

TEST(ZipArchiveBuilderTest, OverridesChangeOnlyTheirOwnSide) {
  ZipArchiveBuilder builder;
  auto& entry = builder.addStored("o.txt", "12345");
  entry.localUncompressedSize = 99;
  entry.centralCRC = 7;
  const std::string bytes = builder.build();

  EXPECT_EQ(read32(bytes, 22), 99u);
  EXPECT_EQ(read32(bytes, 14), ZipArchiveBuilder::crc32("12345"));
  const std::uint32_t centralOffset = read32(bytes, bytes.size() - 22 + 16);
  EXPECT_EQ(read32(bytes, centralOffset + 16), 7u);
  EXPECT_EQ(read32(bytes, centralOffset + 24), 5u);
}

}  // namespace
}  // namespace tomekeeper::testing
