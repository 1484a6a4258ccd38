#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "model/JSONCoding.h"

namespace tomekeeper {

// `value` written to JSON text and read back, as a store on disk would see it.
template <typename T>
T roundTrip(const T& value) {
  const std::string text = nlohmann::json(value).dump();
  return decodeJSON<T>(nlohmann::json::parse(text));
}

// The compact text of `value`; nlohmann-json writes object keys sorted, so this is stable.
template <typename T>
std::string encoded(const T& value) {
  return nlohmann::json(value).dump();
}

template <typename T>
T decoded(const std::string& text) {
  return decodeJSON<T>(nlohmann::json::parse(text));
}

}  // namespace tomekeeper
