#pragma once

#include <filesystem>
#include <string_view>

namespace tomekeeper {

// The directory that holds the books' reading state (its Publications/ folder: positions,
// bookmarks, highlights and notes), from the `state-directory` setting. The setting lets that
// data live in a folder that a file-sync engine keeps; empty, it is `defaultDirectory` (the
// application's data directory). A leading "~/" stands for the home directory; anything that
// is not then an absolute path is ignored for the default, as a relative path would depend on
// where the application was started. The path is returned lexically normal; nothing is checked
// on disk. Any thread.
std::filesystem::path readingStateDirectory(std::string_view setting,
                                            const std::filesystem::path& defaultDirectory);

}  // namespace tomekeeper
