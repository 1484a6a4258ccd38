#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "model/JSONCoding.h"

namespace tomekeeper {

// Describes an enumeration whose JSON form is a string. A specialisation gives the type's name
// and the string of each case, in the order of the cases (which are numbered from 0):
//
//   template <> struct StringEnumerationTraits<ReadingMode> {
//     static constexpr std::string_view typeName = "ReadingMode";
//     static constexpr std::array<std::string_view, 2> rawValues{"paginated", "scrolled"};
//   };
template <typename Enumeration>
struct StringEnumerationTraits;

template <typename Enumeration>
concept StringEnumeration = requires {
  StringEnumerationTraits<Enumeration>::typeName;
  StringEnumerationTraits<Enumeration>::rawValues;
};

// The string of a case, as written in JSON.
template <StringEnumeration Enumeration>
constexpr std::string_view rawValue(Enumeration value) noexcept {
  return StringEnumerationTraits<Enumeration>::rawValues[static_cast<std::size_t>(value)];
}

// The case whose string is exactly `text` (case-sensitive), or absent.
template <StringEnumeration Enumeration>
constexpr std::optional<Enumeration> parseRawValue(std::string_view text) noexcept {
  const auto& rawValues = StringEnumerationTraits<Enumeration>::rawValues;
  for (std::size_t index = 0; index < rawValues.size(); ++index) {
    if (rawValues[index] == text) return static_cast<Enumeration>(index);
  }
  return std::nullopt;
}

// Every case, in order.
template <StringEnumeration Enumeration>
constexpr auto allCases() noexcept {
  constexpr std::size_t count = StringEnumerationTraits<Enumeration>::rawValues.size();
  std::array<Enumeration, count> cases{};
  for (std::size_t index = 0; index < count; ++index)
    cases[index] = static_cast<Enumeration>(index);
  return cases;
}

template <StringEnumeration Enumeration>
void encodeStringEnumeration(nlohmann::json& json, Enumeration value) {
  json = std::string(rawValue(value));
}

// Throws JSONDecodingError for a value that is not a string or not one of the cases.
template <StringEnumeration Enumeration>
Enumeration decodeStringEnumeration(const nlohmann::json& json) {
  const std::string text = decodeJSON<std::string>(json);
  const std::optional<Enumeration> value = parseRawValue<Enumeration>(text);
  if (!value) {
    throw JSONDecodingError("Cannot initialize " +
                            std::string(StringEnumerationTraits<Enumeration>::typeName) +
                            " from invalid String value " + text + ".");
  }
  return *value;
}

}  // namespace tomekeeper

// Declares the traits of a string enumeration and its nlohmann-json ADL functions. Plain
// functions rather than templates, so that they win over nlohmann's own enum-as-integer coding.
// Use at namespace scope of tomekeeper, after the enumeration.
#define TOMEKEEPER_STRING_ENUMERATION(Type, TypeName, ...)                            \
  template <>                                                                         \
  struct StringEnumerationTraits<Type> {                                              \
    static constexpr std::string_view typeName = TypeName;                            \
    static constexpr auto rawValues = std::to_array<std::string_view>({__VA_ARGS__}); \
  };                                                                                  \
  inline void to_json(nlohmann::json& json, Type value) {                             \
    encodeStringEnumeration(json, value);                                             \
  }                                                                                   \
  inline void from_json(const nlohmann::json& json, Type& value) {                    \
    value = decodeStringEnumeration<Type>(json);                                      \
  }
