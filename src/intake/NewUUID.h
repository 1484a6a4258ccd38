#pragma once

#include <string>

namespace tomekeeper {

// A new random UUID in upper case with hyphens, for the names of staging and
// operation directories. Any thread.
std::string newUpperCaseUUIDString();

}  // namespace tomekeeper
