#include "app/ReaderWindowFrame.h"

#include <gtest/gtest.h>

namespace tomekeeper {
namespace {

TEST(ReaderWindowFrameTest, KeepsAStoredFrameThatFitsSomeScreen) {
  EXPECT_EQ(ReaderWindowFrame::place(WindowFrame{1600, 1100, true}, {{1280, 800}, {2560, 1400}}),
            (WindowFrame{1600, 1100, true}));
}

TEST(ReaderWindowFrameTest, FrameOfADetachedMonitorGivesTheDefaultPlacement) {
  EXPECT_EQ(ReaderWindowFrame::place(WindowFrame{2500, 1300, false}, {{1280, 1000}}),
            (WindowFrame{920, 780, false}));
}

TEST(ReaderWindowFrameTest, DefaultIsClampedToTheScreenAndNeverBelowTheMinimum) {
  EXPECT_EQ(ReaderWindowFrame::place(std::nullopt, {{800, 600}}), (WindowFrame{800, 500, false}));
  EXPECT_EQ(ReaderWindowFrame::place(std::nullopt, {{600, 400}}), (WindowFrame{680, 500, false}));
}

TEST(ReaderWindowFrameTest, WithoutScreensTheWindowIs920By640) {
  EXPECT_EQ(ReaderWindowFrame::place(WindowFrame{1000, 700, false}, {}),
            (WindowFrame{920, 640, false}));
}

TEST(ReaderWindowFrameTest, StoredFrameBelowTheMinimumGrows) {
  EXPECT_EQ(ReaderWindowFrame::place(WindowFrame{300, 200, false}, {{1920, 1080}}),
            (WindowFrame{680, 500, false}));
}

}  // namespace
}  // namespace tomekeeper
