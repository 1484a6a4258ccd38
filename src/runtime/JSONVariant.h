#pragma once

#include <glib.h>

#include <nlohmann/json.hpp>

namespace tomekeeper {

// A new floating GVariant that WebKit turns into the same JavaScript value as `value`: an
// object becomes a{sv}, an array av, a string s, a boolean b, an integer x or t, any other
// number d, and null an empty maybe (mv), which arrives as null. Pure; any thread.
GVariant* variantFromJSON(const nlohmann::json& value);

}  // namespace tomekeeper
