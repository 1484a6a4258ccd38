#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <utility>

#include "support/EpubBuilder.h"

namespace tomekeeper::bench {

// The large book the intake, open and safety benchmarks share: 2 000 chapters of 40 paragraphs,
// the first 400 with an incompressible 230 KiB image each (stored, as photographs are), all in
// the manifest and the spine. The same bytes every time.
constexpr int kChapters = 2000;
constexpr int kImages = 400;
constexpr std::size_t kImageSize = 230 * 1024;

inline void writeBenchmarkBook(const std::filesystem::path& path) {
  tomekeeper::testing::EpubBuilder book;
  std::mt19937_64 generator(2024);
  testing::PackageDescription package{.identifier = "urn:uuid:0f7a3c52-51f4-4d0e-9d55-3b8e4f61a2c7",
                                      .title = "Benchmark Book"};
  for (int chapter = 0; chapter < kChapters; ++chapter) {
    const std::string name = "chapter" + std::to_string(chapter);
    std::string text =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<html xmlns=\"http://www.w3.org/1999/xhtml\">"
        "<head><title>" +
        name + "</title></head><body><h1>Chapter " + std::to_string(chapter) + "</h1>\n";
    for (int paragraph = 0; paragraph < 40; ++paragraph) {
      text += "<p>Paragraph " + std::to_string(paragraph) + ": " + std::to_string(generator()) +
              " the river ran past the mill and the town slept under its bridges.</p>\n";
    }
    if (chapter < kImages)
      text += "<p><img src=\"../Images/image" + std::to_string(chapter) + ".jpg\" alt=\"\"/></p>";
    text += "</body></html>\n";
    book.addFile("OEBPS/Text/" + name + ".xhtml", text);
    package.manifest.push_back({name, "Text/" + name + ".xhtml"});
    package.spine.push_back(name);
  }
  for (int image = 0; image < kImages; ++image) {
    std::string bytes(kImageSize, '\0');
    for (std::size_t offset = 0; offset + 8 <= bytes.size(); offset += 8) {
      const std::uint64_t value = generator();
      std::copy_n(reinterpret_cast<const char*>(&value), 8, bytes.data() + offset);
    }
    const std::string name = "image" + std::to_string(image);
    book.addFile("OEBPS/Images/" + name + ".jpg", std::move(bytes),
                 tomekeeper::testing::ZipArchiveBuilder::kStored);
    package.manifest.push_back({name, "Images/" + name + ".jpg", "image/jpeg"});
  }
  book.withPackageDocument(package);
  book.writeTo(path);
}

}  // namespace tomekeeper::bench
