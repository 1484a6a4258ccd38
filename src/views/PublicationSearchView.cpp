#include "views/PublicationSearchView.h"

#include <string>

#include "views/SessionCommand.h"

namespace tomekeeper {

bool searchResultIsResolvable(const PublicationSearchResult& result) {
  return result.locator.cfi.has_value() && !result.locator.cfi->empty();
}

PublicationSearchView::PublicationSearchView(std::shared_ptr<ReaderSession> session)
    : session_(std::move(session)) {
  GtkWidget* root = gtk_box_new(GTK_ORIENTATION_VERTICAL, 8);
  root_ = views::WidgetHandle::adopt(root);
  gtk_widget_set_size_request(root, 280, -1);
  gtk_widget_set_margin_start(root, 12);
  gtk_widget_set_margin_end(root, 12);
  gtk_widget_set_margin_top(root, 12);
  gtk_widget_set_margin_bottom(root, 12);

  gtk_box_append(GTK_BOX(root), views::makeLabel("Search This Book", {"heading"}));

  GtkWidget* queryRow = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 6);
  queryField_ = gtk_search_entry_new();
  g_object_set(queryField_, "placeholder-text", "Find text", nullptr);
  views::setAccessibleLabel(queryField_, "Find text");
  gtk_widget_set_hexpand(queryField_, TRUE);
  connections_.add(queryField_, "activate", G_CALLBACK(onSearch), this);
  searchButton_ = views::makeTextButton("Search");
  connections_.add(searchButton_, "clicked", G_CALLBACK(onSearch), this);
  gtk_box_append(GTK_BOX(queryRow), queryField_);
  gtk_box_append(GTK_BOX(queryRow), searchButton_);
  gtk_box_append(GTK_BOX(root), queryRow);

  progressRow_ = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 6);
  GtkWidget* spinner = gtk_spinner_new();
  gtk_spinner_start(GTK_SPINNER(spinner));
  GtkWidget* searching = views::makeLabel("Searching\u2026", {"dim-label"});
  gtk_widget_set_hexpand(searching, TRUE);
  cancelButton_ = views::makeTextButton("Cancel");
  connections_.add(cancelButton_, "clicked", G_CALLBACK(onCancel), this);
  gtk_box_append(GTK_BOX(progressRow_), spinner);
  gtk_box_append(GTK_BOX(progressRow_), searching);
  gtk_box_append(GTK_BOX(progressRow_), cancelButton_);
  gtk_box_append(GTK_BOX(root), progressRow_);

  resultCountLabel_ = views::makeLabel("", {"caption", "dim-label"});
  gtk_box_append(GTK_BOX(root), resultCountLabel_);

  GtkWidget* list = gtk_list_box_new();
  resultList_ = GTK_LIST_BOX(list);
  gtk_list_box_set_selection_mode(resultList_, GTK_SELECTION_NONE);
  gtk_list_box_set_activate_on_single_click(resultList_, TRUE);
  views::setAccessibleLabel(list, "Search Results");
  connections_.add(list, "row-activated", G_CALLBACK(onResultActivated), this);
  GtkWidget* scroller = gtk_scrolled_window_new();
  gtk_scrolled_window_set_policy(GTK_SCROLLED_WINDOW(scroller), GTK_POLICY_NEVER,
                                 GTK_POLICY_AUTOMATIC);
  gtk_scrolled_window_set_child(GTK_SCROLLED_WINDOW(scroller), list);
  gtk_scrolled_window_set_propagate_natural_height(GTK_SCROLLED_WINDOW(scroller), TRUE);
  gtk_scrolled_window_set_max_content_height(GTK_SCROLLED_WINDOW(scroller), 360);
  gtk_box_append(GTK_BOX(root), scroller);

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
  std::string query = gtk_editable_get_text(GTK_EDITABLE(queryField_));
  views::runSessionCommand(session_, [query = std::move(query)](ReaderSession& session) {
    return session.startSearch(query);
  });
}

void PublicationSearchView::showProgress() {
  gtk_widget_set_visible(progressRow_, !session_->isSearchComplete().value());
}

void PublicationSearchView::showResults() {
  shownResults_ = session_->searchResults().value();
  gtk_widget_set_visible(resultCountLabel_, !shownResults_.empty());
  views::setLabelText(resultCountLabel_, std::to_string(shownResults_.size()) + " results");
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
      session_, [result](ReaderSession& session) { return session.goToSearchResult(result); });
}

void PublicationSearchView::onSearch(GtkWidget*, gpointer self) {
  static_cast<PublicationSearchView*>(self)->search();
}

void PublicationSearchView::onCancel(GtkButton*, gpointer self) {
  views::runSessionCommand(static_cast<PublicationSearchView*>(self)->session_,
                           [](ReaderSession& session) { return session.cancelSearch(); });
}

void PublicationSearchView::onResultActivated(GtkListBox*, GtkListBoxRow* row, gpointer self) {
  static_cast<PublicationSearchView*>(self)->chooseResult(gtk_list_box_row_get_index(row));
}

}  // namespace tomekeeper
