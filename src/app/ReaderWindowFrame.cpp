#include "app/ReaderWindowFrame.h"

#include <algorithm>
#include <cmath>

namespace tomekeeper {

WindowFrame ReaderWindowFrame::place(const std::optional<WindowFrame>& stored,
                                     const std::vector<ScreenArea>& screens) {
  if (stored && stored->width > 0 && stored->height > 0) {
    const bool fitsSomeScreen =
        std::any_of(screens.begin(), screens.end(), [&](const ScreenArea& screen) {
          return stored->width <= screen.width && stored->height <= screen.height;
        });
    if (fitsSomeScreen) {
      return WindowFrame{std::max(stored->width, kMinimumWidth),
                         std::max(stored->height, kMinimumHeight), stored->isMaximized};
    }
  }
  if (screens.empty()) return WindowFrame{kDefaultWidth, kDefaultHeightWithoutScreen, false};
  const ScreenArea& screen = screens.front();
  const int height = static_cast<int>(std::lround(screen.height * kDefaultHeightShareOfScreen));
  // Clamped to the screen as far as the minimum size allows.
  return WindowFrame{std::max(std::min(kDefaultWidth, screen.width), kMinimumWidth),
                     std::max(std::min(height, screen.height), kMinimumHeight), false};
}

}  // namespace tomekeeper
