#pragma once

#include <concepts>
#include <cstdint>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace tomekeeper {

// The one failure of every decoder of the model and of the records built on it: the JSON does
// not have the form of the record (a required key missing, a value of the wrong JSON type, an
// unknown enumeration string). what() is the bare message; codingPath() says where it happened.
class JSONDecodingError : public std::runtime_error {
 public:
  explicit JSONDecodingError(const std::string& message);

  // Keys and array indexes from the outermost value down to the one that failed.
  const std::vector<std::string>& codingPath() const noexcept { return codingPath_; }

  // The message preceded by the coding path, for diagnostics ("locator.spineIndex: ...").
  std::string description() const;

  // Called by the field readers while the error travels out through an enclosing value.
  void prependPathComponent(std::string component);

 private:
  std::vector<std::string> codingPath_;
};

template <typename T>
T decodeJSON(const nlohmann::json& value);

namespace detail {

template <typename T>
struct IsVector : std::false_type {};
template <typename Element, typename Allocator>
struct IsVector<std::vector<Element, Allocator>> : std::true_type {
  using ElementType = Element;
};

[[noreturn]] void throwTypeMismatch(std::string_view expected, const nlohmann::json& found);

// Any JSON number that is an integer of the range [minimum, maximum]. A number written with a
// fraction or exponent is accepted when its value is a whole number in range (3.0 reads as 3),
// as another JSON writer may spell integers that way; 3.5 and 1e300 are refused.
std::int64_t decodeSignedInteger(const nlohmann::json& value, std::int64_t minimum,
                                 std::int64_t maximum);
std::uint64_t decodeUnsignedInteger(const nlohmann::json& value, std::uint64_t maximum);

}  // namespace detail

// Strict decoding of one JSON value as T. Strings, booleans, numbers and arrays are checked here,
// because nlohmann's own conversions would read true as 1 or 3.7 as 3. Any other T goes to its
// from_json; a library error that escapes one is turned into JSONDecodingError. Use this (or
// the field readers below) rather than json::get for anything but a single model record.
template <typename T>
T decodeJSON(const nlohmann::json& value) {
  if constexpr (std::is_same_v<T, std::string>) {
    if (!value.is_string()) detail::throwTypeMismatch("a string", value);
    return value.get_ref<const std::string&>();
  } else if constexpr (std::is_same_v<T, bool>) {
    if (!value.is_boolean()) detail::throwTypeMismatch("a boolean", value);
    return value.get<bool>();
  } else if constexpr (std::is_floating_point_v<T>) {
    if (!value.is_number()) detail::throwTypeMismatch("a number", value);
    return value.get<T>();
  } else if constexpr (std::is_integral_v<T> && std::is_signed_v<T>) {
    return static_cast<T>(detail::decodeSignedInteger(value, std::numeric_limits<T>::min(),
                                                      std::numeric_limits<T>::max()));
  } else if constexpr (std::is_integral_v<T>) {
    return static_cast<T>(detail::decodeUnsignedInteger(value, std::numeric_limits<T>::max()));
  } else if constexpr (detail::IsVector<T>::value) {
    using Element = typename detail::IsVector<T>::ElementType;
    if (!value.is_array()) detail::throwTypeMismatch("an array", value);
    T result;
    result.reserve(value.size());
    for (std::size_t index = 0; index < value.size(); ++index) {
      try {
        result.push_back(decodeJSON<Element>(value[index]));
      } catch (JSONDecodingError& error) {
        error.prependPathComponent(std::to_string(index));
        throw;
      }
    }
    return result;
  } else {
    try {
      return value.get<T>();
    } catch (const nlohmann::json::exception& error) {
      throw JSONDecodingError(error.what());
    }
  }
}

// Throws unless `value` is a JSON object; `typeName` names the expected record in the message.
const nlohmann::json& requireJSONObject(const nlohmann::json& value, std::string_view typeName);

// The value of a required key of `object` (a JSON object), decoded strictly. A missing key, a
// null, or a value of another JSON type throws JSONDecodingError.
template <typename T>
T decodeRequiredField(const nlohmann::json& object, std::string_view key) {
  const auto found = object.find(std::string(key));
  if (found == object.end()) {
    throw JSONDecodingError("Missing required key \"" + std::string(key) + "\".");
  }
  try {
    return decodeJSON<T>(*found);
  } catch (JSONDecodingError& error) {
    error.prependPathComponent(std::string(key));
    throw;
  }
}

// The value of an optional key: absent when the key is missing or its value is null.
template <typename T>
std::optional<T> decodeOptionalField(const nlohmann::json& object, std::string_view key) {
  const auto found = object.find(std::string(key));
  if (found == object.end() || found->is_null()) return std::nullopt;
  try {
    return decodeJSON<T>(*found);
  } catch (JSONDecodingError& error) {
    error.prependPathComponent(std::string(key));
    throw;
  }
}

// Writes `value` under `key` when present; an absent value leaves the key out (never null).
template <typename T>
void encodeOptionalField(nlohmann::json& object, std::string_view key,
                         const std::optional<T>& value) {
  if (value) object[std::string(key)] = *value;
}

// Enumerations whose cases carry payloads are coded as an object of exactly one key, the case's
// name, whose value is an object of the payload: {"value":{"_0":1.2}}, {"bookDefault":{}}. An
// unlabelled payload value sits under the key "_0".
struct SingleKeyCase {
  std::string name;
  const nlohmann::json& payload;
};

// The one key of `value` and its payload object. Throws JSONDecodingError with the message
// "Invalid number of keys found, expected one." for an object of no key or of several keys, and
// a type mismatch when `value` or the payload is not an object.
SingleKeyCase decodeSingleKeyCase(const nlohmann::json& value, std::string_view typeName);

// A required field of a case's payload; on failure the case's name heads the coding path.
template <typename T>
T decodePayloadField(const SingleKeyCase& singleCase, std::string_view key) {
  try {
    return decodeRequiredField<T>(singleCase.payload, key);
  } catch (JSONDecodingError& error) {
    error.prependPathComponent(singleCase.name);
    throw;
  }
}

// Throws JSONDecodingError for a case name that `typeName` doesn't have.
[[noreturn]] void throwUnknownCase(std::string_view name, std::string_view typeName);

// {name: payload}; the payload is an empty object for a case without one.
nlohmann::json encodeSingleKeyCase(std::string_view name,
                                   nlohmann::json payload = nlohmann::json::object());

}  // namespace tomekeeper
