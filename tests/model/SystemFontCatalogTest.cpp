#include "model/SystemFontCatalog.h"

#include <fontconfig/fontconfig.h>
#include <gtest/gtest.h>
#include <unicode/coll.h>
#include <unicode/locid.h>

#include <algorithm>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace tomekeeper {
namespace {

SystemFontRecord font(std::string stableName, std::string displayName) {
  return SystemFontRecord{.stableName = std::move(stableName),
                          .displayName = std::move(displayName),
                          .cssFamilyName = "Family"};
}

std::vector<std::string> stableNames(const std::vector<SystemFontRecord>& records) {
  std::vector<std::string> names;
  for (const SystemFontRecord& record : records) names.push_back(record.stableName);
  return names;
}

// Asks fontconfig directly, so that the skip doesn't depend on the code under test.
bool fontconfigKnowsDejaVu() {
  FcPattern* pattern = FcNameParse(reinterpret_cast<const FcChar8*>("DejaVu Sans"));
  FcObjectSet* objects = FcObjectSetBuild(FC_FAMILY, static_cast<char*>(nullptr));
  FcFontSet* fonts = FcFontList(nullptr, pattern, objects);
  const bool known = fonts != nullptr && fonts->nfont > 0;
  if (fonts) FcFontSetDestroy(fonts);
  FcObjectSetDestroy(objects);
  FcPatternDestroy(pattern);
  return known;
}

TEST(SystemFontCatalogTest, OneDisplayNameIsOrderedByStableName) {
  const auto list = SystemFontCatalog::listInDisplayOrder(
      {font("Shared-Zeta", "Shared"), font("Alone", "Zulu"), font("Shared-Alpha", "Shared")});
  EXPECT_EQ(stableNames(list), (std::vector<std::string>{"Shared-Alpha", "Shared-Zeta", "Alone"}));
}

TEST(SystemFontCatalogTest, DigitsCompareAsNumbers) {
  const auto list = SystemFontCatalog::listInDisplayOrder(
      {font("F10", "Font 10"), font("F2", "Font 2"), font("F1", "Font 1")});
  EXPECT_EQ(stableNames(list), (std::vector<std::string>{"F1", "F2", "F10"}));
  const auto tied =
      SystemFontCatalog::listInDisplayOrder({font("Face-12", "Same"), font("Face-9", "Same")});
  EXPECT_EQ(stableNames(tied), (std::vector<std::string>{"Face-9", "Face-12"}));
}

TEST(SystemFontCatalogTest, LetterCaseDoesNotOutrankTheAlphabet) {
  // Byte order would put "Banana" before "apple".
  const auto list = SystemFontCatalog::listInDisplayOrder(
      {font("B", "Banana"), font("a", "apple"), font("C", "cherry")});
  EXPECT_EQ(stableNames(list), (std::vector<std::string>{"a", "B", "C"}));
}

TEST(SystemFontCatalogTest, TheLocaleDecidesWhereAccentedLettersGo) {
  const std::vector<SystemFontRecord> records{font("Z", "Zebra"), font("O-umlaut", "\u00D6l"),
                                              font("O", "Ofen")};
  EXPECT_EQ(stableNames(SystemFontCatalog::listInDisplayOrder(records, icu::Locale("de"))),
            (std::vector<std::string>{"O", "O-umlaut", "Z"}));
  EXPECT_EQ(stableNames(SystemFontCatalog::listInDisplayOrder(records, icu::Locale("sv"))),
            (std::vector<std::string>{"O", "Z", "O-umlaut"}));
}

TEST(SystemFontCatalogTest, APosixLocaleStillFoldsCase) {
  const auto list = SystemFontCatalog::listInDisplayOrder({font("B", "Banana"), font("a", "apple")},
                                                          icu::Locale("en_US_POSIX"));
  EXPECT_EQ(stableNames(list), (std::vector<std::string>{"a", "B"}));
}

TEST(SystemFontCatalogTest, EachStableNameStandsOnceAndTheLaterRecordWins) {
  const auto list = SystemFontCatalog::listInDisplayOrder(
      {font("Dup", "First"), font("Other", "Middle"), font("Dup", "Second")});
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list[0], font("Other", "Middle"));
  EXPECT_EQ(list[1], font("Dup", "Second"));
}

TEST(SystemFontCatalogTest, BookDefaultResolvesToBookDefault) {
  const SystemFontCatalog catalog;
  EXPECT_EQ(catalog.resolve(TypographyFontSelection::bookDefault()),
            TypographyFontResolution::bookDefault());
}

TEST(SystemFontCatalogTest, AnInstalledFontIsAvailableUnderItsPostScriptName) {
  if (!fontconfigKnowsDejaVu()) GTEST_SKIP() << "fontconfig lists no DejaVu fonts here";
  const SystemFontCatalog catalog;
  const auto resolution = catalog.resolve(TypographyFontSelection::systemFont("DejaVuSans"));
  ASSERT_EQ(resolution.kind(), TypographyFontResolution::Kind::available);
  EXPECT_EQ(resolution.record()->stableName, "DejaVuSans");
  EXPECT_EQ(resolution.record()->displayName, "DejaVu Sans");
  EXPECT_EQ(resolution.record()->cssFamilyName, "DejaVu Sans");
}

TEST(SystemFontCatalogTest, AMadeUpNameFallsBackKeepingTheName) {
  const SystemFontCatalog catalog;
  EXPECT_EQ(catalog.resolve(TypographyFontSelection::systemFont("NoSuchFont-Regular-7f3a")),
            TypographyFontResolution::fallback("NoSuchFont-Regular-7f3a"));
  EXPECT_EQ(catalog.resolve(TypographyFontSelection::systemFont("")),
            TypographyFontResolution::fallback(""));
}

TEST(SystemFontCatalogTest, AFontFoundUnderADifferentNameIsAFallback) {
  if (!fontconfigKnowsDejaVu()) GTEST_SKIP() << "fontconfig lists no DejaVu fonts here";
  // fontconfig matches names without regard to case and so offers DejaVuSans for this one.
  const SystemFontCatalog catalog;
  EXPECT_EQ(catalog.resolve(TypographyFontSelection::systemFont("dejavusans")),
            TypographyFontResolution::fallback("dejavusans"));
}

TEST(SystemFontCatalogTest, ListIsUniqueSortedAndAgreesWithResolve) {
  if (!fontconfigKnowsDejaVu()) GTEST_SKIP() << "fontconfig lists no DejaVu fonts here";
  const SystemFontCatalog catalog;
  const std::vector<SystemFontRecord> fonts = catalog.availableFonts();
  ASSERT_FALSE(fonts.empty());

  std::set<std::string> seen;
  for (const SystemFontRecord& record : fonts) {
    EXPECT_FALSE(record.stableName.empty());
    EXPECT_TRUE(seen.insert(record.stableName).second) << record.stableName;
  }

  UErrorCode status = U_ZERO_ERROR;
  // The user's collation, with the root one standing in for a POSIX locale.
  const icu::Locale& user = icu::Locale::getDefault();
  const bool posix = std::string(user.getVariant()) == "POSIX";
  std::unique_ptr<icu::Collator> collator(
      icu::Collator::createInstance(posix ? icu::Locale::getRoot() : user, status));
  collator->setAttribute(UCOL_NUMERIC_COLLATION, UCOL_ON, status);
  ASSERT_TRUE(U_SUCCESS(status));
  for (std::size_t index = 1; index < fonts.size(); ++index) {
    const SystemFontRecord& previous = fonts[index - 1];
    const SystemFontRecord& current = fonts[index];
    const UCollationResult display =
        collator->compareUTF8(previous.displayName, current.displayName, status);
    EXPECT_NE(display, UCOL_GREATER) << previous.displayName << " / " << current.displayName;
    if (display == UCOL_EQUAL) {
      EXPECT_NE(collator->compareUTF8(previous.stableName, current.stableName, status),
                UCOL_GREATER)
          << previous.stableName << " / " << current.stableName;
    }
  }

  const auto dejaVu = std::find_if(fonts.begin(), fonts.end(), [](const SystemFontRecord& record) {
    return record.stableName == "DejaVuSans";
  });
  ASSERT_NE(dejaVu, fonts.end());
  EXPECT_EQ(catalog.resolve(TypographyFontSelection::systemFont("DejaVuSans")),
            TypographyFontResolution::available(*dejaVu));
}

TEST(SystemFontCatalogTest, ChangeSignalReachesEveryObserver) {
  SystemFontCatalog catalog;
  SystemFontCataloging& cataloging = catalog;
  int notifications = 0;
  cataloging.fontSetChanged().connect([&notifications] { ++notifications; });
  cataloging.fontSetChanged().connect([&notifications] { notifications += 10; });
  catalog.fontSetChanged().emit();
  EXPECT_EQ(notifications, 11);
}

}  // namespace
}  // namespace tomekeeper
