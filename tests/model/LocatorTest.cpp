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

TEST(LocatorTest, WritesEveryPresentFieldUnderItsNameAndRoundTripsExactly) {
  EXPECT_EQ(encoded(fullLocator()),
            R"j({"cfi":"epubcfi(/6/4!/4/2/1:0)",)j"
            R"("excerpt":{"exact":"It was","prefix":"Chapter 1. ","suffix":" a dark"},)"
            R"("sectionProgression":0.25,"spineHref":"OEBPS/chapter-1.xhtml","spineIndex":3,)"
            R"("totalProgression":0.30000000000000004})");
  const Locator read = roundTrip(fullLocator());
  EXPECT_EQ(read, fullLocator());
  EXPECT_EQ(std::bit_cast<std::uint64_t>(*read.totalProgression),
            std::bit_cast<std::uint64_t>(0.1 + 0.2));
  // A minimal locator writes exactly its two keys.
  const Locator minimal{.spineHref = "text/part0001.html", .spineIndex = 0};
  EXPECT_EQ(encoded(minimal), R"({"spineHref":"text/part0001.html","spineIndex":0})");
  EXPECT_EQ(roundTrip(minimal), minimal);
  for (const std::int64_t extreme :
       {std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()}) {
    const Locator locator{.spineHref = "a", .spineIndex = extreme};
    EXPECT_EQ(roundTrip(locator), locator);
  }
}

TEST(LocatorTest, ReadsWhatTheFormatAllows) {
  const struct {
    const char* name;
    const char* text;
    Locator expected;
  } cases[] = {
      {"NullOptionalsReadAsAbsent",
       R"({"cfi":null,"spineHref":"a.xhtml","spineIndex":1,"sectionProgression":null,)"
       R"("totalProgression":null,"excerpt":null})",
       {.spineHref = "a.xhtml", .spineIndex = 1}},
      {"UnknownKeysAreIgnored",
       R"({"spineHref":"a","spineIndex":2,"page":9,"extra":{"x":[1]}})",
       {.spineHref = "a", .spineIndex = 2}},
      {"ProgressionsAreKeptUnclamped",
       R"({"spineHref":"a","spineIndex":0,"sectionProgression":1.5,"totalProgression":-1})",
       {.spineHref = "a", .spineIndex = 0, .sectionProgression = 1.5, .totalProgression = -1.0}},
      {"EscapedSlashesInHrefs",
       R"({"spineHref":"OEBPS\/ch.xhtml","spineIndex":0})",
       {.spineHref = "OEBPS/ch.xhtml", .spineIndex = 0}},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    EXPECT_EQ(decoded<Locator>(test.text), test.expected);
  }
  EXPECT_EQ(decoded<TextContext>(R"({"exact":"x","prefix":null,"suffix":null})"),
            TextContext{.exact = "x"});
}

TEST(LocatorTest, RefusesWhatTheFormatDoesNot) {
  for (const char* text : {
           R"({"spineHref":"a.xhtml"})",
           R"({"spineIndex":1})",
           R"({"spineHref":"a.xhtml","spineIndex":null})",
           R"({"spineHref":"a","spineIndex":"1"})",
           R"({"spineHref":7,"spineIndex":1})",
           R"({"spineHref":"a","spineIndex":1,"totalProgression":"0.5"})",
           R"({"spineHref":"a","spineIndex":1.5})",
           R"({"spineHref":"a","spineIndex":true})",
           R"({"spineHref":"a","spineIndex":1,"excerpt":{}})",
           R"({"spineHref":"a","spineIndex":9223372036854775808})",
           R"(["a",1])",
       }) {
    SCOPED_TRACE(text);
    // Through nlohmann's own get as well: only the model's error comes out.
    EXPECT_THROW(decoded<Locator>(text), JSONDecodingError);
    EXPECT_THROW(nlohmann::json::parse(text).get<Locator>(), JSONDecodingError);
  }
}

TEST(LocatorTest, EqualityTellsAbsentFromPresentAndHashesFollowIt) {
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
