#pragma once

namespace tomekeeper {

// The way a page or navigation key asks the reader to move.
enum class ReaderNavigationDirection { previous, next };

}  // namespace tomekeeper
