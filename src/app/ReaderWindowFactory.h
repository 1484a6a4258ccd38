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
  // The window that makeOpeningWindow made for this book while it was prepared, if any. The
  // reader window takes its place on the screen: the same window, never closed, whose delegate
  // hears no windowWillClose for it; the handle does nothing from then on.
  std::shared_ptr<ShellWindow> openingWindow;
};

// The window of a book whose package document is known while the rest is still prepared.
struct OpeningWindowRequest {
  std::filesystem::path sourceURL;
  std::string title;
  WindowFrame frame;
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
  // A reader window for a book still being prepared, titled `request.title`, showing the
  // preparation's progress (ShellWindow::showOpenProgress). Its identifier is empty until a
  // reader window takes it over (ReaderWindowRequest::openingWindow).
  virtual std::shared_ptr<ShellWindow> makeOpeningWindow(ShellWindowDelegate& delegate,
                                                         OpeningWindowRequest request) = 0;
};

}  // namespace tomekeeper
