#pragma once

#include <gtk/gtk.h>

#include <memory>
#include <stop_token>
#include <string>
#include <string_view>

#include "model/SystemFontRecord.h"
#include "model/TypographyPreferences.h"
#include "session/ReaderSession.h"
#include "views/ViewSupport.h"

namespace tomekeeper {

// Whether the font panel's filter lets `font` through: an empty filter lets every font
// through; otherwise the display name or the CSS family name must contain the filter, compared
// by Unicode case folding (ICU). Pure.
bool fontMatchesFilter(const SystemFontRecord& font, std::string_view filter);

// The line spacing after one step of the panel: from the selection's value, or 1.5 for the
// book's own, plus `step`, rounded to tenths and held within 1.0...3.0. Pure.
double steppedLineHeight(const TypographyLineHeightSelection& selection, double step);

// The character spacing after one step: from the selection's value, or 0 for the book's own
// and for normal, plus `step`, rounded to hundredths and held within -0.05...0.2. Pure.
double steppedLetterSpacing(const TypographyLetterSpacingSelection& selection, double step);

// The typography panel: text size, line spacing, character spacing, page margins, the
// restore button and the list of fonts with its filter. It shows the session's selections and
// font list and calls the session's typography commands; it keeps the session alive. Main
// executor only; not movable, since its widgets call back into it.
class FontSelectionView {
 public:
  // `windowLifetime` is the token of the window that shows the view: its commands stop when
  // the window closes.
  explicit FontSelectionView(std::shared_ptr<ReaderSession> session,
                             std::stop_token windowLifetime = {});
  ~FontSelectionView();
  FontSelectionView(const FontSelectionView&) = delete;
  FontSelectionView& operator=(const FontSelectionView&) = delete;

  GtkWidget* widget() const noexcept { return root_.get(); }

  GtkEditable* searchField() const noexcept { return GTK_EDITABLE(searchField_); }
  GtkListView* fontList() const noexcept { return fontList_; }
  // The fonts the list shows now, in order; "Book Default" first (absent record).
  GListModel* shownFonts() const noexcept { return G_LIST_MODEL(filteredFonts_); }
  GtkWidget* fallbackLabel() const noexcept { return fallbackLabel_; }
  GtkDropDown* pageMarginsPicker() const noexcept { return GTK_DROP_DOWN(pageMarginsPicker_); }
  // The buttons of the steppers, by what they do.
  enum class Control {
    textSizeSmaller,
    textSizeDefault,
    textSizeLarger,
    lineSpacingSmaller,
    lineSpacingDefault,
    lineSpacingLarger,
    characterSpacingSmaller,
    characterSpacingDefault,
    characterSpacingNormal,
    characterSpacingLarger,
    restoreAll
  };
  GtkWidget* button(Control control) const;

 private:
  // Gives fontList_ its model, over fonts_ through filter_, and its row factory.
  void setUpFontList();
  void perform(Control control);
  void showFonts();
  void showFallback();
  void showPageMargins();
  void showSelectedFont();
  void chooseFont(guint position);
  bool filterAccepts(gpointer item) const;

  static void onButtonClicked(GtkButton* button, gpointer self);
  static void onSearchChanged(GtkEditable* editable, gpointer self);
  static void onPageMarginsSelected(GObject* dropDown, GParamSpec* property, gpointer self);
  static void onFontActivate(GtkListView* list, guint position, gpointer self);
  static void onSetupFontRow(GtkSignalListItemFactory* factory, GtkListItem* item, gpointer self);
  static void onBindFontRow(GtkSignalListItemFactory* factory, GtkListItem* item, gpointer self);
  static gboolean filterFont(gpointer item, gpointer self);

  std::shared_ptr<ReaderSession> session_;
  std::stop_token windowLifetime_;
  views::WidgetHandle root_;
  GtkWidget* buttons_[static_cast<int>(Control::restoreAll) + 1] = {};
  GtkWidget* pageMarginsPicker_ = nullptr;
  GtkWidget* searchField_ = nullptr;
  GtkWidget* fallbackLabel_ = nullptr;
  GtkListView* fontList_ = nullptr;
  GListStore* fonts_ = nullptr;                  // Owned by filteredFonts_.
  GtkCustomFilter* filter_ = nullptr;            // Owned by filteredFonts_.
  GtkFilterListModel* filteredFonts_ = nullptr;  // Owned by the selection of fontList_.
  GtkSingleSelection* selection_ = nullptr;      // Owned by fontList_.
  std::string filterText_;
  bool updatingPageMargins_ = false;
  views::ViewConnections connections_;
};

}  // namespace tomekeeper
