#pragma once

namespace tomekeeper {

// The way a page or navigation key asks the reader to move: in reading order, or toward a side
// of the screen, which the book's page progression turns into an order (Left reads on in a book
// that reads from right to left).
enum class ReaderNavigationDirection { previous, next, towardLeft, towardRight };

}  // namespace tomekeeper
