#include <gtest/gtest.h>

#include <cmath>

#include "session/TypographyConfiguration.h"

namespace tomekeeper {
namespace {

std::optional<ReaderTypographyFailure> refusal(const TypographyPreferences& preferences) {
  try {
    (void)typographyRequest(preferences, TypographyFontResolution{});
  } catch (const ReaderTypographyFailureError& error) {
    return error.failure();
  }
  return std::nullopt;
}

TEST(TypographyConfigurationTest, AdjustedScaleStartsFromOneAndSitsOnTenths) {
  EXPECT_DOUBLE_EQ(adjustedFontScale(TypographyFontScaleSelection::bookDefault(), 0.1), 1.1);
  EXPECT_DOUBLE_EQ(adjustedFontScale(TypographyFontScaleSelection::bookDefault(), -0.1), 0.9);
  EXPECT_DOUBLE_EQ(adjustedFontScale(TypographyFontScaleSelection::value(1.25), 0.1), 1.4);
  EXPECT_DOUBLE_EQ(adjustedFontScale(TypographyFontScaleSelection::value(1.23), 0.1), 1.3);
  EXPECT_DOUBLE_EQ(adjustedFontScale(TypographyFontScaleSelection::value(3.0), 0.1), 3.0);
  EXPECT_DOUBLE_EQ(adjustedFontScale(TypographyFontScaleSelection::value(0.5), -0.1), 0.5);
  EXPECT_DOUBLE_EQ(adjustedFontScale(TypographyFontScaleSelection::value(7.0), 0.1), 3.0);
}

TEST(TypographyConfigurationTest, LimitsAreCheckedInOrderWithBothEndsIncluded) {
  TypographyPreferences preferences;
  preferences.fontScale = TypographyFontScaleSelection::value(0.5);
  preferences.lineHeight = TypographyLineHeightSelection::value(3.0);
  preferences.letterSpacing = TypographyLetterSpacingSelection::value(-0.05);
  EXPECT_EQ(refusal(preferences), std::nullopt);

  preferences.lineHeight = TypographyLineHeightSelection::value(0.99);
  preferences.letterSpacing = TypographyLetterSpacingSelection::value(0.3);
  EXPECT_EQ(refusal(preferences), ReaderTypographyFailure::invalidLineHeight);
  preferences.fontScale = TypographyFontScaleSelection::value(INFINITY);
  EXPECT_EQ(refusal(preferences), ReaderTypographyFailure::invalidFontScale);
  preferences = {};
  preferences.letterSpacing = TypographyLetterSpacingSelection::value(0.2001);
  EXPECT_EQ(refusal(preferences), ReaderTypographyFailure::invalidLetterSpacing);
}

TEST(TypographyConfigurationTest, PageMarginsAndWidthsMapToTheirNumbers) {
  TypographyPreferences preferences;
  preferences.pageMargins = TypographyPageMarginsSelection::standard;
  const ConfigureTypographyRequest request =
      typographyRequest(preferences, TypographyFontResolution{});
  EXPECT_EQ(request.pageMargins.mode, ResolvedTypographyPageMargins::Mode::preset);
  EXPECT_EQ(request.pageMargins.inlinePercentage, 7.0);
  EXPECT_EQ(scrolledMaxInlineSize(ScrolledContentWidth::narrow), 560);
  EXPECT_EQ(scrolledMaxInlineSize(ScrolledContentWidth::comfortable), 700);
  EXPECT_EQ(scrolledMaxInlineSize(ScrolledContentWidth::wide), 840);
}

TEST(TypographyConfigurationTest, FallbackFontIsSentAsTheBooksOwn) {
  const ResolvedTypographyFont font =
      resolvedFont(TypographyFontResolution::fallback("Gone-Regular"));
  EXPECT_EQ(font, ResolvedTypographyFont::bookDefault());
}

}  // namespace
}  // namespace tomekeeper
