#pragma once

#include "model/StringEnumeration.h"

namespace tomekeeper {

// The width of the text column in scrolled mode.
enum class ScrolledContentWidth { narrow, comfortable, wide };

TOMEKEEPER_STRING_ENUMERATION(ScrolledContentWidth, "ScrolledContentWidth", "narrow", "comfortable",
                              "wide")

}  // namespace tomekeeper
