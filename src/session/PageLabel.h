#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "model/ReadingMode.h"
#include "runtime/BridgeMessages.h"

namespace tomekeeper {

// The toolbar's page label: "Page 3 / 120", or "Spread 2 / 60" with more than one column.
// Absent outside paginated mode, without a position, or with no pages. The page shown is
// clamped to 1...pageCount. Pure.
std::optional<std::string> pageLabel(ReadingMode readingMode,
                                     const std::optional<ReaderPositionResult>& position,
                                     std::int64_t effectiveColumnCount);

}  // namespace tomekeeper
