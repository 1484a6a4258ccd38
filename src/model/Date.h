#pragma once

#include <chrono>
#include <compare>
#include <cstddef>
#include <functional>

#include <nlohmann/json.hpp>

namespace tomekeeper {

// A moment, held as the seconds (with fraction) since 2001-01-01T00:00:00Z exactly as they are
// stored, so that a date read from JSON writes back the same number. In JSON it is that number.
class Date {
 public:
  // Seconds from the Unix epoch to 2001-01-01T00:00:00Z.
  static constexpr double kReferenceDateSinceUnixEpoch = 978307200.0;

  constexpr Date() noexcept = default;
  explicit constexpr Date(double secondsSinceReferenceDate) noexcept
      : secondsSinceReferenceDate_(secondsSinceReferenceDate) {}

  // The present moment of the system clock.
  static Date now();

  static Date fromSystemClock(std::chrono::system_clock::time_point time) noexcept;

  // The moment on the system clock, to its resolution. A date beyond what the clock can
  // represent is clamped to its ends; a NaN gives the reference date.
  std::chrono::system_clock::time_point systemClockTime() const noexcept;

  constexpr double secondsSinceReferenceDate() const noexcept { return secondsSinceReferenceDate_; }

  // Dates compare as their numbers.
  constexpr bool operator==(const Date&) const = default;
  constexpr std::partial_ordering operator<=>(const Date&) const = default;

 private:
  double secondsSinceReferenceDate_ = 0.0;
};

void to_json(nlohmann::json& json, const Date& date);
// Throws JSONDecodingError for a value that is not a JSON number.
void from_json(const nlohmann::json& json, Date& date);

}  // namespace tomekeeper

template <>
struct std::hash<tomekeeper::Date> {
  std::size_t operator()(const tomekeeper::Date& date) const noexcept;
};
