#include "views/LibraryBookItem.h"

#include <adwaita.h>

#include <algorithm>
#include <cmath>
#include <string_view>
#include <utility>

#include "async/BackgroundPool.h"
#include "async/Spawn.h"
#include "views/ViewSupport.h"

namespace tomekeeper {

namespace {

constexpr const char* kItemWidgetsKey = "tomekeeper-library-item";
constexpr const char* kShownFingerprintKey = "tomekeeper-library-fingerprint";
constexpr const char* kAvailableKey = "tomekeeper-library-available";

// Covers decoded at once: enough to keep the pool busy, few enough to leave a core to the
// frames of a two-core machine.
constexpr std::size_t kConcurrentDecodes = 2;

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
  // Only the page shown is measured: the placeholder's title would cost every item a layout of
  // its text, though most show a picture.
  gtk_stack_set_hhomogeneous(GTK_STACK(stack), FALSE);
  gtk_stack_set_vhomogeneous(GTK_STACK(stack), FALSE);
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
  // A wrapping label lays its text out again for each width it is measured at; one line that
  // ends in an ellipsis needs no wrapping.
  if (lines == 1) gtk_label_set_wrap(GTK_LABEL(label), FALSE);
  return label;
}

ItemWidgets& widgetsOfCoverStack(GtkWidget* coverStack) {
  return *static_cast<ItemWidgets*>(g_object_get_data(G_OBJECT(coverStack), kItemWidgetsKey));
}

// The cover's picture; while the cover is decoded, no picture: the empty card.
void showCoverPicture(GtkWidget* coverStack, GdkTexture* texture) {
  gtk_picture_set_paintable(GTK_PICTURE(widgetsOfCoverStack(coverStack).cover),
                            GDK_PAINTABLE(texture));
  gtk_stack_set_visible_child_name(GTK_STACK(coverStack), "cover");
}

void showPlaceholder(GtkWidget* coverStack) {
  gtk_picture_set_paintable(GTK_PICTURE(widgetsOfCoverStack(coverStack).cover), nullptr);
  gtk_stack_set_visible_child_name(GTK_STACK(coverStack), "placeholder");
}

// The fingerprint of the book a cover stack shows now, or "".
std::string_view shownFingerprint(GtkWidget* coverStack) {
  const char* shown =
      static_cast<const char*>(g_object_get_data(G_OBJECT(coverStack), kShownFingerprintKey));
  return shown != nullptr ? shown : "";
}

// Whether any of the widget shows in the scrolled window around it, as laid out last.
bool isOnScreen(GtkWidget* widget) {
  if (!gtk_widget_get_mapped(widget)) return false;
  GtkWidget* viewport = gtk_widget_get_ancestor(widget, GTK_TYPE_SCROLLED_WINDOW);
  if (viewport == nullptr) return true;
  graphene_rect_t bounds;
  if (!gtk_widget_compute_bounds(widget, viewport, &bounds)) return false;
  return bounds.origin.x < static_cast<float>(gtk_widget_get_width(viewport)) &&
         bounds.origin.y < static_cast<float>(gtk_widget_get_height(viewport)) &&
         bounds.origin.x + bounds.size.width > 0 && bounds.origin.y + bounds.size.height > 0;
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

LibraryCoverCache::LibraryCoverCache(int width, int height)
    : width_(width), height_(height), lifetime_(std::make_shared<LibraryCoverCache*>(this)) {}

LibraryCoverCache::~LibraryCoverCache() = default;

void LibraryCoverCache::show(GtkWidget* coverStack, const LibraryBook& book) {
  g_object_set_data_full(G_OBJECT(coverStack), kShownFingerprintKey,
                         g_strdup(book.fingerprint.c_str()), g_free);
  if (const auto found = textures_.find(book.fingerprint); found != textures_.end()) {
    showCoverPicture(coverStack, found->second.get());
    return;
  }
  if (!book.coverFile || failed_.contains(book.fingerprint)) {
    showPlaceholder(coverStack);
    return;
  }
  showCoverPicture(coverStack, nullptr);

  WaitingStacks& stacks = waiting_[book.fingerprint];
  stacks.push_back(std::make_unique<GObjectWeakReference<GtkWidget>>(coverStack));
  const bool queued = std::any_of(queued_.begin(), queued_.end(), [&book](const auto& entry) {
    return entry.first == book.fingerprint;
  });
  if (!queued && !decoding_.contains(book.fingerprint)) {
    queued_.emplace_back(book.fingerprint, *book.coverFile);
  }
  startDecodes();
}

void LibraryCoverCache::holdDecoding() {
  held_ = true;
}

void LibraryCoverCache::resumeDecoding() {
  held_ = false;
  startDecodes();
}

LibraryCoverCache::Wanted LibraryCoverCache::wanted(const std::string& fingerprint) {
  const auto found = waiting_.find(fingerprint);
  if (found == waiting_.end()) return Wanted::no;
  Wanted wanted = Wanted::no;
  WaitingStacks& stacks = found->second;
  for (auto stack = stacks.begin(); stack != stacks.end();) {
    const GObjectHandle<GtkWidget> widget = (*stack)->lock();
    if (!widget || fingerprint != shownFingerprint(widget.get())) {
      stack = stacks.erase(stack);
      continue;
    }
    if (isOnScreen(widget.get())) return Wanted::onScreen;
    wanted = Wanted::offScreen;
    ++stack;
  }
  if (stacks.empty()) waiting_.erase(found);
  return wanted;
}

void LibraryCoverCache::startDecodes() {
  while (!held_ && decoding_.size() < kConcurrentDecodes && !queued_.empty()) {
    // The first cover on screen, else the first asked for; a cover no item shows any more is
    // dropped (binding its book again asks for it again).
    std::optional<std::size_t> chosen;
    for (std::size_t index = 0; index < queued_.size();) {
      const Wanted want = wanted(queued_[index].first);
      if (want == Wanted::no) {
        queued_.erase(queued_.begin() + static_cast<std::ptrdiff_t>(index));
        continue;
      }
      if (!chosen) chosen = index;
      if (want == Wanted::onScreen) {
        chosen = index;
        break;
      }
      ++index;
    }
    if (!chosen) return;
    auto [chosenFingerprint, chosenFile] = std::move(queued_[*chosen]);
    queued_.erase(queued_.begin() + static_cast<std::ptrdiff_t>(*chosen));
    decoding_.insert(chosenFingerprint);
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
    }(lifetime_, std::move(chosenFingerprint), std::move(chosenFile), width_, height_));
  }
}

void LibraryCoverCache::decoded(const std::string& fingerprint, GObjectHandle<GdkTexture> texture) {
  decoding_.erase(fingerprint);
  if (!texture) failed_.insert(fingerprint);
  if (const auto found = waiting_.find(fingerprint); found != waiting_.end()) {
    for (const auto& stack : found->second) {
      const GObjectHandle<GtkWidget> widget = stack->lock();
      if (!widget || fingerprint != shownFingerprint(widget.get())) continue;
      if (texture) {
        showCoverPicture(widget.get(), texture.get());
      } else {
        showPlaceholder(widget.get());
      }
    }
    waiting_.erase(found);
  }
  if (texture) textures_.insert_or_assign(fingerprint, std::move(texture));
  startDecodes();
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
  // A row of the grid is as tall as its tallest item (a title of two lines, authors or not):
  // the others keep their covers at the top, in line with it.
  if (grid) gtk_widget_set_valign(item, GTK_ALIGN_START);

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
