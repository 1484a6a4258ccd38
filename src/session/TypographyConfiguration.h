#pragma once

#include <cstdint>

#include "model/ReaderTypographyFailure.h"
#include "model/ScrolledContentWidth.h"
#include "model/TypographyFontResolution.h"
#include "model/TypographyPreferences.h"
#include "runtime/BridgeMessages.h"

namespace tomekeeper {

// The limits of the typography values. Both ends belong to each range.
struct TypographyLimits {
  static constexpr double kMinimumFontScale = 0.5;
  static constexpr double kMaximumFontScale = 3.0;
  static constexpr double kMinimumLineHeight = 1.0;
  static constexpr double kMaximumLineHeight = 3.0;
  static constexpr double kMinimumLetterSpacing = -0.05;
  static constexpr double kMaximumLetterSpacing = 0.2;
};

// The font of a resolution as the runtime takes it: a system font with its names and the
// fallback stack, or the book's font for a fallback and for bookDefault.
ResolvedTypographyFont resolvedFont(const TypographyFontResolution& resolution);

// The request for `preferences`, with the font already resolved. Checks font scale, line
// height and letter spacing in this order and throws ReaderTypographyFailureError for the
// first value that is not finite or lies outside its range. Pure.
ConfigureTypographyRequest typographyRequest(const TypographyPreferences& preferences,
                                             const TypographyFontResolution& fontResolution);

// The scale that a step of the smaller/larger text commands gives: the current scale (1.0 for
// bookDefault) plus `step`, rounded to tenths half away from zero, clamped to the range.
// `step` must be finite.
double adjustedFontScale(const TypographyFontScaleSelection& current, double step);

// The column width in scrolled mode: 560 plus 140 per step from narrow.
std::int64_t scrolledMaxInlineSize(ScrolledContentWidth width) noexcept;

}  // namespace tomekeeper
