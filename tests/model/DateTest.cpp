#include "model/Date.h"

#include <gtest/gtest.h>

#include <bit>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <limits>

#include "RoundTrip.h"

namespace tomekeeper {
namespace {

using namespace std::chrono;

TEST(DateTest, ZeroIsTheFirstMomentOf2001InUTC) {
  const Date date = decoded<Date>("0");
  const auto expected = sys_days{year{2001} / January / 1};
  EXPECT_EQ(date.systemClockTime(), expected);
  EXPECT_EQ(Date::fromSystemClock(expected), Date(0));
}

TEST(DateTest, FractionsOfASecondSurviveTheSystemClock) {
  const auto time = sys_days{year{2024} / March / 5} + hours{13} + milliseconds{250};
  const Date date = Date::fromSystemClock(time);
  EXPECT_DOUBLE_EQ(date.secondsSinceReferenceDate(),
                   duration<double>(time - sys_days{year{2001} / January / 1}).count());
  EXPECT_EQ(time_point_cast<milliseconds>(date.systemClockTime()), time);
}

TEST(DateTest, NowIsCloseToTheSystemClock) {
  const Date date = Date::now();
  const auto difference = system_clock::now() - date.systemClockTime();
  EXPECT_LT(std::chrono::abs(difference), seconds{5});
}

TEST(DateTest, StoredNumbersRoundTripExactly) {
  for (const double seconds : {0.0, 731412345.123456789, -1.5, 1e-9, 0.1 + 0.2}) {
    const Date read = roundTrip(Date(seconds));
    EXPECT_EQ(std::bit_cast<std::uint64_t>(read.secondsSinceReferenceDate()),
              std::bit_cast<std::uint64_t>(seconds));
  }
  EXPECT_EQ(decoded<Date>("731412345").secondsSinceReferenceDate(), 731412345.0);
}

TEST(DateTest, OnlyNumbersDecode) {
  EXPECT_THROW(decoded<Date>(R"("2001-01-01T00:00:00Z")"), JSONDecodingError);
  EXPECT_THROW(decoded<Date>("null"), JSONDecodingError);
}

TEST(DateTest, DatesBeyondTheClockAreClampedRatherThanOverflowing) {
  EXPECT_EQ(Date(1e300).systemClockTime(), system_clock::time_point::max());
  EXPECT_EQ(Date(-1e300).systemClockTime(), system_clock::time_point::min());
  EXPECT_EQ(Date(std::numeric_limits<double>::quiet_NaN()).systemClockTime(),
            sys_days{year{2001} / January / 1});
}

TEST(DateTest, DatesOrderByTheirNumbers) {
  EXPECT_LT(Date(1), Date(2));
  EXPECT_EQ(Date(0.0), Date(-0.0));
  EXPECT_EQ(std::hash<Date>{}(Date(0.0)), std::hash<Date>{}(Date(-0.0)));
}

}  // namespace
}  // namespace tomekeeper
