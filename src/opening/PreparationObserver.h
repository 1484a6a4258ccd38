#pragma once

#include <functional>
#include <string>

namespace tomekeeper {

// Told how the preparation of a book not yet extracted goes, while it goes: the coordinator
// shows the book's window from the first and its progress inside it. Both are called on the
// thread that reads the file (never the main executor), may be empty, and must not throw.
struct PreparationObserver {
  // Once, as soon as the package document is known: its path in the archive and its bytes.
  // Not called for a book whose package document cannot be read ahead (the preparation itself
  // then says what is wrong), nor for one that needs no reading of its file.
  std::function<void(const std::string& path, const std::string& document)> packageDocumentRead;
  // The share of the file read so far, from 0 to 1, often.
  std::function<void(double fraction)> progressed;
};

}  // namespace tomekeeper
