#include "model/SystemFontCatalog.h"

#include <fontconfig/fontconfig.h>
#include <gtest/gtest.h>
#include <unicode/coll.h>
#include <unicode/locid.h>

#include <algorithm>
#include <memory>
#include <optional>
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

// Display names in the locale's collation with numbers by value and letter case below the
// alphabet; stable names settle ties; a stable name stands once, as its later record.
TEST(SystemFontCatalogTest, ListsFontsInDisplayOrder) {
  using Names = std::vector<std::string>;
  const std::vector<SystemFontRecord> umlauts{font("Z", "Zebra"), font("O-umlaut", "\u00D6l"),
                                              font("O", "Ofen")};
  const std::vector<SystemFontRecord> duplicates{font("Dup", "First"), font("Other", "Middle"),
                                                 font("Dup", "Second")};
  const struct {
    const char* name;
    std::vector<SystemFontRecord> records;
    std::optional<icu::Locale> locale;
    Names expected;
  } cases[] = {
      {"OneDisplayNameIsOrderedByStableName",
       {font("Shared-Zeta", "Shared"), font("Alone", "Zulu"), font("Shared-Alpha", "Shared")},
       {},
       {"Shared-Alpha", "Shared-Zeta", "Alone"}},
      {"DigitsCompareAsNumbers",
       {font("F10", "Font 10"), font("F2", "Font 2"), font("F1", "Font 1")},
       {},
       {"F1", "F2", "F10"}},
      {"DigitsOfTiedStableNamesCompareAsNumbers",
       {font("Face-12", "Same"), font("Face-9", "Same")},
       {},
       {"Face-9", "Face-12"}},
      // Byte order would put "Banana" before "apple".
      {"LetterCaseDoesNotOutrankTheAlphabet",
       {font("B", "Banana"), font("a", "apple"), font("C", "cherry")},
       {},
       {"a", "B", "C"}},
      {"GermanPutsTheUmlautWithItsLetter", umlauts, icu::Locale("de"), {"O", "O-umlaut", "Z"}},
      {"SwedishPutsTheUmlautAfterZ", umlauts, icu::Locale("sv"), {"O", "Z", "O-umlaut"}},
      {"APosixLocaleStillFoldsCase",
       {font("B", "Banana"), font("a", "apple")},
       icu::Locale("en_US_POSIX"),
       {"a", "B"}},
      {"EachStableNameStandsOnce", duplicates, {}, {"Other", "Dup"}},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    EXPECT_EQ(
        stableNames(test.locale ? SystemFontCatalog::listInDisplayOrder(test.records, *test.locale)
                                : SystemFontCatalog::listInDisplayOrder(test.records)),
        test.expected);
  }
  EXPECT_EQ(SystemFontCatalog::listInDisplayOrder(duplicates).back(), font("Dup", "Second"))
      << "the later record wins";
}

// An installed font resolves under its PostScript name; a name fontconfig only matches another
// font for (it ignores case) or does not know at all falls back, keeping the name.
TEST(SystemFontCatalogTest, ResolvesASelectionToAnInstalledFontOrAFallback) {
  const SystemFontCatalog catalog;
  EXPECT_EQ(catalog.resolve(TypographyFontSelection::bookDefault()),
            TypographyFontResolution::bookDefault());
  for (const std::string name : {"NoSuchFont-Regular-7f3a", ""}) {
    EXPECT_EQ(catalog.resolve(TypographyFontSelection::systemFont(name)),
              TypographyFontResolution::fallback(name));
  }
  if (!fontconfigKnowsDejaVu()) GTEST_SKIP() << "fontconfig lists no DejaVu fonts here";
  EXPECT_EQ(catalog.resolve(TypographyFontSelection::systemFont("DejaVuSans")),
            TypographyFontResolution::available({"DejaVuSans", "DejaVu Sans", "DejaVu Sans"}));
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
