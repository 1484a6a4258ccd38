#include "model/TypographyPreferences.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <string>
#include <unordered_set>

#include "RoundTrip.h"

namespace tomekeeper {
namespace {

const char* const kInvalidKeyCount = "Invalid number of keys found, expected one.";

template <typename T>
std::string decodeFailure(const std::string& text) {
  try {
    decoded<T>(text);
  } catch (const JSONDecodingError& error) {
    return error.what();
  }
  return "decoded without failure";
}

// `value` is written as `text`, and `text` reads back as `value`.
template <typename T>
void expectCoding(const T& value, const std::string& text) {
  EXPECT_EQ(encoded(value), text);
  EXPECT_EQ(decoded<T>(text), value) << text;
}

TEST(TypographyPreferencesTest, SelectionsUseTheOneKeyCoding) {
  expectCoding(TypographyFontSelection::bookDefault(), R"({"bookDefault":{}})");
  expectCoding(TypographyFontSelection::systemFont("Georgia"),
               R"({"systemFont":{"stableName":"Georgia"}})");
  expectCoding(TypographyFontScaleSelection::value(1.2), R"({"value":{"_0":1.2}})");
  expectCoding(TypographyFontScaleSelection::bookDefault(), R"({"bookDefault":{}})");
  expectCoding(TypographyLineHeightSelection::value(1.5), R"({"value":{"_0":1.5}})");
  expectCoding(TypographyLineHeightSelection::bookDefault(), R"({"bookDefault":{}})");
  expectCoding(TypographyLetterSpacingSelection::value(-0.05), R"({"value":{"_0":-0.05}})");
  expectCoding(TypographyLetterSpacingSelection::normal(), R"({"normal":{}})");
  expectCoding(TypographyLetterSpacingSelection::bookDefault(), R"({"bookDefault":{}})");
  EXPECT_EQ(decoded<TypographyLineHeightSelection>(R"({"value":{"_0":2}})"),
            TypographyLineHeightSelection::value(2.0));
}

TEST(TypographyPreferencesTest, PageMarginsAreAPlainString) {
  EXPECT_EQ(encoded(TypographyPageMarginsSelection::standard), R"("standard")");
  EXPECT_EQ(decoded<TypographyPageMarginsSelection>(R"("bookDefault")"),
            TypographyPageMarginsSelection::bookDefault);
  EXPECT_EQ(decoded<TypographyPageMarginsSelection>(R"("wide")"),
            TypographyPageMarginsSelection::wide);
  EXPECT_THROW(decoded<TypographyPageMarginsSelection>(R"({"narrow":{}})"), JSONDecodingError);
  EXPECT_THROW(decoded<TypographyPageMarginsSelection>(R"("huge")"), JSONDecodingError);
}

TEST(TypographyPreferencesTest, TwoKeysOrNoneFailWithTheKeyCountMessage) {
  EXPECT_EQ(decodeFailure<TypographyFontScaleSelection>(R"({"value":{"_0":1.2},"bookDefault":{}})"),
            kInvalidKeyCount);
  EXPECT_EQ(decodeFailure<TypographyFontScaleSelection>("{}"), kInvalidKeyCount);
  EXPECT_EQ(decodeFailure<TypographyFontSelection>("{}"), kInvalidKeyCount);
  EXPECT_EQ(decodeFailure<TypographyLineHeightSelection>(R"({"bookDefault":{},"x":1})"),
            kInvalidKeyCount);
  EXPECT_EQ(decodeFailure<TypographyLetterSpacingSelection>(R"({"normal":{},"bookDefault":{}})"),
            kInvalidKeyCount);
}

TEST(TypographyPreferencesTest, UnknownCasesFail) {
  EXPECT_THROW(decoded<TypographyFontSelection>(R"({"namedFont":{"stableName":"x"}})"),
               JSONDecodingError);
  EXPECT_THROW(decoded<TypographyFontScaleSelection>(R"({"normal":{}})"), JSONDecodingError);
  EXPECT_THROW(decoded<TypographyLineHeightSelection>(R"({"Value":{"_0":1}})"), JSONDecodingError);
  EXPECT_NE(decodeFailure<TypographyFontSelection>(R"({"namedFont":{}})"), kInvalidKeyCount);
}

TEST(TypographyPreferencesTest, PayloadsAreRequiredAndTyped) {
  EXPECT_THROW(decoded<TypographyFontSelection>(R"({"systemFont":{}})"), JSONDecodingError);
  EXPECT_THROW(decoded<TypographyFontSelection>(R"({"systemFont":{"stableName":3}})"),
               JSONDecodingError);
  EXPECT_THROW(decoded<TypographyFontScaleSelection>(R"({"value":{}})"), JSONDecodingError);
  EXPECT_THROW(decoded<TypographyFontScaleSelection>(R"({"value":{"_0":"1.2"}})"),
               JSONDecodingError);
  EXPECT_THROW(decoded<TypographyFontScaleSelection>(R"({"value":1.2})"), JSONDecodingError);
  EXPECT_THROW(decoded<TypographyFontScaleSelection>(R"({"bookDefault":null})"), JSONDecodingError);
  EXPECT_THROW(decoded<TypographyFontSelection>(R"("bookDefault")"), JSONDecodingError);
  try {
    decoded<TypographyFontSelection>(R"({"systemFont":{"stableName":false}})");
    FAIL();
  } catch (const JSONDecodingError& error) {
    EXPECT_EQ(error.codingPath(), (std::vector<std::string>{"systemFont", "stableName"}));
  }
}

TEST(TypographyPreferencesTest, PayloadValuesRoundTripExactly) {
  const double scale = 0.1 + 0.2 + 1.0;
  const auto read = roundTrip(TypographyFontScaleSelection::value(scale));
  ASSERT_EQ(read.kind(), TypographyFontScaleSelection::Kind::value);
  EXPECT_EQ(std::bit_cast<std::uint64_t>(*read.number()), std::bit_cast<std::uint64_t>(scale));
}

TEST(TypographyPreferencesTest, DefaultLeavesEverythingToTheBook) {
  EXPECT_EQ(encoded(TypographyPreferences()),
            R"({"font":{"bookDefault":{}},"fontScale":{"bookDefault":{}},)"
            R"("letterSpacing":{"bookDefault":{}},"lineHeight":{"bookDefault":{}},)"
            R"("pageMargins":"bookDefault"})");
}

TEST(TypographyPreferencesTest, PreferencesRoundTripIncludingNormalLetterSpacing) {
  const TypographyPreferences preferences{
      .font = TypographyFontSelection::systemFont("DejaVuSans"),
      .fontScale = TypographyFontScaleSelection::value(1.3),
      .lineHeight = TypographyLineHeightSelection::value(1.6),
      .letterSpacing = TypographyLetterSpacingSelection::normal(),
      .pageMargins = TypographyPageMarginsSelection::narrow,
  };
  EXPECT_EQ(roundTrip(preferences), preferences);
  EXPECT_NE(roundTrip(preferences), TypographyPreferences());
}

TEST(TypographyPreferencesTest, PreferencesRequireAllFiveKeys) {
  const nlohmann::json complete = TypographyPreferences();
  for (const char* key : {"font", "fontScale", "lineHeight", "letterSpacing", "pageMargins"}) {
    nlohmann::json json = complete;
    json.erase(key);
    EXPECT_THROW(json.get<TypographyPreferences>(), JSONDecodingError) << key;
  }
}

TEST(TypographyPreferencesTest, EqualityAndHashFollowCaseAndPayload) {
  EXPECT_NE(TypographyLetterSpacingSelection::normal(),
            TypographyLetterSpacingSelection::bookDefault());
  EXPECT_NE(TypographyLetterSpacingSelection::value(0), TypographyLetterSpacingSelection::normal());
  EXPECT_EQ(TypographyFontScaleSelection::value(1.0), TypographyFontScaleSelection::value(1.0));
  EXPECT_NE(TypographyFontSelection::systemFont("A"), TypographyFontSelection::systemFont("a"));
  std::unordered_set<TypographyLetterSpacingSelection> set{
      TypographyLetterSpacingSelection::normal(), TypographyLetterSpacingSelection::bookDefault(),
      TypographyLetterSpacingSelection::value(0.0), TypographyLetterSpacingSelection::value(-0.0),
      TypographyLetterSpacingSelection::normal()};
  EXPECT_EQ(set.size(), 3u);
  EXPECT_EQ(std::hash<TypographyPreferences>{}(TypographyPreferences()),
            std::hash<TypographyPreferences>{}(roundTrip(TypographyPreferences())));
}

}  // namespace
}  // namespace tomekeeper
