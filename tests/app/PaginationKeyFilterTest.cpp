#include "app/PaginationKeyFilter.h"

#include <gdk/gdkkeysyms.h>
#include <gtest/gtest.h>

#include <vector>

namespace tomekeeper {
namespace {

constexpr std::uint32_t kPageDownCode = 117;
constexpr std::uint32_t kPageUpCode = 112;

KeyEventDescription pageDown(KeyTransition transition, bool withShift = false) {
  return KeyEventDescription{transition, GDK_KEY_Page_Down, kPageDownCode, withShift};
}

class PaginationKeyFilterTest : public ::testing::Test {
 protected:
  KeyDisposition send(const KeyEventDescription& event) {
    return filter.filter(event, [this](PageKeyDirection direction) {
      turns.push_back(direction);
      return sessionTakesKeys;
    });
  }

  PaginationKeyFilter filter;
  std::vector<PageKeyDirection> turns;
  bool sessionTakesKeys = true;
};

TEST_F(PaginationKeyFilterTest, HeldPageDownTurnsOnePageAndRepeatsGoOn) {
  EXPECT_EQ(send(pageDown(KeyTransition::down)), KeyDisposition::taken);
  EXPECT_EQ(send(pageDown(KeyTransition::down)), KeyDisposition::passOn);
  EXPECT_EQ(send(pageDown(KeyTransition::down)), KeyDisposition::passOn);
  EXPECT_EQ(send(pageDown(KeyTransition::up)), KeyDisposition::taken);
  EXPECT_EQ(turns, std::vector<PageKeyDirection>{PageKeyDirection::next});
  EXPECT_TRUE(filter.paginationKeysSeenDown().empty());
}

TEST_F(PaginationKeyFilterTest, KeyUpWhoseKeyDownWentElsewhereCountsOnce) {
  EXPECT_EQ(send(pageDown(KeyTransition::up)), KeyDisposition::taken);
  EXPECT_EQ(turns, std::vector<PageKeyDirection>{PageKeyDirection::next});
}

TEST_F(PaginationKeyFilterTest, ShiftPageDownIsNotAPageKey) {
  EXPECT_EQ(send(pageDown(KeyTransition::down, true)), KeyDisposition::passOn);
  EXPECT_EQ(send(pageDown(KeyTransition::up, true)), KeyDisposition::passOn);
  EXPECT_TRUE(turns.empty());
}

TEST_F(PaginationKeyFilterTest, PageUpTurnsBackAndOtherKeysPassUntouched) {
  EXPECT_EQ(send(KeyEventDescription{KeyTransition::down, GDK_KEY_Page_Up, kPageUpCode, false}),
            KeyDisposition::taken);
  EXPECT_EQ(send(KeyEventDescription{KeyTransition::down, GDK_KEY_a, 38, false}),
            KeyDisposition::passOn);
  EXPECT_EQ(turns, std::vector<PageKeyDirection>{PageKeyDirection::previous});
}

TEST_F(PaginationKeyFilterTest, KeyNotTakenBySessionGoesOnToTheView) {
  sessionTakesKeys = false;
  EXPECT_EQ(send(pageDown(KeyTransition::down)), KeyDisposition::passOn);
  // Its key-up is still dropped: the key-down was seen here.
  EXPECT_EQ(send(pageDown(KeyTransition::up)), KeyDisposition::taken);
  EXPECT_EQ(turns.size(), 1u);
}

}  // namespace
}  // namespace tomekeeper
