#pragma once

#include <gtk/gtk.h>

#include <sigc++/signal.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "library/LibraryCatalog.h"
#include "library/LibraryModel.h"
#include "views/LibraryBookItem.h"
#include "views/ViewSupport.h"

namespace tomekeeper {

// The names of the layouts and sort orders: the states of the view's actions and the values
// the application's settings keep.
const char* libraryLayoutName(LibraryLayout layout);
std::optional<LibraryLayout> libraryLayoutNamed(std::string_view name);
const char* librarySortOrderName(LibrarySortOrder order);
std::optional<LibrarySortOrder> librarySortOrderNamed(std::string_view name);

// What the library asks of the application.
struct LibraryCommands {
  // Opens an available book through the open road, from where its source bookmark resolved.
  std::function<void(const LibraryBook&)> open;
  // Asks the user for an unavailable book's file ("Locate…").
  std::function<void(const std::string& fingerprint)> locate;
};

// The library: every book the reader has opened, as a grid or a list (switchable), each with
// its cover, title, authors, progress (percentage and a thin bar) and when it was last read;
// a search field that filters by title and author as one types (typing anywhere in the view
// goes to it, Ctrl+F focuses it, Enter there opens the first book shown); a sort menu (Last
// Read, Title, Author). Activating a book (Enter, a double click) opens it, or asks for its file
// when it is unavailable. Each book's menu holds "Open" or "Locate…" and "Remove from Library…",
// which asks the question "Delete Reading History" asks of an open book before deleting its
// reading data (removeFromLibrary).
//
// The view's actions are in the group "library": sort and layout (string states "last-read",
// "title", "author"; "grid", "list"), and open, locate and remove, each with a fingerprint.
//
// Main executor only; not movable, since its widgets call back into it. Loads run on the
// background pool and are dropped when the view has gone.
class LibraryView {
 public:
  LibraryView(LibraryLocations locations, std::shared_ptr<SecurityScopedBookmarkCoding> codec,
              LibraryCommands commands);
  ~LibraryView();
  LibraryView(const LibraryView&) = delete;
  LibraryView& operator=(const LibraryView&) = delete;

  GtkWidget* widget() const noexcept { return root_.get(); }

  // Reads the books again and shows them; `loaded` follows.
  void reload();
  // After each load, with the number of books in the library (whatever the filter).
  sigc::signal<void(std::size_t)> loaded;

  void setLayout(LibraryLayout layout);
  LibraryLayout layout() const noexcept { return layout_; }
  void setSortOrder(LibrarySortOrder order);
  LibrarySortOrder sortOrder() const noexcept { return model_.sortOrder(); }
  // After the layout or the sort order changed, whether the reader chose it (the actions) or
  // the application did (the setters).
  sigc::signal<void()> presentationChanged;
  const LibraryModel& model() const noexcept { return model_; }
  // The covers of the grid's books.
  const LibraryCoverCache& covers() const noexcept { return gridCovers_; }

  // Opens the book (or asks for its file when unavailable), as activating it does.
  void activate(const std::string& fingerprint);
  // Asks before removing the book; the destructive answer removes it and reloads.
  void presentRemoveConfirmation(const std::string& fingerprint);
  GtkWidget* removeConfirmation() const noexcept { return removeDialog_.get(); }

  GtkWidget* searchEntry() const noexcept { return searchEntry_; }
  GtkWidget* gridView() const noexcept { return gridView_; }
  GtkWidget* listView() const noexcept { return listView_; }

 private:
  void setUpActions();
  GtkWidget* makeToolbar();
  GtkWidget* makeBookView(LibraryLayout layout);
  void showBooks();
  // How many books fill the view's screen in the current layout; rather more than fewer.
  std::size_t firstScreenBookCount() const;
  // Puts visibleBooks()[from, to) in place of `removed` shown books at `position`.
  void replaceShownBooks(guint position, guint removed, std::size_t from, std::size_t to);
  void showEmptyOrBooks();

  static void onSearchChanged(GtkSearchEntry* entry, gpointer self);
  static void onSearchActivate(GtkSearchEntry* entry, gpointer self);
  static void onStopSearch(GtkSearchEntry* entry, gpointer self);
  static void onActivatePosition(GtkWidget* view, guint position, gpointer self);
  static void onSetUpGridItem(GtkListItemFactory* factory, GtkListItem* item, gpointer self);
  static void onSetUpListItem(GtkListItemFactory* factory, GtkListItem* item, gpointer self);
  static void onBindGridItem(GtkListItemFactory* factory, GtkListItem* item, gpointer self);
  static void onBindListItem(GtkListItemFactory* factory, GtkListItem* item, gpointer self);
  static void onMap(GtkWidget* widget, gpointer self);
  static void onAfterPaint(GdkFrameClock* clock, gpointer self);
  static void onRemoveResponse(GtkWidget* dialog, const char* response, gpointer self);

  LibraryLocations locations_;
  std::shared_ptr<SecurityScopedBookmarkCoding> codec_;
  LibraryCommands commands_;
  LibraryModel model_;
  LibraryCoverCache gridCovers_{kGridCoverWidth, kGridCoverHeight};
  LibraryCoverCache listCovers_{kListCoverWidth, kListCoverHeight};
  LibraryLayout layout_ = LibraryLayout::grid;
  std::string pendingRemoval_;
  // Books shown at once when the view's size is not known yet; the rest follow after the first
  // frame. More than a screen holds.
  static constexpr std::size_t kFirstScreenBooks = 40;
  // Until the frame that shows the first screen's books has been painted (or, before that, the
  // view is mapped).
  views::SignalConnection afterPaint_;

  views::WidgetHandle root_;
  GtkWidget* searchEntry_ = nullptr;
  GtkWidget* stack_ = nullptr;
  GtkWidget* gridView_ = nullptr;
  GtkWidget* listView_ = nullptr;
  GListStore* books_ = nullptr;  // owned by the selection models
  GObjectHandle<GtkSelectionModel> gridSelection_;
  GObjectHandle<GtkSelectionModel> listSelection_;
  GSimpleActionGroup* actions_ = nullptr;
  views::WidgetHandle removeDialog_;
  views::ViewConnections connections_;
  std::shared_ptr<LibraryView*> lifetime_;
};

}  // namespace tomekeeper
