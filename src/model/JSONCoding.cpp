#include "model/JSONCoding.h"

#include <cmath>
#include <limits>

namespace tomekeeper {

JSONDecodingError::JSONDecodingError(const std::string& message) : std::runtime_error(message) {}

std::string JSONDecodingError::description() const {
  std::string text;
  for (const std::string& component : codingPath_) {
    if (!text.empty()) text += '.';
    text += component;
  }
  if (!text.empty()) text += ": ";
  text += what();
  return text;
}

void JSONDecodingError::prependPathComponent(std::string component) {
  codingPath_.insert(codingPath_.begin(), std::move(component));
}

const nlohmann::json& requireJSONObject(const nlohmann::json& value, std::string_view typeName) {
  if (!value.is_object()) {
    detail::throwTypeMismatch("an object for " + std::string(typeName), value);
  }
  return value;
}

SingleKeyCase decodeSingleKeyCase(const nlohmann::json& value, std::string_view typeName) {
  requireJSONObject(value, typeName);
  if (value.size() != 1) throw JSONDecodingError("Invalid number of keys found, expected one.");
  const auto entry = value.begin();
  try {
    requireJSONObject(entry.value(), std::string(typeName) + "." + entry.key());
  } catch (JSONDecodingError& error) {
    error.prependPathComponent(entry.key());
    throw;
  }
  return SingleKeyCase{entry.key(), entry.value()};
}

void throwUnknownCase(std::string_view name, std::string_view typeName) {
  throw JSONDecodingError("Unknown case \"" + std::string(name) + "\" of " + std::string(typeName) +
                          ".");
}

nlohmann::json encodeSingleKeyCase(std::string_view name, nlohmann::json payload) {
  nlohmann::json json = nlohmann::json::object();
  json[std::string(name)] = std::move(payload);
  return json;
}

namespace detail {

void throwTypeMismatch(std::string_view expected, const nlohmann::json& found) {
  throw JSONDecodingError("Expected " + std::string(expected) + " but found " + found.type_name() +
                          ".");
}

namespace {

constexpr double kTwoToThe63 = 9223372036854775808.0;
constexpr double kTwoToThe64 = 18446744073709551616.0;

// The value of a JSON number written with a fraction or exponent, if it is a whole number.
std::optional<double> wholeNumber(const nlohmann::json& value) {
  const double number = value.get<double>();
  if (!std::isfinite(number) || std::trunc(number) != number) return std::nullopt;
  return number;
}

[[noreturn]] void throwOutOfRange(const nlohmann::json& value) {
  throw JSONDecodingError("The number " + value.dump() + " does not fit the expected integer.");
}

}  // namespace

std::int64_t decodeSignedInteger(const nlohmann::json& value, std::int64_t minimum,
                                 std::int64_t maximum) {
  if (value.is_number_unsigned()) {
    const std::uint64_t number = value.get<std::uint64_t>();
    if (number > static_cast<std::uint64_t>(maximum)) throwOutOfRange(value);
    return static_cast<std::int64_t>(number);
  }
  if (value.is_number_integer()) {
    const std::int64_t number = value.get<std::int64_t>();
    if (number < minimum || number > maximum) throwOutOfRange(value);
    return number;
  }
  if (value.is_number_float()) {
    const std::optional<double> number = wholeNumber(value);
    if (!number) throwTypeMismatch("an integer", value);
    // Powers of two are exact in a double, so this bounds the conversion without rounding.
    if (*number < -kTwoToThe63 || *number >= kTwoToThe63) throwOutOfRange(value);
    const auto integer = static_cast<std::int64_t>(*number);
    if (integer < minimum || integer > maximum) throwOutOfRange(value);
    return integer;
  }
  throwTypeMismatch("an integer", value);
}

std::uint64_t decodeUnsignedInteger(const nlohmann::json& value, std::uint64_t maximum) {
  if (value.is_number_unsigned()) {
    const std::uint64_t number = value.get<std::uint64_t>();
    if (number > maximum) throwOutOfRange(value);
    return number;
  }
  if (value.is_number_integer()) throwOutOfRange(value);  // a negative integer
  if (value.is_number_float()) {
    const std::optional<double> number = wholeNumber(value);
    if (!number) throwTypeMismatch("an integer", value);
    if (*number < 0 || *number >= kTwoToThe64) throwOutOfRange(value);
    const auto integer = static_cast<std::uint64_t>(*number);
    if (integer > maximum) throwOutOfRange(value);
    return integer;
  }
  throwTypeMismatch("an integer", value);
}

}  // namespace detail
}  // namespace tomekeeper
