#pragma once

#include <stop_token>

#include "async/Task.h"

namespace tomekeeper::async {

// Starts `task` on the main executor and lets it run to its end on its own.
// Whoever needs to stop it keeps the stop source behind `stopToken`. An
// exception that escapes the task is logged, at debug level for
// OperationCancelled and as a warning for anything else; it is never lost
// silently. Call on the main executor.
void spawn(Task<void> task, std::stop_token stopToken = {});

}  // namespace tomekeeper::async
