#include "views/SessionCommand.h"

#include "async/Spawn.h"
#include "opening/ReaderError.h"

namespace tomekeeper::views {

namespace {

async::Task<void> runCommand(std::shared_ptr<ReaderSession> session,
                             std::function<async::Task<void>(ReaderSession&)> command) {
  try {
    co_await command(*session);
  } catch (const ReaderError&) {
    // Recorded by the session and shown by the screen's banner.
  }
}

}  // namespace

void runSessionCommand(std::shared_ptr<ReaderSession> session,
                       std::function<async::Task<void>(ReaderSession&)> command,
                       std::stop_token stopToken) {
  async::spawn(runCommand(std::move(session), std::move(command)), std::move(stopToken));
}

}  // namespace tomekeeper::views
