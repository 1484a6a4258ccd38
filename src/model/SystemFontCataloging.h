#pragma once

#include <vector>

#include <sigc++/signal.h>

#include "model/SystemFontRecord.h"
#include "model/TypographyFontResolution.h"
#include "model/TypographyPreferences.h"

namespace tomekeeper {

// The font lookup the reader session depends on, so that tests and other platforms can supply
// their own list of fonts.
class SystemFontCataloging {
 public:
  virtual ~SystemFontCataloging() = default;

  // Emitted on the main executor when the set of fonts on the system has changed, so observers
  // can list and resolve again. The application shell emits it; observers connect to it.
  virtual sigc::signal<void()>& fontSetChanged() = 0;

  // Every font on the system, each stable name once, in the order the font panel shows them.
  virtual std::vector<SystemFontRecord> availableFonts() const = 0;

  // The font a selection names, if this machine has exactly that font. A missing font is no
  // failure: it resolves to `fallback` with the requested name.
  virtual TypographyFontResolution resolve(const TypographyFontSelection& selection) const = 0;
};

}  // namespace tomekeeper
