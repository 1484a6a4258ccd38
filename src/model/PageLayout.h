#pragma once

#include "model/StringEnumeration.h"

namespace tomekeeper {

// How many pages stand side by side in paginated mode; adaptive lets the window width decide.
enum class PageLayout { adaptive, singlePage, doublePage };

TOMEKEEPER_STRING_ENUMERATION(PageLayout, "PageLayout", "adaptive", "singlePage", "doublePage")

}  // namespace tomekeeper
