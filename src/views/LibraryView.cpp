#include "views/LibraryView.h"

#include <adwaita.h>

#include <algorithm>
#include <string_view>

#include "async/BackgroundPool.h"
#include "async/Spawn.h"
#include "views/ViewRow.h"

namespace tomekeeper {

namespace {

constexpr int kGridMaximumColumns = 8;
// Less than an item of each layout takes (the grid's from its widest label and its cover, the
// list's from its cover), so that the books counted for the first screen fill it.
constexpr int kGridItemLeastWidth = 174;
constexpr int kGridItemLeastHeight = 260;
constexpr int kListRowLeastHeight = 72;

constexpr const char* kStyle =
    ".library-progress trough, .library-progress progress { min-height: 4px; border-radius: 2px; "
    "}\n"
    ".library-placeholder { background-color: alpha(currentColor, 0.07); }\n"
    "gridview.library-books > child { padding: 12px; border-radius: 12px; }\n"
    "listview.library-books > row { padding: 6px 12px; }\n";

void installStyleOnce() {
  static bool installed = false;
  GdkDisplay* display = gdk_display_get_default();
  if (installed || display == nullptr) return;
  installed = true;
  GtkCssProvider* provider = gtk_css_provider_new();
  gtk_css_provider_load_from_data(provider, kStyle, -1);
  gtk_style_context_add_provider_for_display(display, GTK_STYLE_PROVIDER(provider),
                                             GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
  g_object_unref(provider);
}

GMenuModel* sortMenu() {
  GMenu* menu = g_menu_new();
  g_menu_append(menu, "Last Read", "library.sort::last-read");
  g_menu_append(menu, "Title", "library.sort::title");
  g_menu_append(menu, "Author", "library.sort::author");
  return G_MENU_MODEL(menu);
}

GtkWidget* layoutButton(const char* iconName, const char* label, const char* target) {
  GtkWidget* button = gtk_toggle_button_new();
  gtk_button_set_icon_name(GTK_BUTTON(button), iconName);
  gtk_widget_set_tooltip_text(button, label);
  views::setAccessibleLabel(button, label);
  gtk_actionable_set_action_name(GTK_ACTIONABLE(button), "library.layout");
  gtk_actionable_set_action_target_value(GTK_ACTIONABLE(button), g_variant_new_string(target));
  return button;
}

}  // namespace

const char* libraryLayoutName(LibraryLayout layout) {
  return layout == LibraryLayout::list ? "list" : "grid";
}

std::optional<LibraryLayout> libraryLayoutNamed(std::string_view name) {
  for (const LibraryLayout layout : {LibraryLayout::grid, LibraryLayout::list}) {
    if (name == libraryLayoutName(layout)) return layout;
  }
  return std::nullopt;
}

const char* librarySortOrderName(LibrarySortOrder order) {
  switch (order) {
    case LibrarySortOrder::title:
      return "title";
    case LibrarySortOrder::author:
      return "author";
    case LibrarySortOrder::lastRead:
      break;
  }
  return "last-read";
}

std::optional<LibrarySortOrder> librarySortOrderNamed(std::string_view name) {
  for (const LibrarySortOrder order :
       {LibrarySortOrder::lastRead, LibrarySortOrder::title, LibrarySortOrder::author}) {
    if (name == librarySortOrderName(order)) return order;
  }
  return std::nullopt;
}

LibraryView::LibraryView(LibraryLocations locations,
                         std::shared_ptr<SecurityScopedBookmarkCoding> codec,
                         LibraryCommands commands)
    : locations_(std::move(locations)),
      codec_(std::move(codec)),
      commands_(std::move(commands)),
      lifetime_(std::make_shared<LibraryView*>(this)) {
  // The books are read on the background pool while the widgets are made; they arrive through
  // the main loop, after this constructor.
  reload();
  installStyleOnce();
  GtkWidget* root = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
  root_ = views::WidgetHandle::retain(root);
  setUpActions();
  gtk_box_append(GTK_BOX(root), makeToolbar());

  books_ = g_list_store_new(tomekeeper_view_row_get_type());
  stack_ = gtk_stack_new();
  gtk_widget_set_vexpand(stack_, TRUE);
  gtk_stack_set_hhomogeneous(GTK_STACK(stack_), FALSE);
  gtk_stack_set_vhomogeneous(GTK_STACK(stack_), FALSE);
  gtk_stack_add_named(GTK_STACK(stack_), makeBookView(LibraryLayout::grid), "grid");
  gtk_stack_add_named(GTK_STACK(stack_), makeBookView(LibraryLayout::list), "list");
  g_object_unref(books_);  // the selection models hold it now
  GtkWidget* empty = adw_status_page_new();
  adw_status_page_set_icon_name(ADW_STATUS_PAGE(empty), "edit-find-symbolic");
  adw_status_page_set_title(ADW_STATUS_PAGE(empty), "No Books Found");
  adw_status_page_set_description(ADW_STATUS_PAGE(empty), "Try a different search");
  gtk_stack_add_named(GTK_STACK(stack_), empty, "empty");
  gtk_box_append(GTK_BOX(root), stack_);

  connections_.add(model_.visibleBooksChanged.connect([this] { showBooks(); }));
}

LibraryView::~LibraryView() {
  connections_.disconnectAll();
  gtk_widget_insert_action_group(root_.get(), "library", nullptr);
  if (removeDialog_) gtk_window_destroy(GTK_WINDOW(removeDialog_.get()));
}

void LibraryView::setUpActions() {
  actions_ = g_simple_action_group_new();
  const auto add = [this](GSimpleAction* action, const char* signal, GCallback callback) {
    connections_.add(action, signal, callback, this);
    g_action_map_add_action(G_ACTION_MAP(actions_), G_ACTION(action));
    g_object_unref(action);
  };
  add(g_simple_action_new_stateful("sort", G_VARIANT_TYPE_STRING,
                                   g_variant_new_string("last-read")),
      "change-state", G_CALLBACK(+[](GSimpleAction*, GVariant* value, gpointer self) {
        const auto order = librarySortOrderNamed(g_variant_get_string(value, nullptr));
        if (order) static_cast<LibraryView*>(self)->setSortOrder(*order);
      }));
  add(g_simple_action_new_stateful("layout", G_VARIANT_TYPE_STRING, g_variant_new_string("grid")),
      "change-state", G_CALLBACK(+[](GSimpleAction*, GVariant* value, gpointer self) {
        const auto layout = libraryLayoutNamed(g_variant_get_string(value, nullptr));
        if (layout) static_cast<LibraryView*>(self)->setLayout(*layout);
      }));
  add(g_simple_action_new("open", G_VARIANT_TYPE_STRING), "activate",
      G_CALLBACK(+[](GSimpleAction*, GVariant* fingerprint, gpointer self) {
        static_cast<LibraryView*>(self)->activate(g_variant_get_string(fingerprint, nullptr));
      }));
  add(g_simple_action_new("locate", G_VARIANT_TYPE_STRING), "activate",
      G_CALLBACK(+[](GSimpleAction*, GVariant* fingerprint, gpointer self) {
        auto* view = static_cast<LibraryView*>(self);
        if (view->commands_.locate)
          view->commands_.locate(g_variant_get_string(fingerprint, nullptr));
      }));
  add(g_simple_action_new("remove", G_VARIANT_TYPE_STRING), "activate",
      G_CALLBACK(+[](GSimpleAction*, GVariant* fingerprint, gpointer self) {
        static_cast<LibraryView*>(self)->presentRemoveConfirmation(
            g_variant_get_string(fingerprint, nullptr));
      }));
  gtk_widget_insert_action_group(root_.get(), "library", G_ACTION_GROUP(actions_));
  g_object_unref(actions_);
}

GtkWidget* LibraryView::makeToolbar() {
  GtkWidget* toolbar = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 6);
  gtk_widget_set_margin_start(toolbar, 12);
  gtk_widget_set_margin_end(toolbar, 12);
  gtk_widget_set_margin_top(toolbar, 6);
  gtk_widget_set_margin_bottom(toolbar, 6);

  searchEntry_ = gtk_search_entry_new();
  gtk_widget_set_hexpand(searchEntry_, TRUE);
  g_object_set(searchEntry_, "placeholder-text", "Search Title or Author", nullptr);
  views::setAccessibleLabel(searchEntry_, "Search Library");
  gtk_search_entry_set_key_capture_widget(GTK_SEARCH_ENTRY(searchEntry_), root_.get());
  connections_.add(searchEntry_, "search-changed", G_CALLBACK(onSearchChanged), this);
  connections_.add(searchEntry_, "activate", G_CALLBACK(onSearchActivate), this);
  connections_.add(searchEntry_, "stop-search", G_CALLBACK(onStopSearch), this);
  gtk_box_append(GTK_BOX(toolbar), searchEntry_);

  GtkWidget* sortButton = gtk_menu_button_new();
  gtk_menu_button_set_icon_name(GTK_MENU_BUTTON(sortButton), "view-sort-descending-symbolic");
  GMenuModel* menu = sortMenu();
  gtk_menu_button_set_menu_model(GTK_MENU_BUTTON(sortButton), menu);
  g_object_unref(menu);
  gtk_widget_set_tooltip_text(sortButton, "Sort");
  views::setAccessibleLabel(sortButton, "Sort");
  gtk_box_append(GTK_BOX(toolbar), sortButton);

  GtkWidget* layouts = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 0);
  gtk_widget_add_css_class(layouts, "linked");
  gtk_box_append(GTK_BOX(layouts), layoutButton("view-grid-symbolic", "Show as Grid", "grid"));
  gtk_box_append(GTK_BOX(layouts), layoutButton("view-list-symbolic", "Show as List", "list"));
  gtk_box_append(GTK_BOX(toolbar), layouts);

  // Ctrl+F goes to the search field wherever the focus is.
  GtkEventController* shortcuts = gtk_shortcut_controller_new();
  gtk_shortcut_controller_set_scope(GTK_SHORTCUT_CONTROLLER(shortcuts), GTK_SHORTCUT_SCOPE_MANAGED);
  gtk_shortcut_controller_add_shortcut(
      GTK_SHORTCUT_CONTROLLER(shortcuts),
      gtk_shortcut_new(gtk_shortcut_trigger_parse_string("<Control>f"),
                       gtk_callback_action_new(
                           [](GtkWidget*, GVariant*, gpointer entry) -> gboolean {
                             gtk_widget_grab_focus(GTK_WIDGET(entry));
                             return TRUE;
                           },
                           searchEntry_, nullptr)));
  gtk_widget_add_controller(root_.get(), shortcuts);
  return toolbar;
}

GtkWidget* LibraryView::makeBookView(LibraryLayout layout) {
  auto selection = GObjectHandle<GtkSelectionModel>::adopt(
      GTK_SELECTION_MODEL(gtk_single_selection_new(G_LIST_MODEL(g_object_ref(books_)))));
  gtk_single_selection_set_autoselect(GTK_SINGLE_SELECTION(selection.get()), FALSE);
  gtk_single_selection_set_can_unselect(GTK_SINGLE_SELECTION(selection.get()), TRUE);
  GtkListItemFactory* factory = gtk_signal_list_item_factory_new();
  connections_.add(
      factory, "setup",
      layout == LibraryLayout::grid ? G_CALLBACK(onSetUpGridItem) : G_CALLBACK(onSetUpListItem),
      this);
  connections_.add(
      factory, "bind",
      layout == LibraryLayout::grid ? G_CALLBACK(onBindGridItem) : G_CALLBACK(onBindListItem),
      this);

  // Each view gets its model only while it is shown (see showEmptyOrBooks): a view makes items
  // for a few hundred books ahead, and the hidden one would double that work at every change.
  GtkWidget* view = nullptr;
  if (layout == LibraryLayout::grid) {
    view = gtk_grid_view_new(nullptr, factory);
    // A row of the widest window holds no more; fewer columns also means fewer items made ahead.
    gtk_grid_view_set_max_columns(GTK_GRID_VIEW(view), kGridMaximumColumns);
    gridView_ = view;
    gridSelection_ = std::move(selection);
  } else {
    view = gtk_list_view_new(nullptr, factory);
    gtk_list_view_set_show_separators(GTK_LIST_VIEW(view), TRUE);
    listView_ = view;
    listSelection_ = std::move(selection);
  }
  gtk_widget_add_css_class(view, "library-books");
  views::setAccessibleLabel(view, "Books");
  connections_.add(view, "activate", G_CALLBACK(onActivatePosition), this);

  GtkWidget* scrolled = gtk_scrolled_window_new();
  gtk_scrolled_window_set_policy(GTK_SCROLLED_WINDOW(scrolled), GTK_POLICY_NEVER,
                                 GTK_POLICY_AUTOMATIC);
  gtk_scrolled_window_set_child(GTK_SCROLLED_WINDOW(scrolled), view);
  return scrolled;
}

void LibraryView::reload() {
  async::spawn([](std::weak_ptr<LibraryView*> weakView, LibraryLocations locations,
                  std::shared_ptr<SecurityScopedBookmarkCoding> codec) -> async::Task<void> {
    std::vector<LibraryBook> books = co_await async::runInBackground(
        [locations, codec] { return loadLibraryBooks(locations, *codec); });
    const auto view = weakView.lock();
    if (!view) co_return;
    (*view)->model_.setBooks(std::move(books));
    (*view)->loaded.emit((*view)->model_.bookCount());
  }(lifetime_, locations_, codec_));
}

void LibraryView::setLayout(LibraryLayout layout) {
  const bool changed = layout != layout_;
  layout_ = layout;
  g_simple_action_set_state(
      G_SIMPLE_ACTION(g_action_map_lookup_action(G_ACTION_MAP(actions_), "layout")),
      g_variant_new_string(libraryLayoutName(layout)));
  showEmptyOrBooks();
  if (changed) presentationChanged.emit();
}

void LibraryView::setSortOrder(LibrarySortOrder order) {
  const bool changed = order != model_.sortOrder();
  g_simple_action_set_state(
      G_SIMPLE_ACTION(g_action_map_lookup_action(G_ACTION_MAP(actions_), "sort")),
      g_variant_new_string(librarySortOrderName(order)));
  model_.setSortOrder(order);
  if (changed) presentationChanged.emit();
}

void LibraryView::showBooks() {
  // The first screen's books go in now and the rest over the frames after that screen has been
  // painted: a view makes the items of many rows ahead at once, which would hold the first frame
  // back. Covers wait for that frame too, since their decoding competes with it for the
  // processor.
  afterPaint_.disconnect();
  gridCovers_.holdDecoding();
  listCovers_.holdDecoding();
  const std::size_t count = model_.visibleBooks().size();
  const std::size_t now = std::min(count, firstScreenBookCount());
  replaceShownBooks(0, g_list_model_get_n_items(G_LIST_MODEL(books_)), 0, now);
  showEmptyOrBooks();
  GdkFrameClock* clock = gtk_widget_get_frame_clock(root_.get());
  if (clock == nullptr) {
    // Not on a screen yet: the rest follow the first frame after the view is mapped.
    afterPaint_ = views::connectSignal(root_.get(), "map", G_CALLBACK(onMap), this);
    return;
  }
  afterPaint_ = views::connectSignal(clock, "after-paint", G_CALLBACK(onAfterPaint), this);
}

std::size_t LibraryView::firstScreenBookCount() const {
  int width = gtk_widget_get_width(stack_);
  int height = gtk_widget_get_height(stack_);
  if (width <= 0 || height <= 0) {
    // Before the first layout, the window's size stands for the view's, unless the window is
    // maximized or full screen, whose size is not known yet.
    GtkRoot* root = gtk_widget_get_root(root_.get());
    if (root == nullptr || !GTK_IS_WINDOW(root) || gtk_window_is_maximized(GTK_WINDOW(root)) ||
        gtk_window_is_fullscreen(GTK_WINDOW(root))) {
      return kFirstScreenBooks;
    }
    gtk_window_get_default_size(GTK_WINDOW(root), &width, &height);
    if (width <= 0 || height <= 0) return kFirstScreenBooks;
  }
  // A partly shown row counts as a row.
  if (layout_ == LibraryLayout::list) {
    return static_cast<std::size_t>(height / kListRowLeastHeight + 1);
  }
  const int columns = std::clamp(width / kGridItemLeastWidth, 1, kGridMaximumColumns);
  return static_cast<std::size_t>(columns * (height / kGridItemLeastHeight + 1));
}

void LibraryView::onMap(GtkWidget* widget, gpointer self) {
  auto* view = static_cast<LibraryView*>(self);
  view->afterPaint_ = views::connectSignal(gtk_widget_get_frame_clock(widget), "after-paint",
                                           G_CALLBACK(onAfterPaint), view);
}

void LibraryView::onAfterPaint(GdkFrameClock* clock, gpointer self) {
  auto* view = static_cast<LibraryView*>(self);
  view->afterPaint_.disconnect();
  const auto shown = static_cast<std::size_t>(g_list_model_get_n_items(G_LIST_MODEL(view->books_)));
  const std::size_t count = view->model_.visibleBooks().size();
  if (shown < count) {
    // Each frame adds a screen of books, so that no frame makes the items of many rows at once
    // (a view makes items some rows ahead of what it shows, and none further).
    const std::size_t next = std::min(count, shown + view->firstScreenBookCount());
    view->replaceShownBooks(static_cast<guint>(shown), 0, shown, next);
    if (next < count) {
      view->afterPaint_ =
          views::connectSignal(clock, "after-paint", G_CALLBACK(onAfterPaint), view);
    }
  }
  view->gridCovers_.resumeDecoding();
  view->listCovers_.resumeDecoding();
}

void LibraryView::replaceShownBooks(guint position, guint removed, std::size_t from,
                                    std::size_t to) {
  const std::vector<LibraryBook>& books = model_.visibleBooks();
  std::vector<GObjectHandle<TomekeeperViewRow>> rows;
  std::vector<gpointer> items;
  rows.reserve(to - from);
  items.reserve(to - from);
  for (std::size_t index = from; index < to; ++index) {
    rows.push_back(views::makeViewRow(books[index]));
    items.push_back(rows.back().get());
  }
  g_list_store_splice(books_, position, removed, items.data(), static_cast<guint>(items.size()));
}

void LibraryView::showEmptyOrBooks() {
  const bool nothingMatches = model_.visibleBooks().empty() && model_.bookCount() > 0;
  const bool grid = layout_ == LibraryLayout::grid;
  if (grid && gtk_grid_view_get_model(GTK_GRID_VIEW(gridView_)) == nullptr) {
    gtk_list_view_set_model(GTK_LIST_VIEW(listView_), nullptr);
    gtk_grid_view_set_model(GTK_GRID_VIEW(gridView_), gridSelection_.get());
  } else if (!grid && gtk_list_view_get_model(GTK_LIST_VIEW(listView_)) == nullptr) {
    gtk_grid_view_set_model(GTK_GRID_VIEW(gridView_), nullptr);
    gtk_list_view_set_model(GTK_LIST_VIEW(listView_), listSelection_.get());
  }
  gtk_stack_set_visible_child_name(GTK_STACK(stack_), nothingMatches ? "empty"
                                                      : grid         ? "grid"
                                                                     : "list");
}

void LibraryView::activate(const std::string& fingerprint) {
  const LibraryBook* book = model_.find(fingerprint);
  if (book == nullptr) return;
  if (book->availability == LibraryAvailability::available && book->sourceURL) {
    if (commands_.open) commands_.open(*book);
  } else if (commands_.locate) {
    commands_.locate(fingerprint);
  }
}

void LibraryView::presentRemoveConfirmation(const std::string& fingerprint) {
  if (removeDialog_ || model_.find(fingerprint) == nullptr) return;
  GtkRoot* root = gtk_widget_get_root(root_.get());
  GtkWidget* dialog = views::makeDeleteReadingDataDialog(
      root != nullptr && GTK_IS_WINDOW(root) ? GTK_WINDOW(root) : nullptr);
  removeDialog_ = views::WidgetHandle::retain(dialog);
  pendingRemoval_ = fingerprint;
  connections_.add(dialog, "response", G_CALLBACK(onRemoveResponse), this);
  gtk_window_present(GTK_WINDOW(dialog));
}

void LibraryView::onRemoveResponse(GtkWidget*, const char* response, gpointer self) {
  auto* view = static_cast<LibraryView*>(self);
  // The dialog closes itself after the response.
  view->removeDialog_.reset();
  const std::string fingerprint = std::exchange(view->pendingRemoval_, {});
  if (std::string_view(response) != views::kDeleteReadingDataResponse) return;
  async::spawn([](std::weak_ptr<LibraryView*> weakView, LibraryLocations locations,
                  std::string removed) -> async::Task<void> {
    try {
      co_await removeFromLibrary(locations, removed);
    } catch (const std::exception& failure) {
      // The book stays in the library, which is how the reader sees that it was not removed.
      g_warning("The book %s was not removed from the library: %s", removed.c_str(),
                failure.what());
    }
    if (const auto view = weakView.lock()) (*view)->reload();
  }(view->lifetime_, view->locations_, fingerprint));
}

void LibraryView::onSearchChanged(GtkSearchEntry* entry, gpointer self) {
  static_cast<LibraryView*>(self)->model_.setFilter(gtk_editable_get_text(GTK_EDITABLE(entry)));
}

void LibraryView::onSearchActivate(GtkSearchEntry*, gpointer self) {
  auto* view = static_cast<LibraryView*>(self);
  if (!view->model_.visibleBooks().empty()) {
    view->activate(view->model_.visibleBooks().front().fingerprint);
  }
}

void LibraryView::onStopSearch(GtkSearchEntry* entry, gpointer) {
  gtk_editable_set_text(GTK_EDITABLE(entry), "");
}

void LibraryView::onActivatePosition(GtkWidget*, guint position, gpointer self) {
  auto* view = static_cast<LibraryView*>(self);
  const auto row = GObjectHandle<GObject>::adopt(
      static_cast<GObject*>(g_list_model_get_item(G_LIST_MODEL(view->books_), position)));
  if (row) view->activate(views::viewRowValueAs<LibraryBook>(row.get()).fingerprint);
}

void LibraryView::onSetUpGridItem(GtkListItemFactory*, GtkListItem* item, gpointer) {
  gtk_list_item_set_child(item, makeLibraryBookItem(LibraryLayout::grid));
}

void LibraryView::onSetUpListItem(GtkListItemFactory*, GtkListItem* item, gpointer) {
  gtk_list_item_set_child(item, makeLibraryBookItem(LibraryLayout::list));
}

void LibraryView::onBindGridItem(GtkListItemFactory*, GtkListItem* item, gpointer self) {
  bindLibraryBookItem(gtk_list_item_get_child(item),
                      views::viewRowValueAs<LibraryBook>(gtk_list_item_get_item(item)),
                      static_cast<LibraryView*>(self)->gridCovers_);
}

void LibraryView::onBindListItem(GtkListItemFactory*, GtkListItem* item, gpointer self) {
  bindLibraryBookItem(gtk_list_item_get_child(item),
                      views::viewRowValueAs<LibraryBook>(gtk_list_item_get_item(item)),
                      static_cast<LibraryView*>(self)->listCovers_);
}

}  // namespace tomekeeper
