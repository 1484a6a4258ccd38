#include "app/PaginationKeyFilter.h"

#include <gdk/gdkkeysyms.h>
#include <gtest/gtest.h>

#include <optional>
#include <vector>

namespace tomekeeper {
namespace {

constexpr std::uint32_t kPageDownCode = 117;
constexpr std::uint32_t kPageUpCode = 112;
constexpr std::uint32_t kSpaceCode = 65;

KeyEventDescription pageDown(KeyTransition transition,
                             KeyModifiers modifiers = KeyModifiers::none) {
  return KeyEventDescription{transition, GDK_KEY_Page_Down, kPageDownCode, modifiers};
}

class PaginationKeyFilterTest : public ::testing::Test {
 protected:
  KeyDisposition send(PaginationKeyFilter& keys, const KeyEventDescription& event) {
    return keys.filter(event, [this](ReaderNavigationDirection direction) {
      turns.push_back(direction);
      return sessionTakesKeys;
    });
  }
  KeyDisposition send(const KeyEventDescription& event) { return send(filter, event); }

  PaginationKeyFilter filter{PaginationKeys::pageKeys};
  std::vector<ReaderNavigationDirection> turns;
  bool sessionTakesKeys = true;
};

TEST_F(PaginationKeyFilterTest, HeldPageDownTurnsOnePageAndRepeatsGoOn) {
  EXPECT_EQ(send(pageDown(KeyTransition::down)), KeyDisposition::taken);
  EXPECT_EQ(send(pageDown(KeyTransition::down)), KeyDisposition::passOn);
  EXPECT_EQ(send(pageDown(KeyTransition::down)), KeyDisposition::passOn);
  EXPECT_EQ(send(pageDown(KeyTransition::up)), KeyDisposition::taken);
  EXPECT_EQ(turns, std::vector<ReaderNavigationDirection>{ReaderNavigationDirection::next});
  EXPECT_TRUE(filter.keysSeenDown().empty());
}

TEST_F(PaginationKeyFilterTest, KeyUpWhoseKeyDownWentElsewhereCountsOnce) {
  EXPECT_EQ(send(pageDown(KeyTransition::up)), KeyDisposition::taken);
  EXPECT_EQ(turns, std::vector<ReaderNavigationDirection>{ReaderNavigationDirection::next});
}

TEST_F(PaginationKeyFilterTest, ShiftPageDownIsNotAPageKey) {
  EXPECT_EQ(send(pageDown(KeyTransition::down, KeyModifiers::shift)), KeyDisposition::passOn);
  EXPECT_EQ(send(pageDown(KeyTransition::up, KeyModifiers::shift)), KeyDisposition::passOn);
  EXPECT_TRUE(turns.empty());
}

TEST_F(PaginationKeyFilterTest, PageUpTurnsBackAndOtherKeysPassUntouched) {
  EXPECT_EQ(send(KeyEventDescription{KeyTransition::down, GDK_KEY_Page_Up, kPageUpCode}),
            KeyDisposition::taken);
  EXPECT_EQ(send(KeyEventDescription{KeyTransition::down, GDK_KEY_a, 38}), KeyDisposition::passOn);
  EXPECT_EQ(turns, std::vector<ReaderNavigationDirection>{ReaderNavigationDirection::previous});
}

TEST_F(PaginationKeyFilterTest, KeyNotTakenBySessionGoesOnToTheView) {
  sessionTakesKeys = false;
  EXPECT_EQ(send(pageDown(KeyTransition::down)), KeyDisposition::passOn);
  // Its key-up is still dropped: the key-down was seen here.
  EXPECT_EQ(send(pageDown(KeyTransition::up)), KeyDisposition::taken);
  EXPECT_EQ(turns.size(), 1u);
}

TEST_F(PaginationKeyFilterTest, TheViewKeysMoveTheirWayAndLeaveCommandsToThePage) {
  struct Case {
    const char* name;
    std::uint32_t keyValue;
    KeyModifiers modifiers;
    std::optional<ReaderNavigationDirection> expected;
  };
  using enum ReaderNavigationDirection;
  const Case cases[] = {
      {"Space reads on", GDK_KEY_space, KeyModifiers::none, next},
      {"Shift+Space reads back", GDK_KEY_space, KeyModifiers::shift, previous},
      {"Left goes left", GDK_KEY_Left, KeyModifiers::none, towardLeft},
      {"Right goes right", GDK_KEY_Right, KeyModifiers::none, towardRight},
      {"Shift+Left selects", GDK_KEY_Left, KeyModifiers::shift, std::nullopt},
      {"Control+Space is a command", GDK_KEY_space, KeyModifiers::command, std::nullopt},
      {"Page Down is the window's", GDK_KEY_Page_Down, KeyModifiers::none, std::nullopt},
  };
  for (const Case& testCase : cases) {
    SCOPED_TRACE(testCase.name);
    EXPECT_EQ(PaginationKeyFilter::classify(
                  PaginationKeys::viewKeys,
                  {KeyTransition::down, testCase.keyValue, 1, testCase.modifiers}),
              testCase.expected);
  }
  EXPECT_EQ(PaginationKeyFilter::classify(PaginationKeys::pageKeys,
                                          {KeyTransition::down, GDK_KEY_space, kSpaceCode}),
            std::nullopt);
}

TEST_F(PaginationKeyFilterTest, AHeldViewKeyMovesOnceAndAStrayKeyUpDoesNothing) {
  PaginationKeyFilter viewKeys{PaginationKeys::viewKeys};
  const KeyEventDescription space{KeyTransition::down, GDK_KEY_space, kSpaceCode};
  const KeyEventDescription spaceUp{KeyTransition::up, GDK_KEY_space, kSpaceCode};
  EXPECT_EQ(send(viewKeys, spaceUp), KeyDisposition::passOn);
  EXPECT_EQ(send(viewKeys, space), KeyDisposition::taken);
  EXPECT_EQ(send(viewKeys, space), KeyDisposition::passOn);
  EXPECT_EQ(send(viewKeys, spaceUp), KeyDisposition::taken);
  EXPECT_EQ(turns, std::vector<ReaderNavigationDirection>{ReaderNavigationDirection::next});
}

}  // namespace
}  // namespace tomekeeper
