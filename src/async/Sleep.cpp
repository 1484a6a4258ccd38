#include "async/Sleep.h"

#include <glib.h>

#include <algorithm>

#include "async/MainContext.h"

namespace tomekeeper::async::detail {

// Lives as long as the timer or a pending stop request refers to it. Touched
// only on the main executor: a stop request from another thread is posted.
struct SleepState {
  std::coroutine_handle<> handle;
  GSource* timer = nullptr;
  bool finished = false;
  bool cancelled = false;

  void finish(bool byCancellation) {
    if (finished) return;
    finished = true;
    cancelled = byCancellation;
    if (timer != nullptr) {
      g_source_destroy(timer);
      g_source_unref(timer);
      timer = nullptr;
    }
    handle.resume();
  }
};

namespace {

gboolean timerFired(gpointer data) {
  auto* state = static_cast<std::shared_ptr<SleepState>*>(data);
  // Keep the state alive while finish() destroys the source that owns `data`.
  std::shared_ptr<SleepState> keep = *state;
  keep->finish(false);
  return G_SOURCE_REMOVE;
}

void releaseTimerState(gpointer data) {
  delete static_cast<std::shared_ptr<SleepState>*>(data);
}

}  // namespace

SleepAwaiter::SleepAwaiter(SleepAwaiter&& other) noexcept
    : duration_(other.duration_), state_(std::move(other.state_)) {}

SleepAwaiter::~SleepAwaiter() = default;

void SleepAwaiter::StopRequest::operator()() const noexcept {
  postToMain([state = state] { state->finish(true); });
}

bool SleepAwaiter::start(std::coroutine_handle<> handle, const std::stop_token& token) {
  state_ = std::make_shared<SleepState>();
  if (token.stop_requested()) {
    state_->finished = true;
    state_->cancelled = true;
    return false;
  }
  state_->handle = handle;
  const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(duration_).count();
  GSource* timer = g_timeout_source_new(static_cast<guint>(std::max<long long>(0, milliseconds)));
  g_source_set_callback(timer, timerFired, new std::shared_ptr<SleepState>(state_),
                        releaseTimerState);
  state_->timer = timer;
  g_source_attach(timer, g_main_context_default());
  if (token.stop_possible()) stopCallback_.emplace(token, StopRequest{state_});
  return true;
}

void SleepAwaiter::await_resume() {
  stopCallback_.reset();
  if (state_->cancelled) throw OperationCancelled();
}

}  // namespace tomekeeper::async::detail
