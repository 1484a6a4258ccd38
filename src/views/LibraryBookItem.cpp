#include "views/LibraryBookItem.h"

#include <adwaita.h>

#include <cmath>
#include <utility>

#include "async/BackgroundPool.h"
#include "async/Spawn.h"
#include "views/ViewSupport.h"

namespace tomekeeper {

namespace {

constexpr const char* kItemWidgetsKey = "tomekeeper-library-item";
constexpr const char* kShownFingerprintKey = "tomekeeper-library-fingerprint";
constexpr const char* kAvailableKey = "tomekeeper-library-available";

// The book's menu: "Open" or "Locate…", and "Remove from Library…", for the book the button's
// item shows now.
void makeBookMenu(GtkMenuButton* button, gpointer) {
  const char* fingerprint =
      static_cast<const char*>(g_object_get_data(G_OBJECT(button), kShownFingerprintKey));
  if (fingerprint == nullptr) return;
  const bool available = g_object_get_data(G_OBJECT(button), kAvailableKey) != nullptr;
  GMenu* menu = g_menu_new();
  GMenuItem* first = g_menu_item_new(available ? "Open" : "Locate\u2026", nullptr);
  g_menu_item_set_action_and_target_value(first, available ? "library.open" : "library.locate",
                                          g_variant_new_string(fingerprint));
  g_menu_append_item(menu, first);
  g_object_unref(first);
  GMenuItem* remove = g_menu_item_new("Remove from Library\u2026", nullptr);
  g_menu_item_set_action_and_target_value(remove, "library.remove",
                                          g_variant_new_string(fingerprint));
  g_menu_append_item(menu, remove);
  g_object_unref(remove);
  gtk_menu_button_set_menu_model(button, G_MENU_MODEL(menu));
  g_object_unref(menu);
}

// The widgets of one item that a bind fills.
struct ItemWidgets {
  GtkWidget* coverStack = nullptr;
  GtkWidget* cover = nullptr;
  GtkWidget* placeholderTitle = nullptr;
  GtkWidget* title = nullptr;
  GtkWidget* authors = nullptr;
  GtkWidget* progressBar = nullptr;
  GtkWidget* progressText = nullptr;
  GtkWidget* lastRead = nullptr;
  GtkWidget* unavailableRow = nullptr;
  GtkWidget* locateButton = nullptr;
  GtkWidget* menuButton = nullptr;
};

std::string joinedAuthors(const std::vector<std::string>& authors) {
  std::string joined;
  for (std::size_t index = 0; index < authors.size(); ++index) {
    if (index > 0) joined += index + 1 == authors.size() ? " and " : ", ";
    joined += authors[index];
  }
  return joined;
}

GtkWidget* makeCoverStack(int width, int height, ItemWidgets& widgets) {
  GtkWidget* stack = gtk_stack_new();
  gtk_widget_set_size_request(stack, width, height);
  gtk_widget_set_halign(stack, GTK_ALIGN_CENTER);
  gtk_widget_set_overflow(stack, GTK_OVERFLOW_HIDDEN);
  gtk_widget_add_css_class(stack, "card");

  GtkWidget* placeholder = gtk_box_new(GTK_ORIENTATION_VERTICAL, 6);
  gtk_widget_add_css_class(placeholder, "library-placeholder");
  GtkWidget* icon = gtk_image_new_from_icon_name("x-office-document-symbolic");
  gtk_widget_set_vexpand(icon, TRUE);
  gtk_widget_set_valign(icon, GTK_ALIGN_END);
  gtk_image_set_pixel_size(GTK_IMAGE(icon), width > 64 ? 32 : 16);
  gtk_widget_add_css_class(icon, "dim-label");
  gtk_box_append(GTK_BOX(placeholder), icon);
  widgets.placeholderTitle = views::makeLabel("", {"caption-heading"});
  gtk_label_set_justify(GTK_LABEL(widgets.placeholderTitle), GTK_JUSTIFY_CENTER);
  gtk_label_set_xalign(GTK_LABEL(widgets.placeholderTitle), 0.5F);
  gtk_label_set_lines(GTK_LABEL(widgets.placeholderTitle), 4);
  gtk_label_set_ellipsize(GTK_LABEL(widgets.placeholderTitle), PANGO_ELLIPSIZE_END);
  gtk_widget_set_vexpand(widgets.placeholderTitle, TRUE);
  gtk_widget_set_valign(widgets.placeholderTitle, GTK_ALIGN_START);
  gtk_widget_set_margin_start(widgets.placeholderTitle, 6);
  gtk_widget_set_margin_end(widgets.placeholderTitle, 6);
  if (width <= 64) gtk_widget_set_visible(widgets.placeholderTitle, FALSE);
  gtk_box_append(GTK_BOX(placeholder), widgets.placeholderTitle);
  gtk_stack_add_named(GTK_STACK(stack), placeholder, "placeholder");

  widgets.cover = gtk_picture_new();
  gtk_picture_set_content_fit(GTK_PICTURE(widgets.cover), GTK_CONTENT_FIT_COVER);
  gtk_picture_set_can_shrink(GTK_PICTURE(widgets.cover), TRUE);
  gtk_stack_add_named(GTK_STACK(stack), widgets.cover, "cover");
  // The item's own label says what the cover shows.
  gtk_accessible_update_state(GTK_ACCESSIBLE(stack), GTK_ACCESSIBLE_STATE_HIDDEN, TRUE, -1);
  widgets.coverStack = stack;
  // A cover keeps its box whatever the picture or the title would ask for.
  GtkWidget* inside = stack;
  for (const auto& [orientation, size] : {std::pair{GTK_ORIENTATION_HORIZONTAL, width},
                                          std::pair{GTK_ORIENTATION_VERTICAL, height}}) {
    GtkWidget* clamp = adw_clamp_new();
    gtk_orientable_set_orientation(GTK_ORIENTABLE(clamp), orientation);
    adw_clamp_set_maximum_size(ADW_CLAMP(clamp), size);
    adw_clamp_set_tightening_threshold(ADW_CLAMP(clamp), size);
    adw_clamp_set_child(ADW_CLAMP(clamp), inside);
    inside = clamp;
  }
  return inside;
}

GtkWidget* makeProgressRow(ItemWidgets& widgets) {
  GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 6);
  widgets.progressBar = gtk_progress_bar_new();
  gtk_widget_add_css_class(widgets.progressBar, "library-progress");
  gtk_widget_set_hexpand(widgets.progressBar, TRUE);
  gtk_widget_set_valign(widgets.progressBar, GTK_ALIGN_CENTER);
  gtk_box_append(GTK_BOX(row), widgets.progressBar);
  widgets.progressText = views::makeLabel("", {"caption", "numeric", "dim-label"});
  gtk_label_set_wrap(GTK_LABEL(widgets.progressText), FALSE);
  gtk_box_append(GTK_BOX(row), widgets.progressText);
  return row;
}

GtkWidget* makeUnavailableRow(ItemWidgets& widgets) {
  GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 6);
  GtkWidget* label = views::makeLabel("Unavailable", {"caption", "error"});
  gtk_label_set_wrap(GTK_LABEL(label), FALSE);
  gtk_widget_set_hexpand(label, TRUE);
  gtk_box_append(GTK_BOX(row), label);
  widgets.locateButton = views::makeTextButton("Locate\u2026");
  gtk_widget_add_css_class(widgets.locateButton, "flat");
  gtk_widget_add_css_class(widgets.locateButton, "caption");
  gtk_box_append(GTK_BOX(row), widgets.locateButton);
  widgets.unavailableRow = row;
  return row;
}

GtkWidget* makeTextLabel(std::initializer_list<const char*> cssClasses, int lines) {
  GtkWidget* label = views::makeLabel("", cssClasses);
  gtk_label_set_lines(GTK_LABEL(label), lines);
  gtk_label_set_ellipsize(GTK_LABEL(label), PANGO_ELLIPSIZE_END);
  return label;
}

void setCover(GtkWidget* coverStack, GdkTexture* texture) {
  auto* widgets =
      static_cast<ItemWidgets*>(g_object_get_data(G_OBJECT(coverStack), kItemWidgetsKey));
  gtk_picture_set_paintable(GTK_PICTURE(widgets->cover), GDK_PAINTABLE(texture));
  gtk_stack_set_visible_child_name(GTK_STACK(coverStack),
                                   texture != nullptr ? "cover" : "placeholder");
}

}  // namespace

std::string libraryProgressText(std::optional<double> progress) {
  const double fraction =
      progress && std::isfinite(*progress) ? std::clamp(*progress, 0.0, 1.0) : 0;
  return std::to_string(static_cast<int>(std::floor(fraction * 100.0))) + "%";
}

std::string libraryLastReadText(std::optional<Date> lastRead) {
  if (!lastRead) return "Not read yet";
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(
      lastRead->systemClockTime().time_since_epoch());
  GDateTime* time = g_date_time_new_from_unix_local(seconds.count());
  if (time == nullptr) return "Not read yet";
  gchar* formatted = g_date_time_format(time, "%e %b %Y");
  g_date_time_unref(time);
  std::string text = formatted != nullptr ? formatted : "";
  g_free(formatted);
  while (!text.empty() && text.front() == ' ') text.erase(text.begin());
  return "Last read " + text;
}

std::string libraryBookAccessibleLabel(const LibraryBook& book) {
  std::string label = book.title;
  if (!book.authors.empty()) label += ", by " + joinedAuthors(book.authors);
  label +=
      ", " + libraryProgressText(book.progress) + " read, " + libraryLastReadText(book.lastRead);
  if (book.availability == LibraryAvailability::unavailable) label += ", unavailable";
  return label;
}

struct LibraryCoverCache::Waiting {
  std::string fingerprint;
  GObjectWeakReference<GtkWidget> coverStack;
};

LibraryCoverCache::LibraryCoverCache(int width, int height)
    : width_(width), height_(height), lifetime_(std::make_shared<LibraryCoverCache*>(this)) {}

LibraryCoverCache::~LibraryCoverCache() = default;

void LibraryCoverCache::show(GtkWidget* coverStack, const LibraryBook& book) {
  g_object_set_data_full(G_OBJECT(coverStack), kShownFingerprintKey,
                         g_strdup(book.fingerprint.c_str()), g_free);
  const auto found = textures_.find(book.fingerprint);
  setCover(coverStack, found != textures_.end() ? found->second.get() : nullptr);
  if (found != textures_.end() || !book.coverFile || failed_.contains(book.fingerprint)) return;

  waiting_.push_back(std::unique_ptr<Waiting>(
      new Waiting{book.fingerprint, GObjectWeakReference<GtkWidget>(coverStack)}));
  if (!decoding_.insert(book.fingerprint).second) return;
  async::spawn([](std::weak_ptr<LibraryCoverCache*> weakCache, std::string fingerprint,
                  std::filesystem::path file, int width, int height) -> async::Task<void> {
    // Fitted inside the cover's box; the picture fills the box with it.
    GdkPixbuf* pixbuf = co_await async::runInBackground([file, width, height] {
      return gdk_pixbuf_new_from_file_at_scale(file.c_str(), width, height, TRUE, nullptr);
    });
    GObjectHandle<GdkTexture> texture;
    if (pixbuf != nullptr) {
      texture = GObjectHandle<GdkTexture>::adopt(gdk_texture_new_for_pixbuf(pixbuf));
      g_object_unref(pixbuf);
    }
    if (const auto cache = weakCache.lock()) (*cache)->decoded(fingerprint, std::move(texture));
  }(lifetime_, book.fingerprint, *book.coverFile, width_, height_));
}

void LibraryCoverCache::decoded(const std::string& fingerprint, GObjectHandle<GdkTexture> texture) {
  decoding_.erase(fingerprint);
  if (!texture) failed_.insert(fingerprint);
  for (auto waiting = waiting_.begin(); waiting != waiting_.end();) {
    if ((*waiting)->fingerprint != fingerprint) {
      ++waiting;
      continue;
    }
    if (const auto stack = (*waiting)->coverStack.lock()) {
      const char* shown =
          static_cast<const char*>(g_object_get_data(G_OBJECT(stack.get()), kShownFingerprintKey));
      if (shown != nullptr && fingerprint == shown) setCover(stack.get(), texture.get());
    }
    waiting = waiting_.erase(waiting);
  }
  if (texture) textures_.insert_or_assign(fingerprint, std::move(texture));
}

GtkWidget* makeLibraryBookItem(LibraryLayout layout) {
  auto* widgets = new ItemWidgets;
  const bool grid = layout == LibraryLayout::grid;
  // A group, so that assistive tools say the book's label when they reach its item.
  GtkWidget* item = GTK_WIDGET(
      g_object_new(GTK_TYPE_BOX, "accessible-role", GTK_ACCESSIBLE_ROLE_GROUP, "orientation",
                   grid ? GTK_ORIENTATION_VERTICAL : GTK_ORIENTATION_HORIZONTAL, "spacing",
                   grid ? 4 : 12, nullptr));
  gtk_widget_add_css_class(item, grid ? "library-grid-item" : "library-list-item");

  GtkWidget* overlay = gtk_overlay_new();
  gtk_overlay_set_child(GTK_OVERLAY(overlay),
                        grid ? makeCoverStack(kGridCoverWidth, kGridCoverHeight, *widgets)
                             : makeCoverStack(kListCoverWidth, kListCoverHeight, *widgets));
  gtk_widget_set_halign(overlay, grid ? GTK_ALIGN_CENTER : GTK_ALIGN_START);
  gtk_box_append(GTK_BOX(item), overlay);

  widgets->menuButton = gtk_menu_button_new();
  gtk_menu_button_set_icon_name(GTK_MENU_BUTTON(widgets->menuButton), "view-more-symbolic");
  gtk_widget_set_tooltip_text(widgets->menuButton, "Book Options");
  views::setAccessibleLabel(widgets->menuButton, "Book Options");
  gtk_menu_button_set_create_popup_func(GTK_MENU_BUTTON(widgets->menuButton), makeBookMenu, nullptr,
                                        nullptr);

  GtkWidget* text = gtk_box_new(GTK_ORIENTATION_VERTICAL, 2);
  widgets->title = makeTextLabel({"heading"}, 2);
  widgets->authors = makeTextLabel({"caption", "dim-label"}, 1);
  widgets->lastRead = makeTextLabel({"caption", "dim-label"}, 1);
  gtk_box_append(GTK_BOX(text), widgets->title);
  gtk_box_append(GTK_BOX(text), widgets->authors);
  if (grid) {
    gtk_widget_set_size_request(text, 150, -1);
    gtk_box_append(GTK_BOX(text), makeProgressRow(*widgets));
    gtk_box_append(GTK_BOX(text), widgets->lastRead);
    gtk_box_append(GTK_BOX(text), makeUnavailableRow(*widgets));
    gtk_box_append(GTK_BOX(item), text);
    gtk_widget_add_css_class(widgets->menuButton, "osd");
    gtk_widget_add_css_class(widgets->menuButton, "circular");
    gtk_widget_set_halign(widgets->menuButton, GTK_ALIGN_END);
    gtk_widget_set_valign(widgets->menuButton, GTK_ALIGN_START);
    gtk_widget_set_margin_top(widgets->menuButton, 4);
    gtk_widget_set_margin_end(widgets->menuButton, 4);
    gtk_overlay_add_overlay(GTK_OVERLAY(overlay), widgets->menuButton);
  } else {
    gtk_box_append(GTK_BOX(text), widgets->lastRead);
    gtk_widget_set_hexpand(text, TRUE);
    gtk_widget_set_valign(text, GTK_ALIGN_CENTER);
    gtk_box_append(GTK_BOX(item), text);
    GtkWidget* side = gtk_box_new(GTK_ORIENTATION_VERTICAL, 4);
    gtk_widget_set_size_request(side, 160, -1);
    gtk_widget_set_valign(side, GTK_ALIGN_CENTER);
    gtk_box_append(GTK_BOX(side), makeProgressRow(*widgets));
    gtk_box_append(GTK_BOX(side), makeUnavailableRow(*widgets));
    gtk_box_append(GTK_BOX(item), side);
    gtk_widget_add_css_class(widgets->menuButton, "flat");
    gtk_widget_set_valign(widgets->menuButton, GTK_ALIGN_CENTER);
    gtk_box_append(GTK_BOX(item), widgets->menuButton);
  }
  g_object_set_data_full(G_OBJECT(item), kItemWidgetsKey, widgets,
                         [](gpointer data) { delete static_cast<ItemWidgets*>(data); });
  g_object_set_data(G_OBJECT(widgets->coverStack), kItemWidgetsKey, widgets);
  return item;
}

void bindLibraryBookItem(GtkWidget* item, const LibraryBook& book, LibraryCoverCache& covers) {
  auto* widgets = static_cast<ItemWidgets*>(g_object_get_data(G_OBJECT(item), kItemWidgetsKey));
  const bool available = book.availability == LibraryAvailability::available;
  views::setLabelText(widgets->title, book.title);
  views::setLabelText(widgets->placeholderTitle, book.title);
  views::setLabelText(widgets->authors, joinedAuthors(book.authors));
  gtk_widget_set_visible(widgets->authors, !book.authors.empty());
  gtk_progress_bar_set_fraction(GTK_PROGRESS_BAR(widgets->progressBar),
                                book.progress.value_or(0.0));
  views::setLabelText(widgets->progressText, libraryProgressText(book.progress));
  views::setLabelText(widgets->lastRead, libraryLastReadText(book.lastRead));
  gtk_widget_set_visible(widgets->unavailableRow, !available);
  gtk_widget_set_opacity(widgets->coverStack, available ? 1.0 : 0.5);
  GVariant* target = g_variant_new_string(book.fingerprint.c_str());
  gtk_actionable_set_action_target_value(GTK_ACTIONABLE(widgets->locateButton), target);
  // Named once the button has a target, which the action's parameter needs.
  gtk_actionable_set_action_name(GTK_ACTIONABLE(widgets->locateButton), "library.locate");

  // The menu itself is made when the button is first clicked: a popover per bound item would
  // cost more than the rest of the item.
  gtk_menu_button_set_menu_model(GTK_MENU_BUTTON(widgets->menuButton), nullptr);
  g_object_set_data_full(G_OBJECT(widgets->menuButton), kShownFingerprintKey,
                         g_strdup(book.fingerprint.c_str()), g_free);
  g_object_set_data(G_OBJECT(widgets->menuButton), kAvailableKey,
                    GINT_TO_POINTER(available ? 1 : 0));

  views::setAccessibleLabel(item, libraryBookAccessibleLabel(book));
  covers.show(widgets->coverStack, book);
}

}  // namespace tomekeeper
