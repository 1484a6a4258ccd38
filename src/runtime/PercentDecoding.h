#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tomekeeper {

// `text` with every "%XX" replaced by the byte it names. Absent when a "%" is not followed by
// two hexadecimal digits, when the text holds the byte 0 or a sequence decodes to it (no path
// may hold it), or when
// the decoded bytes are not valid UTF-8. Other characters pass unchanged. Pure; any thread.
std::optional<std::string> percentDecoded(std::string_view text);

}  // namespace tomekeeper
