#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

namespace tomekeeper {

// Folds the hash of `value` into `seed`, for the std::hash specialisations of the records.
// Doubles hash so that values that compare equal (0.0 and -0.0) hash equal; optionals and
// vectors hash their contents, an absent optional differently from any present value.
template <typename T>
void hashCombine(std::size_t& seed, const T& value);

namespace detail {

template <typename T>
std::size_t hashOf(const T& value) {
  return std::hash<T>{}(value);
}

inline std::size_t hashOf(double value) {
  return std::hash<double>{}(value == 0.0 ? 0.0 : value);
}

template <typename T>
std::size_t hashOf(const std::optional<T>& value) {
  std::size_t seed = value ? 1 : 0;
  if (value) hashCombine(seed, *value);
  return seed;
}

template <typename T>
std::size_t hashOf(const std::vector<T>& values) {
  std::size_t seed = values.size();
  for (const T& value : values) hashCombine(seed, value);
  return seed;
}

}  // namespace detail

template <typename T>
void hashCombine(std::size_t& seed, const T& value) {
  // The mixing step of boost::hash_combine, widened constant for 64 bits.
  seed ^= detail::hashOf(value) + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2);
}

// The combined hash of several fields, in order.
template <typename... Fields>
std::size_t hashFields(const Fields&... fields) {
  std::size_t seed = 0;
  (hashCombine(seed, fields), ...);
  return seed;
}

}  // namespace tomekeeper
