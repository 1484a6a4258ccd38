#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "session/ObservableProperty.h"

namespace tomekeeper {

// What the runtime reported of the page it laid out after each configuration the session sent:
// the computed styles the page took, and per kind of configuration a revision that counts the
// ones applied, so that a view or test can wait for the page to have taken a change. Owned by the
// session, which alone sets it; main executor only.
struct ReaderLayoutReport {
  // Typography: the styles the page computed for the chosen font, size, spacing and margins.
  ObservableProperty<std::optional<double>> computedRootFontSize;
  ObservableProperty<std::optional<std::string>> computedBodyFontFamily;
  ObservableProperty<std::optional<double>> computedBodyFontSize;
  ObservableProperty<std::optional<double>> computedParagraphLineHeight;
  ObservableProperty<std::optional<std::string>> computedParagraphLetterSpacing;
  ObservableProperty<std::optional<std::string>> computedCodeLetterSpacing;
  ObservableProperty<std::optional<double>> computedRootPaddingInlineStart;
  ObservableProperty<std::optional<double>> computedSemanticIndent;
  ObservableProperty<std::int64_t> typographyConfigurationRevision{0};
  // Theme: the colours of the page's body.
  ObservableProperty<std::optional<std::string>> computedBodyColor;
  ObservableProperty<std::optional<std::string>> computedBodyBackgroundColor;
  ObservableProperty<std::int64_t> themeConfigurationRevision{0};
  // Reading mode and page layout: the columns the page shows and how it overflows.
  ObservableProperty<std::int64_t> readingModeConfigurationRevision{0};
  ObservableProperty<std::int64_t> effectiveColumnCount{1};
  ObservableProperty<std::string> computedReaderOverflow;
  ObservableProperty<std::int64_t> pageLayoutConfigurationRevision{0};
  // Scrolled width: the widest the body may be in scrolled mode.
  ObservableProperty<std::optional<double>> computedScrolledBodyMaxWidth;
  ObservableProperty<std::int64_t> scrolledWidthConfigurationRevision{0};
};

}  // namespace tomekeeper
