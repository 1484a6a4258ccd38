#include <glib.h>
#include <gtest/gtest.h>

#include <thread>
#include <utility>
#include <vector>

#include "async/BackgroundPool.h"
#include "async/RunUntilDone.h"
#include "async/Sleep.h"
#include "async/Spawn.h"

namespace tomekeeper::async {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

TEST(SleepTest, ResumesAfterAtLeastTheDuration) {
  auto task = []() -> Task<Clock::duration> {
    const auto start = Clock::now();
    co_await sleepFor(30ms);
    co_return Clock::now() - start;
  };
  EXPECT_GE(runUntilDone(task(), 5s), 30ms);
}

TEST(SleepTest, CancelledBeforeItStartsThrowsWithoutWaiting) {
  std::stop_source source;
  source.request_stop();
  auto task = []() -> Task<void> { co_await sleepFor(1h); };
  EXPECT_THROW(runUntilDone(task(), 5s, source.get_token()), OperationCancelled);
}

TEST(SleepTest, CancelledDuringTheSleepEndsItAtOnce) {
  std::stop_source source;
  auto stopper = [&]() -> Task<void> {
    co_await sleepFor(20ms);
    source.request_stop();
  };
  auto sleeper = [&]() -> Task<void> {
    spawn(stopper());
    co_await sleepFor(1h);
  };
  EXPECT_THROW(runUntilDone(sleeper(), 5s, source.get_token()), OperationCancelled);
}

TEST(SleepTest, CancelledFromAnotherThreadDuringTheSleep) {
  std::stop_source source;
  auto sleeper = [&]() -> Task<void> {
    std::thread([&] {
      std::this_thread::sleep_for(20ms);
      source.request_stop();
    }).detach();
    co_await sleepFor(1h);
  };
  EXPECT_THROW(runUntilDone(sleeper(), 5s, source.get_token()), OperationCancelled);
}

TEST(SleepTest, StopAfterTheSleepEndedHasNoEffectOnIt) {
  std::stop_source source;
  auto task = [&]() -> Task<int> {
    co_await sleepFor(1ms);
    source.request_stop();
    co_return 5;
  };
  EXPECT_EQ(runUntilDone(task(), 5s, source.get_token()), 5);
  // Whatever the stop request queued for the finished sleep runs now, after
  // its task is gone; the sanitizers watch that it touches nothing freed.
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
}

TEST(SleepTest, ManySleepersEachSleepAtLeastTheirDuration) {
  // GLib dispatches timers that became ready in the same iteration in the
  // order they were attached, so under load the wake order is not the
  // deadline order; what holds is that nobody wakes early and everyone wakes.
  std::vector<std::pair<int, std::chrono::steady_clock::duration>> woke;
  const auto start = std::chrono::steady_clock::now();
  auto one = [&](int milliseconds) -> Task<void> {
    co_await sleepFor(std::chrono::milliseconds(milliseconds));
    woke.emplace_back(milliseconds, std::chrono::steady_clock::now() - start);
  };
  auto all = [&]() -> Task<void> {
    spawn(one(40));
    spawn(one(10));
    spawn(one(25));
    while (woke.size() < 3) co_await sleepFor(5ms);
  };
  runUntilDone(all(), 5s);
  ASSERT_EQ(woke.size(), 3u);
  for (const auto& [milliseconds, elapsed] : woke) {
    EXPECT_GE(elapsed, std::chrono::milliseconds(milliseconds)) << milliseconds;
  }
}

}  // namespace
}  // namespace tomekeeper::async
