#pragma once

#include <optional>
#include <string>
#include <vector>

#include "runtime/PublicationSafetyScan.h"

namespace tomekeeper {

// What the "Book Safety" window says of a book: a heading line, then one line per kind of
// attempt that its documents make (all of them blocked), in a fixed order. A book that tries
// nothing gets one line that says so. References to files the manifest leaves out count among
// the attempts: the reader does not load those files. What the book's intake found (obfuscated
// fonts) comes last; it is no attempt.
std::vector<std::string> bookSafetyLines(const PublicationSafetyReport& report);

// The quiet note shown when a book opens that tried to run script or reach the web; none for a
// book that tried neither.
std::optional<std::string> bookSafetyToast(const PublicationSafetyReport& report);

}  // namespace tomekeeper
