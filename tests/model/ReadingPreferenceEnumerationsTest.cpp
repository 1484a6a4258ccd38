#include <gtest/gtest.h>

#include <string>
#include <unordered_set>

#include "RoundTrip.h"
#include "model/PageLayout.h"
#include "model/ReadingMode.h"
#include "model/ReadingThemeSelection.h"
#include "model/ScrolledContentWidth.h"

namespace tomekeeper {
namespace {

template <typename Enumeration>
std::string joinedRawValues() {
  std::string text;
  for (const Enumeration value : allCases<Enumeration>()) {
    if (!text.empty()) text += ',';
    text += rawValue(value);
  }
  return text;
}

TEST(ReadingPreferenceEnumerationsTest, CasesAndTheirStringsInOrder) {
  EXPECT_EQ(joinedRawValues<ReadingMode>(), "paginated,scrolled");
  EXPECT_EQ(joinedRawValues<PageLayout>(), "adaptive,singlePage,doublePage");
  EXPECT_EQ(joinedRawValues<ReadingThemeSelection>(), "system,light,warm,dark");
  EXPECT_EQ(joinedRawValues<ScrolledContentWidth>(), "narrow,comfortable,wide");
}

template <typename Enumeration>
void expectEveryCaseRoundTrips() {
  for (const Enumeration value : allCases<Enumeration>()) {
    EXPECT_EQ(encoded(value), "\"" + std::string(rawValue(value)) + "\"");
    EXPECT_EQ(roundTrip(value), value);
    EXPECT_EQ(parseRawValue<Enumeration>(rawValue(value)), value);
  }
}

TEST(ReadingPreferenceEnumerationsTest, EveryCaseTravelsAsItsString) {
  expectEveryCaseRoundTrips<ReadingMode>();
  expectEveryCaseRoundTrips<PageLayout>();
  expectEveryCaseRoundTrips<ReadingThemeSelection>();
  expectEveryCaseRoundTrips<ScrolledContentWidth>();
}

TEST(ReadingPreferenceEnumerationsTest, UnknownStringsAndIntegersAreRefused) {
  EXPECT_EQ(parseRawValue<PageLayout>("SinglePage"), std::nullopt);
  EXPECT_EQ(parseRawValue<PageLayout>(""), std::nullopt);
  EXPECT_THROW(decoded<ReadingMode>(R"("Paginated")"), JSONDecodingError);
  EXPECT_THROW(decoded<ReadingMode>("0"), JSONDecodingError);
  EXPECT_THROW(nlohmann::json(1).get<ScrolledContentWidth>(), JSONDecodingError);
  try {
    decoded<ReadingThemeSelection>(R"("sepia")");
    FAIL() << "decoded an unknown theme";
  } catch (const JSONDecodingError& error) {
    EXPECT_NE(std::string(error.what()).find("ReadingThemeSelection"), std::string::npos);
  }
}

TEST(ReadingPreferenceEnumerationsTest, ResolvedThemeCarriesTheSelectionAsMode) {
  const ResolvedReadingTheme theme{.mode = ReadingThemeSelection::warm};
  EXPECT_EQ(encoded(theme), R"({"mode":"warm"})");
  EXPECT_EQ(roundTrip(theme), theme);
  EXPECT_THROW(decoded<ResolvedReadingTheme>("{}"), JSONDecodingError);
  EXPECT_THROW(decoded<ResolvedReadingTheme>(R"({"mode":"night"})"), JSONDecodingError);
  std::unordered_set<ResolvedReadingTheme> themes;
  for (const auto selection : allCases<ReadingThemeSelection>()) themes.insert({selection});
  EXPECT_EQ(themes.size(), 4u);
}

}  // namespace
}  // namespace tomekeeper
