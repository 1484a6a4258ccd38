#pragma once

#include <optional>
#include <vector>

#include "app/ShellWindow.h"

namespace tomekeeper {

// The area of one monitor that windows may use.
struct ScreenArea {
  int width = 0;
  int height = 0;
  bool operator==(const ScreenArea&) const = default;
};

// The placement rules of a new reader window.
struct ReaderWindowFrame {
  static constexpr int kMinimumWidth = 680;
  static constexpr int kMinimumHeight = 500;
  static constexpr int kDefaultWidth = 920;
  static constexpr int kDefaultHeightWithoutScreen = 640;
  static constexpr double kDefaultHeightShareOfScreen = 0.78;

  // The frame of a new window. A stored frame is kept when it fits on some screen (one that came
  // from a monitor no longer attached does not); otherwise the window is 920 wide and 0.78 of the
  // first screen's height, clamped to that screen, or 920 by 640 with no screen at all. Never
  // below the minimum size.
  static WindowFrame place(const std::optional<WindowFrame>& stored,
                           const std::vector<ScreenArea>& screens);
};

}  // namespace tomekeeper
