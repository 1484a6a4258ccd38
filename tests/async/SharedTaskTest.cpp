#include "async/SharedTask.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "async/RunUntilDone.h"
#include "async/Sleep.h"

namespace tomekeeper::async {
namespace {

using namespace std::chrono_literals;

TEST(SharedTaskTest, RunsOnceAndGivesEveryWaiterTheValue) {
  int runs = 0;
  auto work = [&]() -> Task<int> {
    ++runs;
    co_await sleepFor(5ms);
    co_return 9;
  };
  auto all = [&]() -> Task<int> {
    auto shared = SharedTask<int>::start(work());
    auto waiter = [](SharedTask<int> task) -> Task<int> { co_return co_await task; };
    const int first = co_await waiter(shared);
    const int second = co_await waiter(shared);  // After it finished.
    co_return first + second;
  };
  EXPECT_EQ(runUntilDone(all(), 5s), 18);
  EXPECT_EQ(runs, 1);
}

TEST(SharedTaskTest, EveryWaiterReceivesTheSameFailure) {
  auto work = []() -> Task<int> {
    co_await sleepFor(2ms);
    throw std::runtime_error("hash failed");
  };
  auto all = [&]() -> Task<int> {
    auto shared = SharedTask<int>::start(work());
    int failures = 0;
    for (int waiter = 0; waiter < 3; ++waiter) {
      try {
        co_await shared;
      } catch (const std::runtime_error&) {
        ++failures;
      }
    }
    co_return failures;
  };
  EXPECT_EQ(runUntilDone(all(), 5s), 3);
}

}  // namespace
}  // namespace tomekeeper::async
