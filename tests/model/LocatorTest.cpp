#include "model/Locator.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <limits>
#include <unordered_set>

#include "RoundTrip.h"

namespace tomekeeper {
namespace {

Locator fullLocator() {
  return Locator{
      .cfi = "epubcfi(/6/4!/4/2/1:0)",
      .spineHref = "OEBPS/chapter-1.xhtml",
      .spineIndex = 3,
      .sectionProgression = 0.25,
      .totalProgression = 0.1 + 0.2,
      .excerpt = TextContext{.exact = "It was", .prefix = "Chapter 1. ", .suffix = " a dark"},
  };
}

TEST(LocatorTest, WritesEveryPresentFieldUnderItsName) {
  EXPECT_EQ(encoded(fullLocator()),
            R"j({"cfi":"epubcfi(/6/4!/4/2/1:0)",)j"
            R"("excerpt":{"exact":"It was","prefix":"Chapter 1. ","suffix":" a dark"},)"
            R"("sectionProgression":0.25,"spineHref":"OEBPS/chapter-1.xhtml","spineIndex":3,)"
            R"("totalProgression":0.30000000000000004})");
}

TEST(LocatorTest, FullLocatorRoundTripsWithExactProgressions) {
  const Locator locator = fullLocator();
  const Locator read = roundTrip(locator);
  EXPECT_EQ(read, locator);
  EXPECT_EQ(std::bit_cast<std::uint64_t>(*read.totalProgression),
            std::bit_cast<std::uint64_t>(0.1 + 0.2));
}

TEST(LocatorTest, MinimalLocatorWritesExactlyTwoKeys) {
  const Locator locator{.spineHref = "text/part0001.html", .spineIndex = 0};
  const nlohmann::json json = locator;
  EXPECT_EQ(json.size(), 2u);
  EXPECT_EQ(json.dump(), R"({"spineHref":"text/part0001.html","spineIndex":0})");
  EXPECT_EQ(roundTrip(locator), locator);
}

TEST(LocatorTest, NullOptionalsReadAsAbsent) {
  const auto locator = decoded<Locator>(
      R"({"cfi":null,"spineHref":"a.xhtml","spineIndex":1,"sectionProgression":null,)"
      R"("totalProgression":null,"excerpt":null})");
  EXPECT_EQ(locator, (Locator{.spineHref = "a.xhtml", .spineIndex = 1}));
  const auto context = decoded<TextContext>(R"({"exact":"x","prefix":null,"suffix":null})");
  EXPECT_EQ(context, TextContext{.exact = "x"});
}

TEST(LocatorTest, MissingSpineIndexFailsTheDecode) {
  EXPECT_THROW(decoded<Locator>(R"({"spineHref":"a.xhtml"})"), JSONDecodingError);
  EXPECT_THROW(decoded<Locator>(R"({"spineIndex":1})"), JSONDecodingError);
  EXPECT_THROW(decoded<Locator>(R"({"spineHref":"a.xhtml","spineIndex":null})"), JSONDecodingError);
}

TEST(LocatorTest, WrongTypedFieldsFailTheDecode) {
  EXPECT_THROW(decoded<Locator>(R"({"spineHref":"a","spineIndex":"1"})"), JSONDecodingError);
  EXPECT_THROW(decoded<Locator>(R"({"spineHref":7,"spineIndex":1})"), JSONDecodingError);
  EXPECT_THROW(decoded<Locator>(R"({"spineHref":"a","spineIndex":1,"totalProgression":"0.5"})"),
               JSONDecodingError);
  EXPECT_THROW(decoded<Locator>(R"({"spineHref":"a","spineIndex":1.5})"), JSONDecodingError);
  EXPECT_THROW(decoded<Locator>(R"({"spineHref":"a","spineIndex":1,"excerpt":{}})"),
               JSONDecodingError);
  EXPECT_THROW(decoded<Locator>(R"(["a",1])"), JSONDecodingError);
}

TEST(LocatorTest, NlohmannGetReportsOnlyTheModelsError) {
  const auto json = nlohmann::json::parse(R"({"spineHref":"a","spineIndex":true})");
  EXPECT_THROW(json.get<Locator>(), JSONDecodingError);
}

TEST(LocatorTest, UnknownKeysAreIgnored) {
  const auto locator =
      decoded<Locator>(R"({"spineHref":"a","spineIndex":2,"page":9,"extra":{"x":[1]}})");
  EXPECT_EQ(locator, (Locator{.spineHref = "a", .spineIndex = 2}));
}

TEST(LocatorTest, ProgressionsAreKeptUnclamped) {
  const auto locator = decoded<Locator>(
      R"({"spineHref":"a","spineIndex":0,"sectionProgression":1.5,"totalProgression":-1})");
  EXPECT_EQ(locator.sectionProgression, 1.5);
  EXPECT_EQ(locator.totalProgression, -1.0);
}

TEST(LocatorTest, SpineIndexIsSigned64Bit) {
  const Locator extreme{.spineHref = "a", .spineIndex = std::numeric_limits<std::int64_t>::min()};
  EXPECT_EQ(roundTrip(extreme), extreme);
  const Locator large{.spineHref = "a", .spineIndex = std::numeric_limits<std::int64_t>::max()};
  EXPECT_EQ(roundTrip(large), large);
  EXPECT_THROW(decoded<Locator>(R"({"spineHref":"a","spineIndex":9223372036854775808})"),
               JSONDecodingError);
}

TEST(LocatorTest, EscapedSlashesInHrefsAreRead) {
  const auto locator = decoded<Locator>(R"({"spineHref":"OEBPS\/ch.xhtml","spineIndex":0})");
  EXPECT_EQ(locator.spineHref, "OEBPS/ch.xhtml");
}

TEST(LocatorTest, EqualityTellsAbsentFromPresentAndComparesNumbers) {
  const Locator base{.spineHref = "a", .spineIndex = 0};
  Locator withZero = base;
  withZero.totalProgression = 0.0;
  Locator withNegativeZero = base;
  withNegativeZero.totalProgression = -0.0;
  EXPECT_NE(base, withZero);
  EXPECT_EQ(withZero, withNegativeZero);
  EXPECT_EQ(std::hash<Locator>{}(withZero), std::hash<Locator>{}(withNegativeZero));
  Locator withCfi = base;
  withCfi.cfi = "";
  EXPECT_NE(base, withCfi);
}

TEST(LocatorTest, EqualLocatorsHashEqualAndDifferentOnesSpread) {
  std::unordered_set<Locator> set;
  for (std::int64_t index = 0; index < 50; ++index) {
    set.insert(Locator{.spineHref = "a", .spineIndex = index});
    set.insert(Locator{.spineHref = "a", .spineIndex = index});
  }
  EXPECT_EQ(set.size(), 50u);
  EXPECT_EQ(std::hash<Locator>{}(fullLocator()), std::hash<Locator>{}(roundTrip(fullLocator())));
}

TEST(LocatorTest, TextSelectionCarriesItsLocator) {
  const TextSelection selection{.locator = fullLocator(), .selectedText = "It was"};
  EXPECT_EQ(roundTrip(selection), selection);
  EXPECT_THROW(decoded<TextSelection>(R"({"selectedText":"x"})"), JSONDecodingError);
  EXPECT_THROW(decoded<TextSelection>(R"({"locator":{"spineHref":"a"},"selectedText":"x"})"),
               JSONDecodingError);
}

}  // namespace
}  // namespace tomekeeper
