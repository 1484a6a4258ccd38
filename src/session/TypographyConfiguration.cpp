#include "session/TypographyConfiguration.h"

#include <algorithm>
#include <cmath>

namespace tomekeeper {

namespace {

bool isWithin(double value, double minimum, double maximum) {
  return std::isfinite(value) && value >= minimum && value <= maximum;
}

ResolvedTypographyPageMargins resolvedPageMargins(TypographyPageMarginsSelection selection) {
  switch (selection) {
    case TypographyPageMarginsSelection::bookDefault:
      return {};
    case TypographyPageMarginsSelection::narrow:
      return {ResolvedTypographyPageMargins::Mode::preset, 3.0};
    case TypographyPageMarginsSelection::standard:
      return {ResolvedTypographyPageMargins::Mode::preset, 7.0};
    case TypographyPageMarginsSelection::wide:
      return {ResolvedTypographyPageMargins::Mode::preset, 12.0};
  }
  return {};
}

}  // namespace

ResolvedTypographyFont resolvedFont(const TypographyFontResolution& resolution) {
  if (resolution.kind() == TypographyFontResolution::Kind::available && resolution.record()) {
    return ResolvedTypographyFont::systemFont(*resolution.record());
  }
  return ResolvedTypographyFont::bookDefault();
}

ConfigureTypographyRequest typographyRequest(const TypographyPreferences& preferences,
                                             const TypographyFontResolution& fontResolution) {
  using Limits = TypographyLimits;
  ConfigureTypographyRequest request;
  request.font = resolvedFont(fontResolution);

  if (const auto scale = preferences.fontScale.number()) {
    if (!isWithin(*scale, Limits::kMinimumFontScale, Limits::kMaximumFontScale)) {
      throwFailure(ReaderTypographyFailure::invalidFontScale);
    }
    request.fontScale = {ResolvedTypographyFontScale::Mode::value, *scale};
  }
  if (const auto lineHeight = preferences.lineHeight.number()) {
    if (!isWithin(*lineHeight, Limits::kMinimumLineHeight, Limits::kMaximumLineHeight)) {
      throwFailure(ReaderTypographyFailure::invalidLineHeight);
    }
    request.lineHeight = {ResolvedTypographyLineHeight::Mode::value, *lineHeight};
  }
  switch (preferences.letterSpacing.kind()) {
    case TypographyLetterSpacingSelection::Kind::bookDefault:
      break;
    case TypographyLetterSpacingSelection::Kind::normal:
      request.letterSpacing = {ResolvedTypographyLetterSpacing::Mode::normal, std::nullopt};
      break;
    case TypographyLetterSpacingSelection::Kind::value: {
      const double spacing = preferences.letterSpacing.number().value_or(NAN);
      if (!isWithin(spacing, Limits::kMinimumLetterSpacing, Limits::kMaximumLetterSpacing)) {
        throwFailure(ReaderTypographyFailure::invalidLetterSpacing);
      }
      request.letterSpacing = {ResolvedTypographyLetterSpacing::Mode::value, spacing};
      break;
    }
  }
  request.pageMargins = resolvedPageMargins(preferences.pageMargins);
  return request;
}

double adjustedFontScale(const TypographyFontScaleSelection& current, double step) {
  const double base = current.number().value_or(1.0);
  const double rounded = std::round((base + step) * 10.0) / 10.0;
  return std::clamp(rounded, TypographyLimits::kMinimumFontScale,
                    TypographyLimits::kMaximumFontScale);
}

std::int64_t scrolledMaxInlineSize(ScrolledContentWidth width) noexcept {
  return 560 + 140 * static_cast<std::int64_t>(width);
}

}  // namespace tomekeeper
