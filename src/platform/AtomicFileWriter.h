#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace tomekeeper {

// Replaces the file at `path` with `contents` so that, whatever happens and
// even across a power loss, the path holds either the old file whole or the
// new one whole: the bytes go to a temporary file in the same directory,
// which is synced, renamed over `path`, and then the directory is synced.
// The parent directory must exist. Throws std::system_error; on any failure
// the temporary file is removed and `path` is untouched. Blocking: call off
// the main executor. Readers never see the temporary names, which start with
// "." and end in ".tmp-XXXXXX".
void writeFileAtomically(const std::filesystem::path& path, std::string_view contents);

// Reads the whole of a regular file. Gives nothing when no file exists at
// `path` (it is missing, or a component of the path is not a directory);
// throws std::system_error for any other failure, a directory or a FIFO at
// `path` included. Blocking.
std::optional<std::string> readWholeFile(const std::filesystem::path& path);

}  // namespace tomekeeper
