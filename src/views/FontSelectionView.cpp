#include "views/FontSelectionView.h"

#include <unicode/unistr.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <optional>

#include "views/SessionCommand.h"
#include "views/ViewResources.h"
#include "views/ViewRow.h"

namespace tomekeeper {

namespace {

using FontRow = std::optional<SystemFontRecord>;  // Absent: "Book Default".

constexpr const char* kControlKey = "tomekeeper-font-panel-control";
constexpr double kDefaultLineHeight = 1.5;
constexpr double kMinimumLineHeight = 1.0;
constexpr double kMaximumLineHeight = 3.0;
constexpr double kMinimumLetterSpacing = -0.05;
constexpr double kMaximumLetterSpacing = 0.2;
constexpr TypographyPageMarginsSelection kPageMargins[] = {
    TypographyPageMarginsSelection::bookDefault, TypographyPageMarginsSelection::narrow,
    TypographyPageMarginsSelection::standard, TypographyPageMarginsSelection::wide};
// The ids of the buttons in FontSelectionView.ui, in the order of FontSelectionView::Control.
constexpr const char* kControlIDs[] = {"text_size_smaller",
                                       "text_size_default",
                                       "text_size_larger",
                                       "line_spacing_smaller",
                                       "line_spacing_default",
                                       "line_spacing_larger",
                                       "character_spacing_smaller",
                                       "character_spacing_default",
                                       "character_spacing_normal",
                                       "character_spacing_larger",
                                       "restore_all"};
static_assert(std::size(kControlIDs) ==
              static_cast<std::size_t>(FontSelectionView::Control::restoreAll) + 1);

icu::UnicodeString folded(std::string_view text) {
  icu::UnicodeString unicode = icu::UnicodeString::fromUTF8(
      icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
  unicode.foldCase();
  return unicode;
}

double roundedTo(double value, double unitsPerOne) {
  return std::round(value * unitsPerOne) / unitsPerOne;
}

}  // namespace

bool fontMatchesFilter(const SystemFontRecord& font, std::string_view filter) {
  if (filter.empty()) return true;
  const icu::UnicodeString needle = folded(filter);
  return folded(font.displayName).indexOf(needle) >= 0 ||
         folded(font.cssFamilyName).indexOf(needle) >= 0;
}

double steppedLineHeight(const TypographyLineHeightSelection& selection, double step) {
  const double current = selection.number().value_or(kDefaultLineHeight);
  return std::clamp(roundedTo(current + step, 10), kMinimumLineHeight, kMaximumLineHeight);
}

double steppedLetterSpacing(const TypographyLetterSpacingSelection& selection, double step) {
  const double current = selection.number().value_or(0.0);
  return std::clamp(roundedTo(current + step, 100), kMinimumLetterSpacing, kMaximumLetterSpacing);
}

FontSelectionView::FontSelectionView(std::shared_ptr<ReaderSession> session,
                                     std::stop_token windowLifetime)
    : session_(std::move(session)), windowLifetime_(std::move(windowLifetime)) {
  const views::ViewBuilder builder("FontSelectionView.ui");
  root_ = builder.root("root");
  for (std::size_t control = 0; control < std::size(kControlIDs); ++control) {
    GtkWidget* button = builder.widget(kControlIDs[control]);
    buttons_[control] = button;
    g_object_set_data(G_OBJECT(button), kControlKey, GINT_TO_POINTER(static_cast<int>(control)));
    connections_.add(button, "clicked", G_CALLBACK(onButtonClicked), this);
  }
  pageMarginsPicker_ = builder.widget("page_margins_picker");
  // The drop-down's own button would otherwise be read out by its class name.
  for (GtkWidget* child = gtk_widget_get_first_child(pageMarginsPicker_); child != nullptr;
       child = gtk_widget_get_next_sibling(child)) {
    if (GTK_IS_TOGGLE_BUTTON(child)) views::setAccessibleLabel(child, "Page Margins");
  }
  searchField_ = builder.widget("search_field");
  fallbackLabel_ = builder.widget("fallback_label");
  fontList_ = GTK_LIST_VIEW(builder.widget("font_list"));
  setUpFontList();
  connections_.add(pageMarginsPicker_, "notify::selected", G_CALLBACK(onPageMarginsSelected), this);
  connections_.add(searchField_, "changed", G_CALLBACK(onSearchChanged), this);

  connections_.add(session_->fontCatalogRevision().changed().connect([this] { showFonts(); }));
  connections_.add(
      session_->fontFallbackRequestedStableName().changed().connect([this] { showFallback(); }));
  connections_.add(
      session_->pageMarginsSelection().changed().connect([this] { showPageMargins(); }));
  connections_.add(session_->fontSelection().changed().connect([this] { showSelectedFont(); }));
  showFonts();
  showFallback();
  showPageMargins();
}

FontSelectionView::~FontSelectionView() {
  connections_.disconnectAll();
  gtk_custom_filter_set_filter_func(filter_, nullptr, nullptr, nullptr);
}

GtkWidget* FontSelectionView::button(Control control) const {
  return buttons_[static_cast<int>(control)];
}

void FontSelectionView::setUpFontList() {
  fonts_ = g_list_store_new(tomekeeper_view_row_get_type());
  filter_ = gtk_custom_filter_new(filterFont, this, nullptr);
  filteredFonts_ = gtk_filter_list_model_new(G_LIST_MODEL(fonts_), GTK_FILTER(filter_));
  const auto selection = GObjectHandle<GtkSingleSelection>::adopt(
      gtk_single_selection_new(G_LIST_MODEL(filteredFonts_)));
  selection_ = selection.get();
  gtk_single_selection_set_autoselect(selection_, FALSE);
  gtk_single_selection_set_can_unselect(selection_, TRUE);

  const auto factory = GObjectHandle<GtkListItemFactory>::adopt(gtk_signal_list_item_factory_new());
  connections_.add(factory.get(), "setup", G_CALLBACK(onSetupFontRow), this);
  connections_.add(factory.get(), "bind", G_CALLBACK(onBindFontRow), this);
  gtk_list_view_set_model(fontList_, GTK_SELECTION_MODEL(selection_));
  gtk_list_view_set_factory(fontList_, factory.get());
  connections_.add(fontList_, "activate", G_CALLBACK(onFontActivate), this);
}

void FontSelectionView::perform(Control control) {
  using Command = std::function<async::Task<void>(ReaderSession&)>;
  const TypographyLineHeightSelection lineHeight = session_->lineHeightSelection().value();
  const TypographyLetterSpacingSelection letterSpacing = session_->letterSpacingSelection().value();
  Command command;
  switch (control) {
    case Control::textSizeSmaller:
      command = [](ReaderSession& session) { return session.adjustFontScale(-0.1); };
      break;
    case Control::textSizeDefault:
      command = [](ReaderSession& session) {
        return session.setFontScale(TypographyFontScaleSelection::bookDefault());
      };
      break;
    case Control::textSizeLarger:
      command = [](ReaderSession& session) { return session.adjustFontScale(0.1); };
      break;
    case Control::lineSpacingSmaller:
    case Control::lineSpacingLarger: {
      const double step = control == Control::lineSpacingLarger ? 0.1 : -0.1;
      const double value = steppedLineHeight(lineHeight, step);
      command = [value](ReaderSession& session) {
        return session.setLineHeight(TypographyLineHeightSelection::value(value));
      };
      break;
    }
    case Control::lineSpacingDefault:
      command = [](ReaderSession& session) {
        return session.setLineHeight(TypographyLineHeightSelection::bookDefault());
      };
      break;
    case Control::characterSpacingSmaller:
    case Control::characterSpacingLarger: {
      const double step = control == Control::characterSpacingLarger ? 0.01 : -0.01;
      const double value = steppedLetterSpacing(letterSpacing, step);
      command = [value](ReaderSession& session) {
        return session.setLetterSpacing(TypographyLetterSpacingSelection::value(value));
      };
      break;
    }
    case Control::characterSpacingDefault:
      command = [](ReaderSession& session) {
        return session.setLetterSpacing(TypographyLetterSpacingSelection::bookDefault());
      };
      break;
    case Control::characterSpacingNormal:
      command = [](ReaderSession& session) {
        return session.setLetterSpacing(TypographyLetterSpacingSelection::normal());
      };
      break;
    case Control::restoreAll:
      command = [](ReaderSession& session) { return session.restoreBookTypography(); };
      break;
  }
  views::runSessionCommand(session_, std::move(command), windowLifetime_);
}

void FontSelectionView::showFonts() {
  g_list_store_remove_all(fonts_);
  g_list_store_append(fonts_, views::makeViewRow(FontRow{}).get());
  for (const SystemFontRecord& font : session_->availableFonts()) {
    g_list_store_append(fonts_, views::makeViewRow(FontRow{font}).get());
  }
  showSelectedFont();
}

void FontSelectionView::showFallback() {
  const std::optional<std::string>& name = session_->fontFallbackRequestedStableName().value();
  gtk_widget_set_visible(fallbackLabel_, name.has_value());
  if (name) {
    views::setLabelText(fallbackLabel_,
                        "\u201C" + *name + "\u201D is unavailable. Using the book\u2019s font.");
  }
}

void FontSelectionView::showPageMargins() {
  const TypographyPageMarginsSelection margins = session_->pageMarginsSelection().value();
  const auto found = std::find(std::begin(kPageMargins), std::end(kPageMargins), margins);
  updatingPageMargins_ = true;
  gtk_drop_down_set_selected(GTK_DROP_DOWN(pageMarginsPicker_),
                             static_cast<guint>(found - std::begin(kPageMargins)));
  updatingPageMargins_ = false;
}

void FontSelectionView::showSelectedFont() {
  const TypographyFontSelection& selected = session_->fontSelection().value();
  GListModel* shown = G_LIST_MODEL(filteredFonts_);
  guint position = GTK_INVALID_LIST_POSITION;
  for (guint index = 0; index < g_list_model_get_n_items(shown); ++index) {
    auto item =
        GObjectHandle<GObject>::adopt(static_cast<GObject*>(g_list_model_get_item(shown, index)));
    const FontRow& row = views::viewRowValueAs<FontRow>(item.get());
    const bool matches = row ? selected.stableName() == row->stableName
                             : selected.kind() == TypographyFontSelection::Kind::bookDefault;
    if (matches) {
      position = index;
      break;
    }
  }
  gtk_single_selection_set_selected(selection_, position);
}

void FontSelectionView::chooseFont(guint position) {
  auto item = GObjectHandle<GObject>::adopt(
      static_cast<GObject*>(g_list_model_get_item(G_LIST_MODEL(filteredFonts_), position)));
  if (!item) return;
  const FontRow& row = views::viewRowValueAs<FontRow>(item.get());
  const TypographyFontSelection selection =
      row ? TypographyFontSelection::systemFont(row->stableName)
          : TypographyFontSelection::bookDefault();
  views::runSessionCommand(
      session_, [selection](ReaderSession& session) { return session.setFontSelection(selection); },
      windowLifetime_);
}

bool FontSelectionView::filterAccepts(gpointer item) const {
  const FontRow& row = views::viewRowValueAs<FontRow>(item);
  // "Book Default" stays whatever the filter.
  return !row || fontMatchesFilter(*row, filterText_);
}

void FontSelectionView::onButtonClicked(GtkButton* button, gpointer self) {
  const int control = GPOINTER_TO_INT(g_object_get_data(G_OBJECT(button), kControlKey));
  static_cast<FontSelectionView*>(self)->perform(static_cast<Control>(control));
}

void FontSelectionView::onSearchChanged(GtkEditable* editable, gpointer self) {
  auto* view = static_cast<FontSelectionView*>(self);
  view->filterText_ = gtk_editable_get_text(editable);
  gtk_filter_changed(GTK_FILTER(view->filter_), GTK_FILTER_CHANGE_DIFFERENT);
  view->showSelectedFont();
}

void FontSelectionView::onPageMarginsSelected(GObject* dropDown, GParamSpec*, gpointer self) {
  auto* view = static_cast<FontSelectionView*>(self);
  if (view->updatingPageMargins_) return;
  const guint selected = gtk_drop_down_get_selected(GTK_DROP_DOWN(dropDown));
  if (selected >= std::size(kPageMargins)) return;
  const TypographyPageMarginsSelection margins = kPageMargins[selected];
  if (margins == view->session_->pageMarginsSelection().value()) return;
  views::runSessionCommand(
      view->session_, [margins](ReaderSession& session) { return session.setPageMargins(margins); },
      view->windowLifetime_);
}

void FontSelectionView::onFontActivate(GtkListView*, guint position, gpointer self) {
  static_cast<FontSelectionView*>(self)->chooseFont(position);
}

void FontSelectionView::onSetupFontRow(GtkSignalListItemFactory*, GtkListItem* item, gpointer) {
  GtkWidget* label = gtk_label_new(nullptr);
  gtk_label_set_xalign(GTK_LABEL(label), 0.0F);
  gtk_label_set_ellipsize(GTK_LABEL(label), PANGO_ELLIPSIZE_END);
  gtk_widget_set_margin_start(label, 6);
  gtk_widget_set_margin_end(label, 6);
  gtk_widget_set_margin_top(label, 4);
  gtk_widget_set_margin_bottom(label, 4);
  gtk_list_item_set_child(item, label);
}

void FontSelectionView::onBindFontRow(GtkSignalListItemFactory*, GtkListItem* item, gpointer) {
  const FontRow& row = views::viewRowValueAs<FontRow>(gtk_list_item_get_item(item));
  views::setLabelText(gtk_list_item_get_child(item), row ? row->displayName : "Book Default");
}

gboolean FontSelectionView::filterFont(gpointer item, gpointer self) {
  return static_cast<const FontSelectionView*>(self)->filterAccepts(item) ? TRUE : FALSE;
}

}  // namespace tomekeeper
