#include "views/FontSelectionView.h"

#include "ViewsDisplayTestSupport.h"
#include "async/RunUntilDone.h"
#include "views/ViewRow.h"

namespace tomekeeper::testing {
namespace {

using FontSelectionViewDisplayTest = ViewsDisplayTest;

std::vector<std::string> shownFontNames(FontSelectionView& view) {
  std::vector<std::string> names;
  GListModel* shown = view.shownFonts();
  for (guint index = 0; index < g_list_model_get_n_items(shown); ++index) {
    auto item =
        GObjectHandle<GObject>::adopt(static_cast<GObject*>(g_list_model_get_item(shown, index)));
    const auto& font = views::viewRowValueAs<std::optional<SystemFontRecord>>(item.get());
    names.push_back(font ? font->displayName : "Book Default");
  }
  return names;
}

TEST(FontPanelRules, FiltersByDisplayOrFamilyNameIgnoringCase) {
  const SystemFontRecord georgia{"Georgia-Bold", "Georgia Bold", "Georgia"};
  EXPECT_TRUE(fontMatchesFilter(georgia, ""));
  EXPECT_TRUE(fontMatchesFilter(georgia, "gEoRg"));
  EXPECT_TRUE(fontMatchesFilter(georgia, "BOLD"));
  EXPECT_FALSE(fontMatchesFilter(georgia, "Georgia-"));
  const SystemFontRecord german{"Strasse", "STRASSE Sans", "Straße"};
  EXPECT_TRUE(fontMatchesFilter(german, "straße"));
}

TEST(FontPanelRules, StepsLineSpacingFromTheDefaultAndHoldsItsLimits) {
  EXPECT_DOUBLE_EQ(steppedLineHeight(TypographyLineHeightSelection::bookDefault(), 0.1), 1.6);
  EXPECT_DOUBLE_EQ(steppedLineHeight(TypographyLineHeightSelection::value(3.0), 0.1), 3.0);
  EXPECT_DOUBLE_EQ(steppedLineHeight(TypographyLineHeightSelection::value(1.0), -0.1), 1.0);
  EXPECT_DOUBLE_EQ(steppedLineHeight(TypographyLineHeightSelection::value(1.24), 0.1), 1.3);
  EXPECT_DOUBLE_EQ(steppedLetterSpacing(TypographyLetterSpacingSelection::normal(), 0.01), 0.01);
  EXPECT_DOUBLE_EQ(steppedLetterSpacing(TypographyLetterSpacingSelection::value(-0.05), -0.01),
                   -0.05);
}

TEST_F(FontSelectionViewDisplayTest, ShowsEveryRowAndFiltersTheFontsKeepingBookDefault) {
  openSession();
  FontSelectionView view(session);
  showInWindow(view.widget());
  for (const char* text : {"Reading Font", "Text Size", "Line Spacing", "Character Spacing",
                           "Page Margins", "Default", "Normal", "Restore All Book Typography"}) {
    EXPECT_TRUE(showsText(view.widget(), text)) << text;
  }
  EXPECT_FALSE(isShown(view.fallbackLabel()));
  EXPECT_EQ(shownFontNames(view), (std::vector<std::string>{"Book Default", "Georgia Regular",
                                                            "Helvetica Regular", "Inter Regular"}));
  ASSERT_TRUE(waitUntil([&] { return showsText(GTK_WIDGET(view.fontList()), "Georgia Regular"); }));

  gtk_editable_set_text(view.searchField(), "GEO");
  EXPECT_EQ(shownFontNames(view), (std::vector<std::string>{"Book Default", "Georgia Regular"}));
  gtk_editable_set_text(view.searchField(), "no such font");
  EXPECT_EQ(shownFontNames(view), (std::vector<std::string>{"Book Default"}));
  ASSERT_TRUE(waitUntil([&] {
    return !showsText(GTK_WIDGET(view.fontList()), "Georgia Regular") &&
           showsText(GTK_WIDGET(view.fontList()), "Book Default");
  }));
  gtk_editable_set_text(view.searchField(), "");
  EXPECT_EQ(shownFontNames(view).size(), 4U);

  // The page margins picker offers the four choices.
  GListModel* margins = gtk_drop_down_get_model(view.pageMarginsPicker());
  std::vector<std::string> marginNames;
  for (guint index = 0; index < g_list_model_get_n_items(margins); ++index) {
    marginNames.emplace_back(gtk_string_list_get_string(GTK_STRING_LIST(margins), index));
  }
  EXPECT_EQ(marginNames, (std::vector<std::string>{"Book Default", "Narrow", "Standard", "Wide"}));
}

TEST_F(FontSelectionViewDisplayTest, ChoosingAFontSetsItAndAMissingOneShowsTheFallbackCaption) {
  openSession();
  FontSelectionView view(session);
  showInWindow(view.widget());
  gtk_widget_activate_action(GTK_WIDGET(view.fontList()), "list.activate-item", "u", 1U);
  ASSERT_TRUE(waitUntil([&] {
    return session->fontSelection()->stableName() == std::optional<std::string>("Georgia");
  }));
  // The store is written after the page took the change.
  EXPECT_TRUE(waitUntil(
      [&] { return typography->value.font == TypographyFontSelection::systemFont("Georgia"); }));

  async::runUntilDone(session->setFontSelection(TypographyFontSelection::systemFont("Vanished")),
                      std::chrono::seconds(30));
  ASSERT_TRUE(waitUntil([&] { return isShown(view.fallbackLabel()); }));
  EXPECT_EQ(std::string(gtk_label_get_text(GTK_LABEL(view.fallbackLabel()))),
            "\u201CVanished\u201D is unavailable. Using the book\u2019s font.");

  gtk_widget_activate_action(GTK_WIDGET(view.fontList()), "list.activate-item", "u", 0U);
  ASSERT_TRUE(waitUntil(
      [&] { return session->fontSelection().value() == TypographyFontSelection::bookDefault(); }));
  ASSERT_TRUE(waitUntil([&] { return !isShown(view.fallbackLabel()); }));
}

TEST_F(FontSelectionViewDisplayTest, SteppersAndPickerCallTheTypographyCommands) {
  openSession();
  FontSelectionView view(session);
  showInWindow(view.widget());
  using Control = FontSelectionView::Control;

  g_signal_emit_by_name(view.button(Control::lineSpacingLarger), "clicked");
  ASSERT_TRUE(waitUntil([&] {
    return session->lineHeightSelection().value() == TypographyLineHeightSelection::value(1.6);
  }));
  g_signal_emit_by_name(view.button(Control::textSizeLarger), "clicked");
  ASSERT_TRUE(waitUntil([&] {
    return session->fontScaleSelection().value() == TypographyFontScaleSelection::value(1.1);
  }));
  g_signal_emit_by_name(view.button(Control::characterSpacingNormal), "clicked");
  ASSERT_TRUE(waitUntil([&] {
    return session->letterSpacingSelection().value() == TypographyLetterSpacingSelection::normal();
  }));
  gtk_drop_down_set_selected(view.pageMarginsPicker(), 3);
  ASSERT_TRUE(waitUntil([&] {
    return session->pageMarginsSelection().value() == TypographyPageMarginsSelection::wide;
  }));

  g_signal_emit_by_name(view.button(Control::restoreAll), "clicked");
  ASSERT_TRUE(waitUntil(
      [&] { return session->currentTypographyPreferences() == TypographyPreferences{}; }));
  EXPECT_EQ(gtk_drop_down_get_selected(view.pageMarginsPicker()), 0U);
  EXPECT_TRUE(waitUntil([&] { return typography->value == TypographyPreferences{}; }));
}

}  // namespace
}  // namespace tomekeeper::testing
