#pragma once

#include <filesystem>
#include <optional>

namespace tomekeeper {

// The application's resource directory: `<prefix>/share/tomekeeper` beside an installed
// `<prefix>/bin/tomekeeper`, or `share/tomekeeper` of the build tree for the executable the
// build made. Found from /proc/self/exe; absent when neither holds the reader runtime page.
std::optional<std::filesystem::path> applicationResourceDirectory();

// The reader runtime page's directory inside the resource directory.
std::optional<std::filesystem::path> readerRuntimeDirectory();

}  // namespace tomekeeper
