#pragma once

#include <algorithm>
#include <filesystem>
#include <string>

namespace tomekeeper {

// Whether `file` is named as an EPUB: its extension is ".epub" in any case of ASCII letters. The
// one test of a file's name that the open panel, a drop, the recent files and the open
// registry all make.
inline bool hasEPUBExtension(const std::filesystem::path& file) {
  std::string extension = file.extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(), [](unsigned char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a')
                                          : static_cast<char>(letter);
  });
  return extension == ".epub";
}

}  // namespace tomekeeper
