#include "views/ReaderSidebar.h"

#include <algorithm>
#include <string>
#include <vector>

#include "model/TableOfContentsOutlineNode.h"
#include "views/SessionCommand.h"
#include "views/ViewResources.h"
#include "views/ViewRow.h"

namespace tomekeeper {

namespace {

constexpr const char* kUnresolvedLocationText = "Original location unavailable";

const char* stackPageName(SidebarSection section) {
  switch (section) {
    case SidebarSection::contents:
      return "contents";
    case SidebarSection::bookmarks:
      return "bookmarks";
    case SidebarSection::highlights:
      return "highlights";
  }
  return "contents";
}

// The children of a contents row for the tree model, or none for a leaf (no disclosure).
GListModel* createContentsChildren(gpointer item, gpointer) {
  const auto& node = views::viewRowValueAs<TableOfContentsOutlineNode>(item);
  if (!node.children) return nullptr;
  GListStore* children = g_list_store_new(tomekeeper_view_row_get_type());
  for (const TableOfContentsOutlineNode& child : *node.children) {
    g_list_store_append(children, views::makeViewRow(child).get());
  }
  return G_LIST_MODEL(children);
}

void popUpRowMenu(GtkGestureClick* gesture, int, double, double, gpointer menuButton) {
  gtk_gesture_set_state(GTK_GESTURE(gesture), GTK_EVENT_SEQUENCE_CLAIMED);
  gtk_menu_button_popup(GTK_MENU_BUTTON(menuButton));
}

// A row with its texts in a column and a menu button holding its one context action, which a
// secondary click on the row opens too.
GtkWidget* makeRowWithMenu(GtkWidget* texts, const char* actionLabel, const char* actionName,
                           const std::string& target, const char* menuAccessibleLabel) {
  GtkWidget* box = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 6);
  gtk_widget_set_margin_start(box, 6);
  gtk_widget_set_margin_end(box, 6);
  gtk_widget_set_margin_top(box, 6);
  gtk_widget_set_margin_bottom(box, 6);
  gtk_widget_set_hexpand(texts, TRUE);
  gtk_box_append(GTK_BOX(box), texts);

  const auto menu = GObjectHandle<GMenu>::adopt(g_menu_new());
  const auto item = GObjectHandle<GMenuItem>::adopt(g_menu_item_new(actionLabel, nullptr));
  g_menu_item_set_action_and_target_value(item.get(), actionName,
                                          g_variant_new_string(target.c_str()));
  g_menu_append_item(menu.get(), item.get());
  GtkWidget* menuButton = gtk_menu_button_new();
  gtk_menu_button_set_icon_name(GTK_MENU_BUTTON(menuButton), "view-more-symbolic");
  gtk_menu_button_set_menu_model(GTK_MENU_BUTTON(menuButton), G_MENU_MODEL(menu.get()));
  gtk_widget_add_css_class(menuButton, "flat");
  gtk_widget_set_valign(menuButton, GTK_ALIGN_CENTER);
  gtk_widget_set_tooltip_text(menuButton, menuAccessibleLabel);
  views::setAccessibleLabel(menuButton, menuAccessibleLabel);
  gtk_box_append(GTK_BOX(box), menuButton);

  GtkWidget* row = gtk_list_box_row_new();
  gtk_list_box_row_set_child(GTK_LIST_BOX_ROW(row), box);
  GtkGesture* secondaryClick = gtk_gesture_click_new();
  gtk_gesture_single_set_button(GTK_GESTURE_SINGLE(secondaryClick), GDK_BUTTON_SECONDARY);
  g_signal_connect(secondaryClick, "pressed", G_CALLBACK(popUpRowMenu), menuButton);
  gtk_widget_add_controller(row, GTK_EVENT_CONTROLLER(secondaryClick));
  return row;
}

// A highlight's quote, with its note below it when it has one, in a column.
GtkWidget* makeQuoteAndNote(const Annotation& annotation) {
  GtkWidget* texts = gtk_box_new(GTK_ORIENTATION_VERTICAL, 2);
  GtkWidget* excerpt = views::makeLabel(annotation.selectedText);
  gtk_label_set_lines(GTK_LABEL(excerpt), 3);
  gtk_label_set_ellipsize(GTK_LABEL(excerpt), PANGO_ELLIPSIZE_END);
  gtk_box_append(GTK_BOX(texts), excerpt);
  if (annotation.note) {
    GtkWidget* note = views::makeLabel(*annotation.note, {"caption", "dim-label"});
    gtk_label_set_lines(GTK_LABEL(note), 2);
    gtk_label_set_ellipsize(GTK_LABEL(note), PANGO_ELLIPSIZE_END);
    gtk_box_append(GTK_BOX(texts), note);
  }
  return texts;
}

std::vector<std::int64_t> idOfRow(GListModel* rows, guint position) {
  auto row = GObjectHandle<GtkTreeListRow>::adopt(
      static_cast<GtkTreeListRow*>(g_list_model_get_item(rows, position)));
  auto item =
      GObjectHandle<GObject>::adopt(static_cast<GObject*>(gtk_tree_list_row_get_item(row.get())));
  return views::viewRowValueAs<TableOfContentsOutlineNode>(item.get()).id;
}

const TableOfContentsOutlineNode* findEntry(const std::vector<TableOfContentsOutlineNode>& nodes,
                                            const std::string& spineHref) {
  for (const TableOfContentsOutlineNode& node : nodes) {
    const std::string& href = node.item.href;
    if (href.substr(0, href.find('#')) == spineHref) return &node;
    if (node.children) {
      if (const TableOfContentsOutlineNode* found = findEntry(*node.children, spineHref)) {
        return found;
      }
    }
  }
  return nullptr;
}

}  // namespace

std::optional<std::vector<std::int64_t>> currentContentsEntry(
    const std::vector<TableOfContentsOutlineNode>& outline, const std::string& spineHref) {
  if (spineHref.empty()) return std::nullopt;
  const TableOfContentsOutlineNode* found = findEntry(outline, spineHref);
  if (found == nullptr) return std::nullopt;
  return found->id;
}

ReaderSidebar::ReaderSidebar(std::shared_ptr<ReaderSession> session, std::stop_token windowLifetime)
    : session_(std::move(session)), windowLifetime_(std::move(windowLifetime)) {
  const views::ViewBuilder builder("ReaderSidebar.ui");
  root_ = builder.root("root");
  stack_ = GTK_STACK(builder.widget("stack"));
  contentsList_ = GTK_LIST_VIEW(builder.widget("contents_list"));
  bookmarkPages_ = GTK_STACK(builder.widget("bookmark_pages"));
  bookmarkList_ = GTK_LIST_BOX(builder.widget("bookmark_list"));
  highlightPages_ = GTK_STACK(builder.widget("highlight_pages"));
  highlightList_ = GTK_LIST_BOX(builder.widget("highlight_list"));
  notFoundHeading_ = builder.widget("not_found_heading");
  notFoundList_ = GTK_LIST_BOX(builder.widget("not_found_list"));
  previousChapterButton_ = builder.widget("previous_chapter_button");
  nextChapterButton_ = builder.widget("next_chapter_button");
  setUpContentsList();
  connections_.add(bookmarkList_, "row-activated", G_CALLBACK(onBookmarkRowActivated), this);
  connections_.add(highlightList_, "row-activated", G_CALLBACK(onHighlightRowActivated), this);
  connections_.add(previousChapterButton_, "clicked", G_CALLBACK(onPreviousChapter), this);
  connections_.add(nextChapterButton_, "clicked", G_CALLBACK(onNextChapter), this);
  installActions();

  connections_.add(session_->tableOfContents().changed().connect([this] { showContents(); }));
  connections_.add(session_->locator().changed().connect([this] { showCurrentChapter(); }));
  connections_.add(session_->bookmarks().changed().connect([this] { showBookmarks(); }));
  connections_.add(session_->annotations().changed().connect([this] { showHighlights(); }));
  connections_.add(
      session_->unresolvedAnnotationIDs().changed().connect([this] { showHighlights(); }));
  connections_.add(session_->publication().changed().connect([this] { arrangeChapterButtons(); }));
  showContents();
  showBookmarks();
  showHighlights();
  arrangeChapterButtons();
}

// In a book read from right to left the chapter buttons stand the other way round: the next
// chapter on the left, its arrow pointing left (the icons have right-to-left forms).
void ReaderSidebar::arrangeChapterButtons() {
  const auto& publication = session_->publication().value();
  const bool readsFromRight = publication && publication->pageProgressionDirection == "rtl";
  // Set on every widget of the row: a widget without a direction of its own takes the
  // application's, not its parent's.
  std::vector<GtkWidget*> pending{gtk_widget_get_parent(previousChapterButton_)};
  while (!pending.empty()) {
    GtkWidget* widget = pending.back();
    pending.pop_back();
    gtk_widget_set_direction(widget, readsFromRight ? GTK_TEXT_DIR_RTL : GTK_TEXT_DIR_NONE);
    for (GtkWidget* child = gtk_widget_get_first_child(widget); child != nullptr;
         child = gtk_widget_get_next_sibling(child)) {
      pending.push_back(child);
    }
  }
}

ReaderSidebar::~ReaderSidebar() {
  connections_.disconnectAll();
  gtk_widget_insert_action_group(root_.get(), "sidebar", nullptr);
}

SidebarSection ReaderSidebar::section() const {
  const std::string name = gtk_stack_get_visible_child_name(stack_);
  if (name == "bookmarks") return SidebarSection::bookmarks;
  if (name == "highlights") return SidebarSection::highlights;
  return SidebarSection::contents;
}

void ReaderSidebar::setSection(SidebarSection section) {
  gtk_stack_set_visible_child_name(stack_, stackPageName(section));
}

void ReaderSidebar::setUpContentsList() {
  contentsRoots_ = g_list_store_new(tomekeeper_view_row_get_type());
  GtkTreeListModel* tree = gtk_tree_list_model_new(G_LIST_MODEL(contentsRoots_), FALSE, FALSE,
                                                   createContentsChildren, nullptr, nullptr);
  const auto selection =
      GObjectHandle<GtkSingleSelection>::adopt(gtk_single_selection_new(G_LIST_MODEL(tree)));
  gtk_single_selection_set_autoselect(selection.get(), FALSE);
  gtk_single_selection_set_can_unselect(selection.get(), TRUE);

  const auto factory = GObjectHandle<GtkListItemFactory>::adopt(gtk_signal_list_item_factory_new());
  connections_.add(factory.get(), "setup", G_CALLBACK(onSetupContentsRow), this);
  connections_.add(factory.get(), "bind", G_CALLBACK(onBindContentsRow), this);
  gtk_list_view_set_model(contentsList_, GTK_SELECTION_MODEL(selection.get()));
  contentsSelection_ = selection.get();
  gtk_list_view_set_factory(contentsList_, factory.get());
  connections_.add(contentsList_, "activate", G_CALLBACK(onContentsActivate), this);
}

void ReaderSidebar::installActions() {
  actions_ = GObjectHandle<GSimpleActionGroup>::adopt(g_simple_action_group_new());
  const auto add = [this](const char* name, GCallback callback) {
    const auto action =
        GObjectHandle<GSimpleAction>::adopt(g_simple_action_new(name, G_VARIANT_TYPE_STRING));
    connections_.add(action.get(), "activate", callback, this);
    g_action_map_add_action(G_ACTION_MAP(actions_.get()), G_ACTION(action.get()));
  };
  add("delete-bookmark", G_CALLBACK(onDeleteBookmarkAction));
  add("remove-highlight", G_CALLBACK(onRemoveHighlightAction));
  gtk_widget_insert_action_group(root_.get(), "sidebar", G_ACTION_GROUP(actions_.get()));
}

void ReaderSidebar::showContents() {
  g_list_store_remove_all(contentsRoots_);
  for (const TableOfContentsOutlineNode& node : session_->tableOfContentsOutline()) {
    g_list_store_append(contentsRoots_, views::makeViewRow(node).get());
  }
  showCurrentChapter();
}

void ReaderSidebar::showCurrentChapter() {
  const std::optional<Locator>& locator = session_->locator().value();
  const std::optional<std::vector<std::int64_t>> current =
      locator ? currentContentsEntry(session_->tableOfContentsOutline(), locator->spineHref)
              : std::nullopt;
  GListModel* rows = G_LIST_MODEL(contentsSelection_);
  if (!current) {
    gtk_single_selection_set_selected(contentsSelection_, GTK_INVALID_LIST_POSITION);
    return;
  }
  // Down the entry's path, opening each parent on the way, so that its row exists.
  guint position = GTK_INVALID_LIST_POSITION;
  for (std::size_t depth = 1; depth <= current->size(); ++depth) {
    const std::vector<std::int64_t> prefix(current->begin(),
                                           current->begin() + static_cast<long>(depth));
    const guint start = position == GTK_INVALID_LIST_POSITION ? 0 : position;
    position = GTK_INVALID_LIST_POSITION;
    for (guint index = start; index < g_list_model_get_n_items(rows); ++index) {
      if (idOfRow(rows, index) == prefix) {
        position = index;
        break;
      }
    }
    if (position == GTK_INVALID_LIST_POSITION) break;
    if (depth < current->size()) {
      auto row = GObjectHandle<GtkTreeListRow>::adopt(
          static_cast<GtkTreeListRow*>(g_list_model_get_item(rows, position)));
      gtk_tree_list_row_set_expanded(row.get(), TRUE);
    }
  }
  gtk_single_selection_set_selected(contentsSelection_, position);
  if (position != GTK_INVALID_LIST_POSITION) {
    gtk_widget_activate_action(GTK_WIDGET(contentsList_), "list.scroll-to-item", "u", position);
  }
}

void ReaderSidebar::showBookmarks() {
  shownBookmarks_ = session_->bookmarks().value();
  views::removeAllRows(bookmarkList_);
  for (const Bookmark& bookmark : shownBookmarks_) {
    GtkWidget* title = views::makeLabel(bookmark.title);
    gtk_label_set_wrap(GTK_LABEL(title), FALSE);
    gtk_label_set_ellipsize(GTK_LABEL(title), PANGO_ELLIPSIZE_END);
    gtk_list_box_append(bookmarkList_,
                        makeRowWithMenu(title, "Delete Bookmark", "sidebar.delete-bookmark",
                                        bookmark.id.string(), "Bookmark Actions"));
  }
  gtk_stack_set_visible_child_name(bookmarkPages_, shownBookmarks_.empty() ? "empty" : "list");
}

void ReaderSidebar::showHighlights() {
  shownAnnotations_ = session_->annotations().value();
  const std::set<Uuid>& unresolved = session_->unresolvedAnnotationIDs().value();
  views::removeAllRows(highlightList_);
  for (const Annotation& annotation : shownAnnotations_) {
    GtkWidget* texts = makeQuoteAndNote(annotation);
    if (unresolved.contains(annotation.id)) {
      GtkWidget* warning = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 4);
      gtk_box_append(GTK_BOX(warning), gtk_image_new_from_icon_name("dialog-warning-symbolic"));
      gtk_box_append(GTK_BOX(warning), views::makeLabel(kUnresolvedLocationText, {"caption"}));
      gtk_widget_add_css_class(warning, "warning");
      gtk_box_append(GTK_BOX(texts), warning);
    }
    gtk_list_box_append(highlightList_,
                        makeRowWithMenu(texts, "Remove Highlight", "sidebar.remove-highlight",
                                        annotation.id.string(), "Highlight Actions"));
  }
  showHighlightPage();
}

void ReaderSidebar::showHighlightsNotFound(std::vector<Annotation> highlights) {
  highlightsNotFound_ = std::move(highlights);
  views::removeAllRows(notFoundList_);
  for (const Annotation& annotation : highlightsNotFound_) {
    GtkWidget* texts = makeQuoteAndNote(annotation);
    gtk_widget_set_margin_start(texts, 6);
    gtk_widget_set_margin_end(texts, 6);
    gtk_widget_set_margin_top(texts, 6);
    gtk_widget_set_margin_bottom(texts, 6);
    GtkWidget* row = gtk_list_box_row_new();
    gtk_list_box_row_set_child(GTK_LIST_BOX_ROW(row), texts);
    // There is nowhere in this edition to go to.
    gtk_list_box_row_set_activatable(GTK_LIST_BOX_ROW(row), FALSE);
    gtk_list_box_append(notFoundList_, row);
  }
  const bool shown = !highlightsNotFound_.empty();
  gtk_widget_set_visible(notFoundHeading_, shown);
  gtk_widget_set_visible(GTK_WIDGET(notFoundList_), shown);
  showHighlightPage();
}

void ReaderSidebar::showHighlightPage() {
  const bool empty = shownAnnotations_.empty() && highlightsNotFound_.empty();
  gtk_stack_set_visible_child_name(highlightPages_, empty ? "empty" : "list");
}

void ReaderSidebar::activateContentsRow(guint position) {
  auto row = GObjectHandle<GtkTreeListRow>::adopt(static_cast<GtkTreeListRow*>(
      g_list_model_get_item(G_LIST_MODEL(gtk_list_view_get_model(contentsList_)), position)));
  if (!row) return;
  auto item =
      GObjectHandle<GObject>::adopt(static_cast<GObject*>(gtk_tree_list_row_get_item(row.get())));
  const auto& node = views::viewRowValueAs<TableOfContentsOutlineNode>(item.get());
  views::runSessionCommand(
      session_,
      [href = node.item.href](ReaderSession& session) {
        return session.goToTableOfContentsEntry(href);
      },
      windowLifetime_);
}

void ReaderSidebar::activateBookmarkRow(int index) {
  if (index < 0 || static_cast<std::size_t>(index) >= shownBookmarks_.size()) return;
  views::runSessionCommand(
      session_,
      [bookmark = shownBookmarks_[index]](ReaderSession& session) {
        return session.goToBookmark(bookmark);
      },
      windowLifetime_);
}

void ReaderSidebar::activateHighlightRow(int index) {
  if (index < 0 || static_cast<std::size_t>(index) >= shownAnnotations_.size()) return;
  views::runSessionCommand(
      session_,
      [annotation = shownAnnotations_[index]](ReaderSession& session) {
        return session.goToAnnotation(annotation);
      },
      windowLifetime_);
}

void ReaderSidebar::deleteBookmark(const std::string& id) {
  const auto found =
      std::find_if(shownBookmarks_.begin(), shownBookmarks_.end(),
                   [&](const Bookmark& bookmark) { return bookmark.id.string() == id; });
  if (found == shownBookmarks_.end()) return;
  views::runSessionCommand(
      session_,
      [bookmark = *found](ReaderSession& session) { return session.removeBookmark(bookmark); },
      windowLifetime_);
}

void ReaderSidebar::removeHighlight(const std::string& id) {
  if (const auto uuid = Uuid::fromString(id)) session_->requestAnnotationRemoval(*uuid);
}

void ReaderSidebar::onContentsActivate(GtkListView*, guint position, gpointer self) {
  static_cast<ReaderSidebar*>(self)->activateContentsRow(position);
}

void ReaderSidebar::onBookmarkRowActivated(GtkListBox*, GtkListBoxRow* row, gpointer self) {
  static_cast<ReaderSidebar*>(self)->activateBookmarkRow(gtk_list_box_row_get_index(row));
}

void ReaderSidebar::onHighlightRowActivated(GtkListBox*, GtkListBoxRow* row, gpointer self) {
  static_cast<ReaderSidebar*>(self)->activateHighlightRow(gtk_list_box_row_get_index(row));
}

void ReaderSidebar::onSetupContentsRow(GtkSignalListItemFactory*, GtkListItem* item, gpointer) {
  GtkWidget* expander = gtk_tree_expander_new();
  GtkWidget* label = gtk_label_new(nullptr);
  gtk_label_set_xalign(GTK_LABEL(label), 0.0F);
  gtk_label_set_ellipsize(GTK_LABEL(label), PANGO_ELLIPSIZE_END);
  gtk_tree_expander_set_child(GTK_TREE_EXPANDER(expander), label);
  gtk_list_item_set_child(item, expander);
}

void ReaderSidebar::onBindContentsRow(GtkSignalListItemFactory*, GtkListItem* item, gpointer) {
  GtkTreeListRow* row = GTK_TREE_LIST_ROW(gtk_list_item_get_item(item));
  GtkWidget* expander = gtk_list_item_get_child(item);
  gtk_tree_expander_set_list_row(GTK_TREE_EXPANDER(expander), row);
  auto value =
      GObjectHandle<GObject>::adopt(static_cast<GObject*>(gtk_tree_list_row_get_item(row)));
  const auto& node = views::viewRowValueAs<TableOfContentsOutlineNode>(value.get());
  GtkWidget* label = gtk_tree_expander_get_child(GTK_TREE_EXPANDER(expander));
  views::setLabelText(label, node.item.title);
}

void ReaderSidebar::onDeleteBookmarkAction(GSimpleAction*, GVariant* parameter, gpointer self) {
  static_cast<ReaderSidebar*>(self)->deleteBookmark(g_variant_get_string(parameter, nullptr));
}

void ReaderSidebar::onRemoveHighlightAction(GSimpleAction*, GVariant* parameter, gpointer self) {
  static_cast<ReaderSidebar*>(self)->removeHighlight(g_variant_get_string(parameter, nullptr));
}

void ReaderSidebar::onPreviousChapter(GtkButton*, gpointer self) {
  views::runSessionCommand(
      static_cast<ReaderSidebar*>(self)->session_,
      [](ReaderSession& session) { return session.previousSection(); },
      static_cast<ReaderSidebar*>(self)->windowLifetime_);
}

void ReaderSidebar::onNextChapter(GtkButton*, gpointer self) {
  views::runSessionCommand(
      static_cast<ReaderSidebar*>(self)->session_,
      [](ReaderSession& session) { return session.nextSection(); },
      static_cast<ReaderSidebar*>(self)->windowLifetime_);
}

}  // namespace tomekeeper
