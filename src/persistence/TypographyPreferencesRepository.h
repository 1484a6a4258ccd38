#pragma once

#include "async/Task.h"
#include "model/TypographyPreferences.h"

namespace tomekeeper {

// The global store of the typography selections, shared by all windows. Call from the main
// executor; each operation runs on the repository's own executor, one at a time in call order,
// and resumes on the main executor. Failures are TypographyPreferencesPersistenceFailureError.
class TypographyPreferencesRepository {
 public:
  virtual ~TypographyPreferencesRepository() = default;

  // The five selections; all bookDefault when nothing is stored.
  virtual async::Task<TypographyPreferences> load() = 0;
  // Each replaces one selection and keeps the other four.
  virtual async::Task<void> saveFont(TypographyFontSelection selection) = 0;
  virtual async::Task<void> saveFontScale(TypographyFontScaleSelection selection) = 0;
  virtual async::Task<void> saveLineHeight(TypographyLineHeightSelection selection) = 0;
  virtual async::Task<void> saveLetterSpacing(TypographyLetterSpacingSelection selection) = 0;
  virtual async::Task<void> savePageMargins(TypographyPageMarginsSelection selection) = 0;
  // Writes all five selections as bookDefault, without reading the store first.
  virtual async::Task<void> restoreDefaults() = 0;
};

}  // namespace tomekeeper
