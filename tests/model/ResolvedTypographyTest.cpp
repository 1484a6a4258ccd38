#include "model/ResolvedTypography.h"

#include <gtest/gtest.h>

#include "RoundTrip.h"

namespace tomekeeper {
namespace {

TEST(ResolvedTypographyTest, BookDefaultFontWritesAnEmptyStack) {
  EXPECT_EQ(encoded(ResolvedTypographyFont::bookDefault()),
            R"({"fallbackStack":[],"mode":"bookDefault"})");
  EXPECT_EQ(roundTrip(ResolvedTypographyFont::bookDefault()),
            ResolvedTypographyFont::bookDefault());
}

TEST(ResolvedTypographyTest, SystemFontCarriesItsNamesAndTheTwoEntryStack) {
  const SystemFontRecord record{
      .stableName = "DejaVuSans", .displayName = "DejaVu Sans", .cssFamilyName = "DejaVu Sans"};
  const ResolvedTypographyFont font = ResolvedTypographyFont::systemFont(record);
  EXPECT_EQ(encoded(font),
            R"({"cssFamilyName":"DejaVu Sans","fallbackStack":["-apple-system","sans-serif"],)"
            R"("mode":"systemFont","stableName":"DejaVuSans"})");
  EXPECT_EQ(roundTrip(font), font);
}

TEST(ResolvedTypographyTest, FontRequiresModeAndStack) {
  EXPECT_THROW(decoded<ResolvedTypographyFont>(R"({"mode":"bookDefault"})"), JSONDecodingError);
  EXPECT_THROW(decoded<ResolvedTypographyFont>(R"({"fallbackStack":[]})"), JSONDecodingError);
  EXPECT_THROW(decoded<ResolvedTypographyFont>(R"({"mode":"named","fallbackStack":[]})"),
               JSONDecodingError);
  EXPECT_THROW(decoded<ResolvedTypographyFont>(R"({"mode":"bookDefault","fallbackStack":[1]})"),
               JSONDecodingError);
}

TEST(ResolvedTypographyTest, ModeAloneWritesOnlyMode) {
  EXPECT_EQ(encoded(ResolvedTypographyFontScale{}), R"({"mode":"bookDefault"})");
  EXPECT_EQ(encoded(ResolvedTypographyLineHeight{}), R"({"mode":"bookDefault"})");
  EXPECT_EQ(encoded(ResolvedTypographyLetterSpacing{
                .mode = ResolvedTypographyLetterSpacing::Mode::normal}),
            R"({"mode":"normal"})");
  EXPECT_EQ(encoded(ResolvedTypographyPageMargins{}), R"({"mode":"bookDefault"})");
}

TEST(ResolvedTypographyTest, ValuesAreWrittenUnderTheirKeys) {
  const ResolvedTypographyFontScale scale{.mode = ResolvedTypographyFontScale::Mode::value,
                                          .value = 1.1};
  const ResolvedTypographyLineHeight lineHeight{.mode = ResolvedTypographyLineHeight::Mode::value,
                                                .value = 1.5};
  const ResolvedTypographyLetterSpacing spacing{
      .mode = ResolvedTypographyLetterSpacing::Mode::value, .value = -0.05};
  const ResolvedTypographyPageMargins margins{.mode = ResolvedTypographyPageMargins::Mode::preset,
                                              .inlinePercentage = 7.0};
  EXPECT_EQ(encoded(scale), R"({"mode":"value","value":1.1})");
  EXPECT_EQ(encoded(lineHeight), R"({"mode":"value","value":1.5})");
  EXPECT_EQ(encoded(spacing), R"({"mode":"value","value":-0.05})");
  EXPECT_EQ(encoded(margins), R"({"inlinePercentage":7.0,"mode":"preset"})");
  EXPECT_EQ(roundTrip(scale), scale);
  EXPECT_EQ(roundTrip(lineHeight), lineHeight);
  EXPECT_EQ(roundTrip(spacing), spacing);
  EXPECT_EQ(roundTrip(margins), margins);
}

TEST(ResolvedTypographyTest, NullValuesReadAsAbsentAndWrongTypesFail) {
  EXPECT_EQ(decoded<ResolvedTypographyFontScale>(R"({"mode":"bookDefault","value":null})"),
            ResolvedTypographyFontScale{});
  EXPECT_THROW(decoded<ResolvedTypographyFontScale>(R"({"mode":"value","value":"1"})"),
               JSONDecodingError);
  EXPECT_THROW(decoded<ResolvedTypographyPageMargins>(R"({"mode":"narrow"})"), JSONDecodingError);
  EXPECT_THROW(decoded<ResolvedTypographyLetterSpacing>("{}"), JSONDecodingError);
  // Only letter spacing has a "normal" mode.
  EXPECT_THROW(decoded<ResolvedTypographyLineHeight>(R"({"mode":"normal"})"), JSONDecodingError);
}

TEST(ResolvedTypographyTest, HashesFollowEquality) {
  const ResolvedTypographyFontScale a{.mode = ResolvedTypographyFontScale::Mode::value,
                                      .value = 1.0};
  EXPECT_EQ(std::hash<ResolvedTypographyFontScale>{}(a),
            std::hash<ResolvedTypographyFontScale>{}(roundTrip(a)));
  EXPECT_NE(a, ResolvedTypographyFontScale{});
}

}  // namespace
}  // namespace tomekeeper
