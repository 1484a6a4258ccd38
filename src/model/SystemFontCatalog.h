#pragma once

#include <vector>

#include <sigc++/signal.h>
#include <unicode/locid.h>

#include "model/SystemFontCataloging.h"

namespace tomekeeper {

// The font catalogue of fontconfig's current configuration. A font's stable name is its
// PostScript name, its display name the full name (in the user's language where the font has
// one), its CSS family the family name; a missing full or family name falls back to the
// PostScript name. Fonts without a PostScript name are not listed.
//
// It holds no state but the change signal: every call asks fontconfig afresh (after letting it
// pick up fonts installed since its last scan). availableFonts and resolve may run on any
// thread; fontSetChanged belongs to the main executor.
class SystemFontCatalog final : public SystemFontCataloging {
 public:
  sigc::signal<void()>& fontSetChanged() override { return fontSetChanged_; }

  std::vector<SystemFontRecord> availableFonts() const override;

  // Looks the font up by exact PostScript name. fontconfig compares names without regard to
  // case, so a font it offers under a name that differs in any way gives `fallback`.
  TypographyFontResolution resolve(const TypographyFontSelection& selection) const override;

  // `records` with each stable name once (a later record replaces an earlier one), sorted by
  // display name and, where the display names are equal, by stable name. Both compare with the
  // collation of `locale` with digits compared as numbers ("Font 2" before "Font 10"). A POSIX
  // locale (LANG=C) names no language's order, so the root collation stands in for it rather
  // than the byte order ICU gives it.
  static std::vector<SystemFontRecord> listInDisplayOrder(
      std::vector<SystemFontRecord> records, const icu::Locale& locale = icu::Locale::getDefault());

 private:
  sigc::signal<void()> fontSetChanged_;
};

}  // namespace tomekeeper
