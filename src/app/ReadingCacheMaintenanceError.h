#pragma once

#include <string_view>

#include "async/Failure.h"

namespace tomekeeper {

// Why the coordinator refused to clear the reading cache (or, while a clear runs, to open).
// Thrown as ReadingCacheMaintenanceErrorError.
TOMEKEEPER_FAILURE(ReadingCacheMaintenanceError, readersAreOpen, maintenanceInProgress);

// The sentence the settings window shows for the failure.
constexpr std::string_view localizedDescription(ReadingCacheMaintenanceError failure) noexcept {
  switch (failure) {
    case ReadingCacheMaintenanceError::readersAreOpen:
      return "Close all book windows before clearing the reading cache.";
    case ReadingCacheMaintenanceError::maintenanceInProgress:
      return "The reading cache is already being updated. Try again in a moment.";
  }
  return "";
}

}  // namespace tomekeeper
