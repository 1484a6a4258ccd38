// Reading preferences: the appliers that carry a choice to the runtime inside the relayout
// frame (capture the place, configure, go back to the place, read the locator back), the
// commands that also write the stores, and the refresh after a change of the system's fonts.

#include <cmath>
#include <utility>

#include "async/Sleep.h"
#include "async/Spawn.h"
#include "model/ReaderTypographyFailure.h"
#include "session/ReaderSession.h"
#include "session/TypographyConfiguration.h"

namespace tomekeeper {

namespace {

std::string beforeStage(std::string_view prefix) {
  return std::string(prefix) + ".before";
}

std::string afterStage(std::string_view prefix) {
  return std::string(prefix) + ".after";
}

}  // namespace

async::Task<Locator> ReaderSession::captureLocatorBefore(std::string_view loggedStage) {
  const std::string stage(loggedStage);
  Locator before = co_await bridge().currentLocator();
  if (!stage.empty()) logLocation(beforeStage(stage), before);
  co_return before;
}

async::Task<void> ReaderSession::restoreLocatorAfter(Locator before, std::string_view loggedStage) {
  const std::string stage(loggedStage);
  ReaderPositionResult position = co_await bridge().goTo(GoToLocatorRequest{std::move(before)});
  position_.set(std::move(position));
  Locator after = co_await bridge().currentLocator();
  locator_.set(after);
  if (!stage.empty()) logLocation(afterStage(stage), after);
}

TypographyPreferences ReaderSession::currentTypographyPreferences() const {
  return TypographyPreferences{fontSelection_.value(), fontScaleSelection_.value(),
                               lineHeightSelection_.value(), letterSpacingSelection_.value(),
                               pageMarginsSelection_.value()};
}

void ReaderSession::storeSelections(const TypographyPreferences& preferences,
                                    SelectionUpdate update) {
  const bool all = update == SelectionUpdate::all;
  if (all || update == SelectionUpdate::fontOnly) fontSelection_.set(preferences.font);
  if (all || update == SelectionUpdate::fontScaleOnly)
    fontScaleSelection_.set(preferences.fontScale);
  if (all || update == SelectionUpdate::lineHeightOnly) {
    lineHeightSelection_.set(preferences.lineHeight);
  }
  if (all || update == SelectionUpdate::letterSpacingOnly) {
    letterSpacingSelection_.set(preferences.letterSpacing);
  }
  if (all || update == SelectionUpdate::pageMarginsOnly) {
    pageMarginsSelection_.set(preferences.pageMargins);
  }
}

async::Task<void> ReaderSession::configureTypography(TypographyPreferences preferences,
                                                     FontFallbackUpdate fallbackUpdate,
                                                     SelectionUpdate selectionUpdate,
                                                     std::string_view loggedStage) {
  const std::string stage(loggedStage);
  // The request is built first, so that a value outside its limits sends nothing at all.
  const TypographyFontResolution resolution = fontCatalog_->resolve(preferences.font);
  if (fallbackUpdate == FontFallbackUpdate::write) {
    fontFallbackRequestedStableName_.set(resolution.kind() ==
                                                 TypographyFontResolution::Kind::fallback
                                             ? resolution.requestedStableName()
                                             : std::nullopt);
  }
  ConfigureTypographyRequest request = typographyRequest(preferences, resolution);

  const Locator before = co_await captureLocatorBefore(stage);

  const ConfigureTypographyResult result =
      co_await bridge().configureTypography(std::move(request));
  layoutReport_.computedRootFontSize.set(result.computedRootFontSize);
  layoutReport_.computedBodyFontFamily.set(result.computedBodyFontFamily);
  layoutReport_.computedBodyFontSize.set(result.computedBodyFontSize);
  layoutReport_.computedParagraphLineHeight.set(result.computedParagraphLineHeight);
  layoutReport_.computedParagraphLetterSpacing.set(result.computedParagraphLetterSpacing);
  layoutReport_.computedCodeLetterSpacing.set(result.computedCodeLetterSpacing);
  layoutReport_.computedRootPaddingInlineStart.set(result.computedRootPaddingInlineStart);
  layoutReport_.computedSemanticIndent.set(result.computedSemanticIndent);
  layoutReport_.typographyConfigurationRevision.set(result.configurationRevision);

  co_await restoreLocatorAfter(before, stage);
  storeSelections(preferences, selectionUpdate);
}

// ---- Appliers ----------------------------------------------------------------------------------

async::Task<void> ReaderSession::applyPreferences(TypographyPreferences preferences) {
  const auto keepAlive = shared_from_this();
  co_await configureTypography(std::move(preferences), FontFallbackUpdate::write,
                               SelectionUpdate::all, "applyPreferences");
}

async::Task<void> ReaderSession::applyReadingTheme(ReadingThemeSelection selection) {
  const auto keepAlive = shared_from_this();
  const Locator before = co_await captureLocatorBefore("applyReadingTheme");
  const ConfigureThemeResult result =
      co_await bridge().configureTheme(ConfigureThemeRequest{ResolvedReadingTheme{selection}});
  readingTheme_.set(selection);
  layoutReport_.computedBodyColor.set(result.computedBodyColor);
  layoutReport_.computedBodyBackgroundColor.set(result.computedBodyBackgroundColor);
  layoutReport_.themeConfigurationRevision.set(result.configurationRevision);
  co_await restoreLocatorAfter(before, "applyReadingTheme");
}

async::Task<void> ReaderSession::applyReadingMode(ReadingMode mode) {
  const auto keepAlive = shared_from_this();
  const Locator before = co_await captureLocatorBefore("applyReadingMode");
  const ConfigureReadingModeResult result =
      co_await bridge().configureReadingMode(ConfigureReadingModeRequest{mode});
  co_await restoreLocatorAfter(before, "applyReadingMode");
  readingMode_.set(result.effectiveMode);
  layoutReport_.computedReaderOverflow.set(result.computedContainerOverflow);
  layoutReport_.readingModeConfigurationRevision.set(result.configurationRevision);
}

async::Task<void> ReaderSession::applyPageLayout(PageLayout layout) {
  const auto keepAlive = shared_from_this();
  const Locator before = co_await captureLocatorBefore("applyPageLayout");
  const ConfigurePageLayoutResult result =
      co_await bridge().configurePageLayout(ConfigurePageLayoutRequest{layout});
  co_await restoreLocatorAfter(before, "applyPageLayout");
  pageLayout_.set(layout);
  layoutReport_.effectiveColumnCount.set(result.effectiveColumnCount);
  layoutReport_.computedReaderOverflow.set(result.computedContainerOverflow);
  layoutReport_.pageLayoutConfigurationRevision.set(result.configurationRevision);
}

async::Task<void> ReaderSession::applyScrolledContentWidth(ScrolledContentWidth width) {
  const auto keepAlive = shared_from_this();
  const Locator before = co_await captureLocatorBefore("");
  const ConfigureScrolledContentWidthResult result =
      co_await bridge().configureScrolledContentWidth(
          ConfigureScrolledContentWidthRequest{width, scrolledMaxInlineSize(width)});
  co_await restoreLocatorAfter(before, "");
  scrolledContentWidth_.set(width);
  layoutReport_.computedScrolledBodyMaxWidth.set(result.computedBodyMaxInlineSize);
  layoutReport_.scrolledWidthConfigurationRevision.set(result.configurationRevision);
}

// ---- Commands ----------------------------------------------------------------------------------

async::Task<void> ReaderSession::setFontSelection(TypographyFontSelection selection) {
  if (state_.value() != State::ready) co_return;
  const auto keepAlive = shared_from_this();
  std::exception_ptr failure;
  try {
    TypographyPreferences preferences = currentTypographyPreferences();
    preferences.font = selection;
    co_await configureTypography(preferences, FontFallbackUpdate::write, SelectionUpdate::fontOnly,
                                 "");
    if (typographyRepository_) co_await typographyRepository_->saveFont(selection);
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) throw recordFailure(failure);
}

async::Task<void> ReaderSession::setFontScale(TypographyFontScaleSelection selection) {
  if (state_.value() != State::ready) co_return;
  const auto keepAlive = shared_from_this();
  std::exception_ptr failure;
  try {
    TypographyPreferences preferences = currentTypographyPreferences();
    preferences.fontScale = selection;
    co_await configureTypography(preferences, FontFallbackUpdate::leave,
                                 SelectionUpdate::fontScaleOnly, "");
    if (typographyRepository_) co_await typographyRepository_->saveFontScale(selection);
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) throw recordFailure(failure);
}

async::Task<void> ReaderSession::adjustFontScale(double step) {
  if (!std::isfinite(step)) {
    throw recordFailure(std::make_exception_ptr(
        ReaderTypographyFailureError(ReaderTypographyFailure::invalidFontScale)));
  }
  const double scale = adjustedFontScale(fontScaleSelection_.value(), step);
  co_await setFontScale(TypographyFontScaleSelection::value(scale));
}

async::Task<void> ReaderSession::setLineHeight(TypographyLineHeightSelection selection) {
  if (state_.value() != State::ready) co_return;
  const auto keepAlive = shared_from_this();
  std::exception_ptr failure;
  try {
    TypographyPreferences preferences = currentTypographyPreferences();
    preferences.lineHeight = selection;
    co_await configureTypography(preferences, FontFallbackUpdate::leave,
                                 SelectionUpdate::lineHeightOnly, "");
    if (typographyRepository_) co_await typographyRepository_->saveLineHeight(selection);
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) throw recordFailure(failure);
}

async::Task<void> ReaderSession::setLetterSpacing(TypographyLetterSpacingSelection selection) {
  if (state_.value() != State::ready) co_return;
  const auto keepAlive = shared_from_this();
  std::exception_ptr failure;
  try {
    TypographyPreferences preferences = currentTypographyPreferences();
    preferences.letterSpacing = selection;
    co_await configureTypography(preferences, FontFallbackUpdate::leave,
                                 SelectionUpdate::letterSpacingOnly, "");
    if (typographyRepository_) co_await typographyRepository_->saveLetterSpacing(selection);
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) throw recordFailure(failure);
}

async::Task<void> ReaderSession::setPageMargins(TypographyPageMarginsSelection selection) {
  if (state_.value() != State::ready) co_return;
  const auto keepAlive = shared_from_this();
  std::exception_ptr failure;
  try {
    TypographyPreferences preferences = currentTypographyPreferences();
    preferences.pageMargins = selection;
    co_await configureTypography(preferences, FontFallbackUpdate::leave,
                                 SelectionUpdate::pageMarginsOnly, "");
    if (typographyRepository_) co_await typographyRepository_->savePageMargins(selection);
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) throw recordFailure(failure);
}

async::Task<void> ReaderSession::restoreBookTypography() {
  if (state_.value() != State::ready) co_return;
  const auto keepAlive = shared_from_this();
  std::exception_ptr failure;
  try {
    co_await applyPreferences(TypographyPreferences{});
    if (typographyRepository_) co_await typographyRepository_->restoreDefaults();
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) throw recordFailure(failure);
}

async::Task<void> ReaderSession::setReadingTheme(ReadingThemeSelection selection) {
  if (state_.value() != State::ready) co_return;
  const auto keepAlive = shared_from_this();
  std::exception_ptr failure;
  try {
    co_await applyReadingTheme(selection);
    if (themeRepository_) co_await themeRepository_->save(selection);
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) throw recordFailure(failure);
}

async::Task<void> ReaderSession::setReadingMode(ReadingMode mode) {
  if (state_.value() != State::ready) co_return;
  const auto keepAlive = shared_from_this();
  std::exception_ptr failure;
  try {
    co_await applyReadingMode(mode);
    // The requested mode goes on even where the runtime shows another.
    if (mode == ReadingMode::scrolled) {
      co_await applyScrolledContentWidth(scrolledContentWidth_.value());
    }
    if (readingModeRepository_) co_await readingModeRepository_->save(mode);
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) throw recordFailure(failure);
}

async::Task<void> ReaderSession::setPageLayout(PageLayout layout) {
  if (state_.value() != State::ready) co_return;
  const auto keepAlive = shared_from_this();
  std::exception_ptr failure;
  try {
    co_await applyPageLayout(layout);
    if (pageLayoutRepository_) co_await pageLayoutRepository_->save(layout);
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) throw recordFailure(failure);
}

async::Task<void> ReaderSession::setScrolledContentWidth(ScrolledContentWidth width) {
  // In paginated mode the width is neither applied nor remembered.
  if (state_.value() != State::ready || readingMode_.value() != ReadingMode::scrolled) co_return;
  const auto keepAlive = shared_from_this();
  std::exception_ptr failure;
  try {
    co_await applyScrolledContentWidth(width);
    if (scrolledContentWidthRepository_) co_await scrolledContentWidthRepository_->save(width);
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) throw recordFailure(failure);
}

// ---- Fonts -------------------------------------------------------------------------------------

const std::vector<SystemFontRecord>& ReaderSession::availableFonts() {
  if (!cachedAvailableFonts_) cachedAvailableFonts_ = fontCatalog_->availableFonts();
  return *cachedAvailableFonts_;
}

void ReaderSession::handleFontSetChanged() {
  // First link of the chain: reaches the session only through its weak reference, later.
  async::postToMain([weak = weak_from_this()] {
    const std::shared_ptr<ReaderSession> session = weak.lock();
    if (!session) return;
    if (session->fontSetChangeTask_) session->fontSetChangeTask_->request_stop();
    session->fontSetChangeTask_.emplace();
    async::spawn(refreshAfterFontSetChange(weak), session->fontSetChangeTask_->get_token());
  });
}

async::Task<void> ReaderSession::refreshAfterFontSetChange(std::weak_ptr<ReaderSession> weak) {
  // Yield once, so that a burst of notices comes down to the last one.
  co_await async::sleepFor(std::chrono::steady_clock::duration::zero());
  co_await async::checkCancellation();
  const std::shared_ptr<ReaderSession> session = weak.lock();
  if (!session) co_return;
  session->cachedAvailableFonts_.reset();
  session->fontCatalogRevision_.set(session->fontCatalogRevision_.value() + 1);
  if (session->state_.value() != State::ready ||
      session->fontSelection_.value().kind() != TypographyFontSelection::Kind::systemFont) {
    co_return;
  }
  std::exception_ptr failure;
  try {
    co_await session->applyPreferences(session->currentTypographyPreferences());
  } catch (...) {
    failure = std::current_exception();
  }
  if (failure) session->recordFailure(failure);
}

}  // namespace tomekeeper
