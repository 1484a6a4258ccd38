#include "model/Date.h"

#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

#include "model/Hashing.h"
#include "model/JSONCoding.h"

namespace tomekeeper {

Date Date::now() {
  return fromSystemClock(std::chrono::system_clock::now());
}

Date Date::fromSystemClock(std::chrono::system_clock::time_point time) noexcept {
  using namespace std::chrono;
  // Whole seconds and the fraction convert apart: the tick count itself has more digits than a
  // double holds, and converting it whole would lose the fraction's last digits.
  const auto wholeSeconds = floor<seconds>(time);
  const duration<double> fraction = time - wholeSeconds;
  const auto sinceReference = wholeSeconds.time_since_epoch().count() -
                              static_cast<std::int64_t>(kReferenceDateSinceUnixEpoch);
  return Date(static_cast<double>(sinceReference) + fraction.count());
}

std::chrono::system_clock::time_point Date::systemClockTime() const noexcept {
  using Clock = std::chrono::system_clock;
  static_assert(std::is_same_v<Clock::rep, std::int64_t> && Clock::period::num == 1);
  constexpr std::int64_t kTicksPerSecond = Clock::period::den;
  // Whole seconds the clock can hold, with a margin for the fraction added below.
  constexpr double kLimitSeconds =
      static_cast<double>(std::numeric_limits<std::int64_t>::max() / kTicksPerSecond - 1);
  const double seconds = std::isnan(secondsSinceReferenceDate_)
                             ? kReferenceDateSinceUnixEpoch
                             : secondsSinceReferenceDate_ + kReferenceDateSinceUnixEpoch;
  // Bound before converting: converting a double outside the clock's integer range would be
  // undefined. Whole seconds and the fraction convert apart, so a date written in whole
  // milliseconds comes back in whole milliseconds.
  if (seconds >= kLimitSeconds) return Clock::time_point::max();
  if (seconds <= -kLimitSeconds) return Clock::time_point::min();
  const double wholeSeconds = std::floor(seconds);
  const auto fractionTicks =
      static_cast<std::int64_t>(std::llround((seconds - wholeSeconds) * kTicksPerSecond));
  return Clock::time_point(
      Clock::duration(static_cast<std::int64_t>(wholeSeconds) * kTicksPerSecond + fractionTicks));
}

void to_json(nlohmann::json& json, const Date& date) {
  json = date.secondsSinceReferenceDate();
}

void from_json(const nlohmann::json& json, Date& date) {
  date = Date(decodeJSON<double>(json));
}

}  // namespace tomekeeper

std::size_t std::hash<tomekeeper::Date>::operator()(const tomekeeper::Date& date) const noexcept {
  return tomekeeper::hashFields(date.secondsSinceReferenceDate());
}
