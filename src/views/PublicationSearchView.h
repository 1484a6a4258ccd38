#pragma once

#include <gtk/gtk.h>

#include <memory>
#include <stop_token>
#include <vector>

#include "runtime/BridgeMessages.h"
#include "session/ReaderSession.h"
#include "views/ViewSupport.h"

namespace tomekeeper {

// Whether a search result can be taken back to its place in the book: the runtime gives a
// result a range CFI; one without can't be resolved and is shown as such. Pure.
bool searchResultIsResolvable(const PublicationSearchResult& result);

// The full-text search panel, 280 pixels wide: a field "Find text" with "Search", a progress
// row with "Cancel" while the search runs, the count of results ("No Results" after a search that
// ran to its end and found nothing) and their list. It shows the
// session's `searchResults`, `activeSearchID` and `isSearchComplete` and calls its search
// commands; it keeps the session alive. Main executor only; not movable, since its widgets
// call back into it.
class PublicationSearchView {
 public:
  // `windowLifetime` is the token of the window that shows the view: its commands stop when
  // the window closes.
  explicit PublicationSearchView(std::shared_ptr<ReaderSession> session,
                                 std::stop_token windowLifetime = {});
  ~PublicationSearchView();
  PublicationSearchView(const PublicationSearchView&) = delete;
  PublicationSearchView& operator=(const PublicationSearchView&) = delete;

  GtkWidget* widget() const noexcept { return root_.get(); }

  // Starts a search for what the field holds, as "Search" and Enter in the field do.
  void search();

  GtkEditable* queryField() const noexcept { return GTK_EDITABLE(queryField_); }
  GtkWidget* searchButton() const noexcept { return searchButton_; }
  GtkWidget* progressRow() const noexcept { return progressRow_; }
  GtkWidget* cancelButton() const noexcept { return cancelButton_; }
  GtkWidget* resultCountLabel() const noexcept { return resultCountLabel_; }
  GtkListBox* resultList() const noexcept { return resultList_; }

 private:
  void showProgress();
  void showResults();
  void chooseResult(int index);

  static void onSearch(GtkWidget* widget, gpointer self);
  static void onCancel(GtkButton* button, gpointer self);
  static void onResultActivated(GtkListBox* list, GtkListBoxRow* row, gpointer self);

  std::shared_ptr<ReaderSession> session_;
  std::stop_token windowLifetime_;
  views::WidgetHandle root_;
  GtkWidget* queryField_ = nullptr;
  GtkWidget* searchButton_ = nullptr;
  GtkWidget* progressRow_ = nullptr;
  GtkWidget* cancelButton_ = nullptr;
  GtkWidget* resultCountLabel_ = nullptr;
  GtkListBox* resultList_ = nullptr;
  std::vector<PublicationSearchResult> shownResults_;
  // A search runs; the reader (or a new search) asked for it to stop; the last one ran to its end.
  bool searchIsRunning_ = false;
  bool stopWasAsked_ = false;
  bool searchEnded_ = false;
  views::ViewConnections connections_;
};

}  // namespace tomekeeper
