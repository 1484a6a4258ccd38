#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tomekeeper {

// Whether an archive entry names a directory (its raw name ends in "/").
enum class ArchiveEntryKind { file, directory };

// Paths that come from a book are refused, never cleaned: these functions
// answer with the normalised path or with nothing.

// True when `bytes` is well-formed UTF-8.
bool isWellFormedUTF8(std::string_view bytes);

// Checks a decoded entry name: no leading "/", backslash or NUL; no empty, "."
// or ".." component (a directory's final "/" aside); no ":" in the first
// component. Gives the components joined by "/", without a trailing "/".
std::optional<std::string> validateArchiveEntryPath(std::string_view name, ArchiveEntryKind kind);

// Checks a rootfile's full-path: the same rules, except that the path may not
// be empty and a trailing "/" leaves an empty, refused, component.
std::optional<std::string> validateRootfilePath(std::string_view path);

// The form in which two paths are compared for collisions: Unicode canonical
// composition (NFC), then full lower-casing, both over the whole string.
// `validPath` must be well-formed UTF-8.
std::string foldArchivePath(std::string_view validPath);

}  // namespace tomekeeper
