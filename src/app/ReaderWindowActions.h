#pragma once

#include <gio/gio.h>

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "app/ActionTable.h"
#include "platform/GObjectHandle.h"

namespace tomekeeper {

// What the reader window's actions do. The reader window implements it; the actions table below
// names its members, so that each action is declared once. Main thread only.
class ReaderWindowCommands {
 public:
  virtual ~ReaderWindowCommands() = default;
  virtual void previousPage() = 0;
  virtual void nextPage() = 0;
  virtual void goBack() = 0;
  virtual void goForward() = 0;
  virtual void toggleSidebar() = 0;
  virtual void showContents() = 0;
  virtual void decreaseTextSize() = 0;
  virtual void increaseTextSize() = 0;
  virtual void search() = 0;
  virtual void toggleFullScreen() = 0;
  virtual void toggleReadingControls() = 0;
  virtual void toggleFonts() = 0;
  virtual void toggleBookmark() = 0;
  virtual void highlightSelection() = 0;
  virtual void showBookSafety() = 0;
  virtual void closeBook() = 0;
  virtual void exportHighlights() = 0;
  virtual void restoreReadingData() = 0;
  virtual void clearReadingData() = 0;
  // "contents", "bookmarks" or "highlights"; another name does nothing.
  virtual void showSidebarSection(std::string_view section) = 0;
  // The note sheet of the highlight with this id; an unknown id does nothing.
  virtual void editNote(std::string_view annotationID) = 0;
  // The reading options: the raw value chosen, and the raw value the session holds.
  virtual void chooseReadingTheme(std::string_view value) = 0;
  virtual void chooseReadingMode(std::string_view value) = 0;
  virtual void choosePageLayout(std::string_view value) = 0;
  virtual void chooseScrollWidth(std::string_view value) = 0;
  virtual std::string readingTheme() const = 0;
  virtual std::string readingMode() const = 0;
  virtual std::string pageLayout() const = 0;
  virtual std::string scrollWidth() const = 0;
};

// Where an action's title shows: nowhere but the shortcuts window (or not at all without keys),
// the main menu's Reading submenu, or the Book Actions of the reading options menu.
enum class ReaderWindowMenu { none, reading, book };

// One window action "win.<name>" (ActionTable.h).
using ReaderWindowAction = WidgetAction<ReaderWindowCommands, ReaderWindowMenu>;

// The reader window's actions, in the order of their menus.
std::span<const ReaderWindowAction> readerWindowActions();

// Installs every action of the table on `map` (the window), each calling `commands`, which must
// outlive the actions' use; the caller keeps the returned actions.
std::vector<GObjectHandle<GSimpleAction>> installReaderWindowActions(
    GActionMap* map, ReaderWindowCommands& commands);

}  // namespace tomekeeper
