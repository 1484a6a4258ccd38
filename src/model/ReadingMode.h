#pragma once

#include "model/StringEnumeration.h"

namespace tomekeeper {

// How the book flows: page by page, or as one scrolled column.
enum class ReadingMode { paginated, scrolled };

TOMEKEEPER_STRING_ENUMERATION(ReadingMode, "ReadingMode", "paginated", "scrolled")

}  // namespace tomekeeper
