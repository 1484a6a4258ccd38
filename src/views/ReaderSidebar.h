#pragma once

#include <gtk/gtk.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "model/Annotation.h"
#include "model/Bookmark.h"
#include "model/TableOfContentsOutlineNode.h"
#include "session/ReaderSession.h"
#include "views/ViewSupport.h"

namespace tomekeeper {

// The segment chosen in the sidebar.
enum class SidebarSection { contents, bookmarks, highlights };

// The id of the contents entry of the chapter being read: the first entry, depth first, whose
// href (without its fragment) is the section `spineHref`; both are relative to the package
// directory. Absent when no entry points into that section. Pure.
std::optional<std::vector<std::int64_t>> currentContentsEntry(
    const std::vector<TableOfContentsOutlineNode>& outline, const std::string& spineHref);

// The reader screen's sidebar: a switcher titled "Reader Sidebar" over the contents tree, the
// bookmarks and the highlights, with "Previous Chapter" and "Next Chapter" below. The contents
// tree shows its levels with disclosures and keeps the chapter being read selected, its parents
// opened, as the reader moves. It shows the
// session's `tableOfContents`, `bookmarks`, `annotations` and `unresolvedAnnotationIDs` and
// calls its commands; the session outlives nothing here, it is kept alive by the sidebar.
//
// The context actions live in the action group "sidebar" on the root widget:
// "sidebar.delete-bookmark" and "sidebar.remove-highlight", each with the record's id as a
// string target. Main executor only; not movable, since its widgets call back into it.
class ReaderSidebar {
 public:
  // `windowLifetime` is the token of the window that shows the view: its commands stop when
  // the window closes.
  explicit ReaderSidebar(std::shared_ptr<ReaderSession> session,
                         std::stop_token windowLifetime = {});
  ~ReaderSidebar();
  ReaderSidebar(const ReaderSidebar&) = delete;
  ReaderSidebar& operator=(const ReaderSidebar&) = delete;

  // The root widget, owned by the sidebar; a parent adds its own reference.
  GtkWidget* widget() const noexcept { return root_.get(); }

  SidebarSection section() const;
  void setSection(SidebarSection section);

  // Shows `highlights` under "Not found in this edition" below the book's highlights, with
  // their quote and note, replacing what was shown there. They are the highlights of an earlier
  // edition that this one lacks: not the session's, never placed in the page, and kept only as
  // long as this sidebar.
  void showHighlightsNotFound(std::vector<Annotation> highlights);

  // The parts a test or an embedding window reaches for.
  GtkListView* contentsList() const noexcept { return contentsList_; }
  GtkListBox* bookmarkList() const noexcept { return bookmarkList_; }
  GtkListBox* highlightList() const noexcept { return highlightList_; }
  GtkListBox* notFoundList() const noexcept { return notFoundList_; }
  GtkWidget* previousChapterButton() const noexcept { return previousChapterButton_; }
  GtkWidget* nextChapterButton() const noexcept { return nextChapterButton_; }

 private:
  // Gives contentsList_ its tree model over contentsRoots_ and its row factory.
  void setUpContentsList();
  void installActions();

  void showContents();
  void showCurrentChapter();
  void arrangeChapterButtons();
  void showBookmarks();
  void showHighlights();
  // The list page while there are highlights of the book or not found; the empty page otherwise.
  void showHighlightPage();

  void activateContentsRow(guint position);
  void activateBookmarkRow(int index);
  void activateHighlightRow(int index);
  void deleteBookmark(const std::string& id);
  void removeHighlight(const std::string& id);

  static void onContentsActivate(GtkListView* list, guint position, gpointer self);
  static void onBookmarkRowActivated(GtkListBox* list, GtkListBoxRow* row, gpointer self);
  static void onHighlightRowActivated(GtkListBox* list, GtkListBoxRow* row, gpointer self);
  static void onSetupContentsRow(GtkSignalListItemFactory* factory, GtkListItem* item,
                                 gpointer self);
  static void onBindContentsRow(GtkSignalListItemFactory* factory, GtkListItem* item,
                                gpointer self);
  static void onDeleteBookmarkAction(GSimpleAction* action, GVariant* parameter, gpointer self);
  static void onRemoveHighlightAction(GSimpleAction* action, GVariant* parameter, gpointer self);
  static void onPreviousChapter(GtkButton* button, gpointer self);
  static void onNextChapter(GtkButton* button, gpointer self);

  std::shared_ptr<ReaderSession> session_;
  std::stop_token windowLifetime_;
  views::WidgetHandle root_;
  GtkStack* stack_ = nullptr;
  GListStore* contentsRoots_ = nullptr;              // Owned by the tree model of contentsList_.
  GtkSingleSelection* contentsSelection_ = nullptr;  // Owned by contentsList_.
  GtkListView* contentsList_ = nullptr;
  GtkStack* bookmarkPages_ = nullptr;
  GtkListBox* bookmarkList_ = nullptr;
  GtkStack* highlightPages_ = nullptr;
  GtkListBox* highlightList_ = nullptr;
  GtkWidget* notFoundHeading_ = nullptr;
  GtkListBox* notFoundList_ = nullptr;
  GtkWidget* previousChapterButton_ = nullptr;
  GtkWidget* nextChapterButton_ = nullptr;
  GObjectHandle<GSimpleActionGroup> actions_;
  // What the rows show, by row index.
  std::vector<Bookmark> shownBookmarks_;
  std::vector<Annotation> shownAnnotations_;
  std::vector<Annotation> highlightsNotFound_;
  views::ViewConnections connections_;
};

}  // namespace tomekeeper
