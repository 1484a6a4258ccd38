#pragma once

#include <filesystem>
#include <system_error>

namespace tomekeeper {

// Moves `from` to `to` in one step, failing with EEXIST when `to` exists, even
// as an empty directory (which a plain rename would silently replace). Two
// operations racing for one name thus have exactly one winner.
void moveWithoutReplacing(const std::filesystem::path& from, const std::filesystem::path& to,
                          std::error_code& error) noexcept;

// Standardised form of a path: absolute and lexically normal, without a
// trailing separator.
std::filesystem::path standardised(const std::filesystem::path& path);

}  // namespace tomekeeper
