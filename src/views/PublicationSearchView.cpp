#include "views/PublicationSearchView.h"

#include <string>

#include "views/SessionCommand.h"
#include "views/ViewResources.h"

namespace tomekeeper {

bool searchResultIsResolvable(const PublicationSearchResult& result) {
  return result.locator.cfi.has_value() && !result.locator.cfi->empty();
}

PublicationSearchView::PublicationSearchView(std::shared_ptr<ReaderSession> session,
                                             std::stop_token windowLifetime)
    : session_(std::move(session)), windowLifetime_(std::move(windowLifetime)) {
  const views::ViewBuilder builder("PublicationSearchView.ui");
  root_ = builder.root("root");
  queryField_ = builder.widget("query_field");
  searchButton_ = builder.widget("search_button");
  progressRow_ = builder.widget("progress_row");
  cancelButton_ = builder.widget("cancel_button");
  resultCountLabel_ = builder.widget("result_count_label");
  resultList_ = GTK_LIST_BOX(builder.widget("result_list"));

  connections_.add(queryField_, "activate", G_CALLBACK(onSearch), this);
  connections_.add(searchButton_, "clicked", G_CALLBACK(onSearch), this);
  connections_.add(cancelButton_, "clicked", G_CALLBACK(onCancel), this);
  connections_.add(resultList_, "row-activated", G_CALLBACK(onResultActivated), this);

  connections_.add(session_->isSearchComplete().changed().connect([this] { showProgress(); }));
  connections_.add(session_->activeSearchID().changed().connect([this] { showProgress(); }));
  connections_.add(session_->searchResults().changed().connect([this] { showResults(); }));
  showProgress();
  showResults();
}

PublicationSearchView::~PublicationSearchView() {
  connections_.disconnectAll();
}

void PublicationSearchView::search() {
  // The search under way, if any, is cancelled first: that is no end of a search.
  stopWasAsked_ = true;
  searchEnded_ = false;
  showResults();
  std::string query = gtk_editable_get_text(GTK_EDITABLE(queryField_));
  views::runSessionCommand(
      session_,
      [query = std::move(query)](ReaderSession& session) { return session.startSearch(query); },
      windowLifetime_);
}

void PublicationSearchView::showProgress() {
  const bool complete = session_->isSearchComplete().value();
  gtk_widget_set_visible(progressRow_, !complete);
  if (!complete && !searchIsRunning_) {
    searchIsRunning_ = true;
    stopWasAsked_ = false;
    searchEnded_ = false;
  } else if (complete && searchIsRunning_) {
    searchIsRunning_ = false;
    searchEnded_ = !stopWasAsked_;
    stopWasAsked_ = false;
  }
  showResults();
}

void PublicationSearchView::showResults() {
  shownResults_ = session_->searchResults().value();
  const std::size_t count = shownResults_.size();
  gtk_widget_set_visible(resultCountLabel_, count != 0 || searchEnded_);
  views::setLabelText(resultCountLabel_, count == 0   ? std::string("No Results")
                                         : count == 1 ? std::string("1 result")
                                                      : std::to_string(count) + " results");
  views::removeAllRows(resultList_);
  for (const PublicationSearchResult& result : shownResults_) {
    GtkWidget* texts = gtk_box_new(GTK_ORIENTATION_VERTICAL, 2);
    gtk_widget_set_margin_start(texts, 6);
    gtk_widget_set_margin_end(texts, 6);
    gtk_widget_set_margin_top(texts, 6);
    gtk_widget_set_margin_bottom(texts, 6);
    GtkWidget* excerpt = views::makeLabel(result.excerpt);
    gtk_label_set_lines(GTK_LABEL(excerpt), 3);
    gtk_label_set_ellipsize(GTK_LABEL(excerpt), PANGO_ELLIPSIZE_END);
    gtk_box_append(GTK_BOX(texts), excerpt);
    if (!searchResultIsResolvable(result)) {
      gtk_box_append(GTK_BOX(texts),
                     views::makeLabel("Original location unavailable", {"caption", "warning"}));
    }
    gtk_list_box_append(resultList_, texts);
  }
}

void PublicationSearchView::chooseResult(int index) {
  if (index < 0 || static_cast<std::size_t>(index) >= shownResults_.size()) return;
  const PublicationSearchResult& result = shownResults_[static_cast<std::size_t>(index)];
  if (!searchResultIsResolvable(result)) return;
  views::runSessionCommand(
      session_, [result](ReaderSession& session) { return session.goToSearchResult(result); },
      windowLifetime_);
}

void PublicationSearchView::onSearch(GtkWidget*, gpointer self) {
  static_cast<PublicationSearchView*>(self)->search();
}

void PublicationSearchView::onCancel(GtkButton*, gpointer self) {
  static_cast<PublicationSearchView*>(self)->stopWasAsked_ = true;
  views::runSessionCommand(
      static_cast<PublicationSearchView*>(self)->session_,
      [](ReaderSession& session) { return session.cancelSearch(); },
      static_cast<PublicationSearchView*>(self)->windowLifetime_);
}

void PublicationSearchView::onResultActivated(GtkListBox*, GtkListBoxRow* row, gpointer self) {
  static_cast<PublicationSearchView*>(self)->chooseResult(gtk_list_box_row_get_index(row));
}

}  // namespace tomekeeper
