#pragma once

#include "async/Failure.h"

namespace tomekeeper {

// A typography value outside the range the reader accepts. It has no text of
// its own: the user sees the general reader failure.
TOMEKEEPER_FAILURE(ReaderTypographyFailure, invalidFontScale, invalidLineHeight,
                   invalidLetterSpacing);

}  // namespace tomekeeper
