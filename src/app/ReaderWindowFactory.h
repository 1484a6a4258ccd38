#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/ShellWindow.h"
#include "app/WindowSession.h"

namespace tomekeeper {

// Everything a new reader window is made from.
struct ReaderWindowRequest {
  std::filesystem::path sourceURL;
  std::string fingerprint;  // The window's identifier.
  std::shared_ptr<WindowSession> session;
  WindowFrame frame;
  // Page Up and Page Down that the window's key filter classified; answers whether the key was
  // taken. Holds the session weakly.
  std::function<bool(ReaderNavigationDirection)> handlePaginationKey;
};

// Makes the coordinator's windows. Windows are not shown until present(). Main executor only.
class ReaderWindowFactory {
 public:
  virtual ~ReaderWindowFactory() = default;
  // The empty window that invites a drop, titled "Tomekeeper". `open` is called with each file
  // chosen or dropped there.
  virtual std::shared_ptr<ShellWindow> makeOpenDocumentWindow(
      ShellWindowDelegate& delegate, std::function<void(std::filesystem::path)> open) = 0;
  // A reader window, titled with the file name without its extension until the book is open.
  virtual std::shared_ptr<ShellWindow> makeReaderWindow(ShellWindowDelegate& delegate,
                                                        ReaderWindowRequest request) = 0;
};

}  // namespace tomekeeper
