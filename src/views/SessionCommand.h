#pragma once

#include <functional>
#include <memory>
#include <stop_token>

#include "async/Task.h"
#include "session/ReaderSession.h"

namespace tomekeeper::views {

// Starts `command` on the main executor and keeps `session` alive until it has finished; a stop
// requested on `stopToken` (the window's, when it closes) cancels it. A failure is already in
// the session's `error` (the banner shows it), so it is not reported again; anything else that
// escapes is logged by spawn. Main executor only.
void runSessionCommand(std::shared_ptr<ReaderSession> session,
                       std::function<async::Task<void>(ReaderSession&)> command,
                       std::stop_token stopToken = {});

}  // namespace tomekeeper::views
