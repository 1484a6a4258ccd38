#pragma once

#include <filesystem>
#include <system_error>

namespace tomekeeper {

// Moves `from` to `to` in one step, failing with EEXIST when `to` exists, even
// as an empty directory (which a plain rename would silently replace). Two
// operations racing for one name thus have exactly one winner. Where the file system refuses
// that kind of move (EINVAL on NFS and ecryptfs), falls back to a plain rename after checking
// that `to` is free; only an empty directory made at `to` in that instant could be replaced.
void moveWithoutReplacing(const std::filesystem::path& from, const std::filesystem::path& to,
                          std::error_code& error) noexcept;

// Standardised form of a path: absolute and lexically normal, without a
// trailing separator.
std::filesystem::path standardised(const std::filesystem::path& path);

}  // namespace tomekeeper
