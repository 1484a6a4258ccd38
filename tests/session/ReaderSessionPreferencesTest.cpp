#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "SessionHarness.h"

namespace tomekeeper::testing {
namespace {

class ReaderSessionPreferencesTest : public ::testing::Test {
 protected:
  void SetUp() override { harness.create(); }

  void openReady() { ASSERT_EQ(harness.open(), std::nullopt); }

  std::optional<ReaderErrorKind> failureKind(async::Task<void> task) {
    const std::optional<ReaderError> failure = failureOf(std::move(task));
    if (!failure) return std::nullopt;
    return failure->kind();
  }

  SessionHarness harness;
};

TEST_F(ReaderSessionPreferencesTest, MissingFontKeepsTheChoiceAndSendsTheBookDefault) {
  openReady();

  runToEnd(harness.session->setFontSelection(TypographyFontSelection::systemFont("Gone-Regular")));

  EXPECT_EQ(harness.session->fontSelection().value(),
            TypographyFontSelection::systemFont("Gone-Regular"));
  EXPECT_EQ(harness.session->fontFallbackRequestedStableName().value(), "Gone-Regular");
  const json font = harness.runtime().payloads("configureTypography").back()["font"];
  EXPECT_EQ(font["mode"], "bookDefault");
  EXPECT_EQ(harness.typography->value.font, TypographyFontSelection::systemFont("Gone-Regular"));
}

TEST_F(ReaderSessionPreferencesTest, FontSetChangeBringsAnInstalledFontBack) {
  harness.typography->value.font = TypographyFontSelection::systemFont("Later-Regular");
  openReady();
  ASSERT_EQ(harness.session->fontFallbackRequestedStableName().value(), "Later-Regular");
  const std::size_t sent = harness.runtime().count("configureTypography");

  harness.fonts->installed.insert("Later-Regular");
  harness.fonts->fontSetChanged().emit();
  ASSERT_TRUE(
      iterateUntil([&] { return harness.runtime().count("configureTypography") == sent + 1; }));
  ASSERT_TRUE(iterateUntil(
      [&] { return !harness.session->fontFallbackRequestedStableName().value().has_value(); }));

  EXPECT_EQ(harness.session->fontCatalogRevision().value(), 1);
  const json font = harness.runtime().payloads("configureTypography").back()["font"];
  EXPECT_EQ(font["mode"], "systemFont");
  EXPECT_EQ(font["stableName"], "Later-Regular");
  EXPECT_EQ(font["fallbackStack"], json::array({"-apple-system", "sans-serif"}));
}

TEST_F(ReaderSessionPreferencesTest, FontSetChangeWithTheBooksFontBumpsTheRevisionAndSendsNothing) {
  openReady();
  const std::size_t sent = harness.runtime().count("configureTypography");
  harness.session->availableFonts();

  harness.fonts->installed.insert("New-Regular");
  harness.fonts->fontSetChanged().emit();
  harness.fonts->fontSetChanged().emit();
  ASSERT_TRUE(iterateUntil([&] { return harness.session->fontCatalogRevision().value() >= 1; }));
  ASSERT_EQ(harness.session->availableFonts().size(), 1u);
  EXPECT_EQ(harness.session->availableFonts()[0].stableName, "New-Regular");
  // The sentinel: one more notice, for a font added now. Once the list shows it, a second
  // refresh of the burst, queued before it, would have run.
  harness.fonts->installed.insert("Sentinel-Regular");
  harness.fonts->fontSetChanged().emit();
  ASSERT_TRUE(iterateUntil([&] { return harness.session->availableFonts().size() == 2; }));

  // A burst comes down to one refresh.
  EXPECT_EQ(harness.session->fontCatalogRevision().value(), 2);
  EXPECT_EQ(harness.runtime().count("configureTypography"), sent);
}

// Adjusting moves by the step from the stored scale (one for the book's default), rounds half
// away from zero at one decimal, stays within 0.5 to 3, and configures the page every time.
TEST_F(ReaderSessionPreferencesTest, AdjustingTheScaleRoundsAndStaysWithinItsLimits) {
  const struct {
    const char* name;
    TypographyFontScaleSelection stored;
    double step;
    double expected;
  } cases[] = {
      {"OneTenthMoreThanTheBookDefault", TypographyFontScaleSelection::bookDefault(), 0.1, 1.1},
      {"OneTenthLessThanTheBookDefault", TypographyFontScaleSelection::bookDefault(), -0.1, 0.9},
      {"RoundsHalvesAwayFromZero", TypographyFontScaleSelection::value(1.25), 0.1, 1.4},
      {"StaysAtTheTop", TypographyFontScaleSelection::value(3.0), 0.1, 3.0},
      {"StaysAtTheBottom", TypographyFontScaleSelection::value(0.5), -0.1, 0.5},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    SessionHarness run;
    run.typography->value.fontScale = test.stored;
    run.openReady();
    const std::size_t sent = run.runtime().count("configureTypography");

    runToEnd(run.session->adjustFontScale(test.step));

    const auto expected = TypographyFontScaleSelection::value(test.expected);
    EXPECT_EQ(run.session->fontScaleSelection().value(), expected);
    EXPECT_EQ(run.typography->value.fontScale, expected);
    EXPECT_EQ(run.runtime().count("configureTypography"), sent + 1);
    EXPECT_DOUBLE_EQ(
        run.runtime().payloads("configureTypography").back()["fontScale"]["value"].get<double>(),
        test.expected);
  }
}

// A value out of range fails with its cause, sends nothing and keeps the last good value.
TEST_F(ReaderSessionPreferencesTest, ValuesBeyondTheLimitsFailSendingNothing) {
  openReady();
  runToEnd(harness.session->setFontScale(TypographyFontScaleSelection::value(3.0)));
  runToEnd(harness.session->setFontScale(TypographyFontScaleSelection::value(0.5)));
  runToEnd(harness.session->setLetterSpacing(TypographyLetterSpacingSelection::value(-0.05)));
  runToEnd(harness.session->setLetterSpacing(TypographyLetterSpacingSelection::value(0.2)));
  const std::size_t calls = harness.runtime().calls.size();
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  ReaderSession& session = *harness.session;
  const struct {
    const char* name;
    std::function<async::Task<void>()> command;
    const char* cause;
  } cases[] = {
      {"ScaleAboveThree",
       [&] { return session.setFontScale(TypographyFontScaleSelection::value(3.01)); },
       "ReaderTypographyFailure.invalidFontScale"},
      {"ScaleBelowOneHalf",
       [&] { return session.setFontScale(TypographyFontScaleSelection::value(0.49)); },
       "ReaderTypographyFailure.invalidFontScale"},
      {"ScaleNotANumber",
       [&] { return session.setFontScale(TypographyFontScaleSelection::value(nan)); },
       "ReaderTypographyFailure.invalidFontScale"},
      {"AdjustingByNotANumber", [&] { return session.adjustFontScale(nan); },
       "ReaderTypographyFailure.invalidFontScale"},
      {"LetterSpacingJustBelowItsLimit",
       [&] { return session.setLetterSpacing(TypographyLetterSpacingSelection::value(-0.051)); },
       "ReaderTypographyFailure.invalidLetterSpacing"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    EXPECT_TRUE(failureKind(test.command()).has_value());
    ASSERT_TRUE(session.error().value().has_value());
    EXPECT_EQ(session.error().value()->diagnosticCause(), test.cause);
  }
  EXPECT_EQ(harness.runtime().calls.size(), calls);
  EXPECT_EQ(session.fontScaleSelection().value(), TypographyFontScaleSelection::value(0.5));
  EXPECT_EQ(harness.typography->value.fontScale, TypographyFontScaleSelection::value(0.5));
  EXPECT_EQ(session.letterSpacingSelection().value(), TypographyLetterSpacingSelection::value(0.2));
}

TEST_F(ReaderSessionPreferencesTest, TypographyChangeRestoresThePlaceWithoutSavingIt) {
  openReady();
  const Locator place = locatorAt(1, "/6/4!/4/60/1:0", 0.4);
  harness.runtime().current = place;

  runToEnd(harness.session->setLineHeight(TypographyLineHeightSelection::value(1.5)));

  const std::vector<std::string> methods = harness.runtime().methods();
  const std::vector<std::string> tail(methods.end() - 4, methods.end());
  EXPECT_EQ(tail, (std::vector<std::string>{"currentLocator", "configureTypography", "goTo",
                                            "currentLocator"}));
  EXPECT_EQ(harness.runtime().payloads("goTo").back()["locator"].get<Locator>(), place);
  EXPECT_EQ(harness.session->locator().value(), place);
  EXPECT_TRUE(harness.positions->saves.empty());
  EXPECT_EQ(harness.typography->value.lineHeight, TypographyLineHeightSelection::value(1.5));
}

TEST_F(ReaderSessionPreferencesTest, RefusedConfigureChangesNoPropertyAndNoStore) {
  openReady();
  harness.runtime().handlers["configureTypography"] = [](const json&) {
    return RuntimeAnswer::failure("internal-error");
  };

  EXPECT_TRUE(failureKind(harness.session->setPageMargins(TypographyPageMarginsSelection::wide))
                  .has_value());
  EXPECT_EQ(harness.session->pageMarginsSelection().value(),
            TypographyPageMarginsSelection::bookDefault);
  EXPECT_EQ(harness.typography->writeCount, 0);
}

TEST_F(ReaderSessionPreferencesTest, ScrolledWidthInPaginatedModeIsNeitherSentNorRemembered) {
  openReady();
  const std::size_t calls = harness.runtime().calls.size();

  runToEnd(harness.session->setScrolledContentWidth(ScrolledContentWidth::wide));

  EXPECT_EQ(harness.session->scrolledContentWidth().value(), ScrolledContentWidth::comfortable);
  EXPECT_EQ(harness.runtime().calls.size(), calls);
  EXPECT_TRUE(harness.width->saves.empty());
}

TEST_F(ReaderSessionPreferencesTest, TurningToScrolledSendsTheModeThenTheWidth) {
  openReady();

  runToEnd(harness.session->setReadingMode(ReadingMode::scrolled));

  const ScriptedReaderRuntime& runtime = harness.runtime();
  EXPECT_LT(runtime.lastIndexOf("configureReadingMode"),
            runtime.lastIndexOf("configureScrolledContentWidth"));
  EXPECT_EQ(runtime.payloads("configureScrolledContentWidth")[0]["maxInlineSize"], 700);
  EXPECT_EQ(harness.session->readingMode().value(), ReadingMode::scrolled);
  EXPECT_EQ(harness.mode->saves, std::vector<ReadingMode>{ReadingMode::scrolled});

  runToEnd(harness.session->setScrolledContentWidth(ScrolledContentWidth::narrow));
  EXPECT_EQ(runtime.payloads("configureScrolledContentWidth").back()["maxInlineSize"], 560);
  EXPECT_EQ(harness.session->layoutReport().computedScrolledBodyMaxWidth.value(), 560.0);
  EXPECT_EQ(harness.width->saves, std::vector<ScrolledContentWidth>{ScrolledContentWidth::narrow});
}

TEST_F(ReaderSessionPreferencesTest,
       ModeTheRuntimeRefusesShowsItsEffectiveModeButStoresTheRequest) {
  openReady();
  harness.runtime().handlers["configureReadingMode"] = [](const json& payload) {
    return RuntimeAnswer::result({{"requestedMode", payload["mode"]},
                                  {"effectiveMode", "paginated"},
                                  {"computedContainerOverflow", "hidden"},
                                  {"configurationRevision", 77}});
  };

  runToEnd(harness.session->setReadingMode(ReadingMode::scrolled));

  EXPECT_EQ(harness.session->readingMode().value(), ReadingMode::paginated);
  EXPECT_EQ(harness.session->layoutReport().readingModeConfigurationRevision.value(), 77);
  EXPECT_EQ(harness.mode->saves, std::vector<ReadingMode>{ReadingMode::scrolled});
  EXPECT_EQ(harness.runtime().count("configureScrolledContentWidth"), 1u);
}

TEST_F(ReaderSessionPreferencesTest, ThemeWhoseStoreWriteFailsStillShowsWithError) {
  openReady();
  harness.theme->writeFailure = ReadingThemePersistenceFailure::cannotWrite;

  EXPECT_EQ(failureKind(harness.session->setReadingTheme(ReadingThemeSelection::dark)),
            ReaderErrorKind::persistenceFailed);

  EXPECT_EQ(harness.session->readingTheme().value(), ReadingThemeSelection::dark);
  EXPECT_EQ(harness.runtime().payloads("configureTheme").back()["theme"]["mode"], "dark");
  EXPECT_TRUE(harness.session->error().value().has_value());
  EXPECT_EQ(harness.theme->value, ReadingThemeSelection::system);
}

TEST_F(ReaderSessionPreferencesTest, RestoringBookTypographyWritesTheStoreOnce) {
  harness.typography->value.lineHeight = TypographyLineHeightSelection::value(2.0);
  openReady();
  const int writes = harness.typography->writeCount;

  runToEnd(harness.session->restoreBookTypography());

  EXPECT_EQ(harness.typography->writeCount, writes + 1);
  EXPECT_EQ(harness.typography->value, TypographyPreferences{});
  EXPECT_EQ(harness.session->currentTypographyPreferences(), TypographyPreferences{});
}

TEST_F(ReaderSessionPreferencesTest, CommandsOutsideReadyAreIgnored) {
  runToEnd(harness.session->setReadingTheme(ReadingThemeSelection::dark));
  runToEnd(harness.session->setFontScale(TypographyFontScaleSelection::value(2.0)));
  EXPECT_TRUE(harness.runtime().calls.empty());

  openReady();
  harness.session->close();
  const std::size_t calls = harness.runtime().calls.size();
  runToEnd(harness.session->setPageLayout(PageLayout::doublePage));
  EXPECT_EQ(harness.runtime().calls.size(), calls);
}

}  // namespace
}  // namespace tomekeeper::testing
