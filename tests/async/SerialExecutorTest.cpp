#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "async/RunUntilDone.h"
#include "async/SerialExecutor.h"
#include "async/Spawn.h"

namespace tomekeeper::async {
namespace {

using namespace std::chrono_literals;

TEST(SerialExecutorTest, RunsJobsOneAtATimeInSubmissionOrderUnderLoad) {
  SerialExecutor executor;
  std::vector<int> order;  // Touched only by the executor's jobs.
  std::atomic<int> running = 0;
  std::atomic<int> overlaps = 0;
  constexpr int kTasks = 200;
  int finished = 0;

  auto one = [&](int index) -> Task<void> {
    co_await executor.run([&, index] {
      if (running.fetch_add(1) != 0) overlaps.fetch_add(1);
      // Vary the work so that a broken executor would reorder.
      if (index % 7 == 0) std::this_thread::sleep_for(100us);
      order.push_back(index);
      running.fetch_sub(1);
    });
    ++finished;
  };
  auto all = [&]() -> Task<void> {
    for (int index = 0; index < kTasks; ++index) spawn(one(index));
    while (finished < kTasks) co_await executor.run([] {});
  };
  runUntilDone(all(), 30s);

  ASSERT_EQ(order.size(), static_cast<size_t>(kTasks));
  for (int index = 0; index < kTasks; ++index) EXPECT_EQ(order[index], index);
  EXPECT_EQ(overlaps.load(), 0);
}

TEST(SerialExecutorTest, JobsFromManyThreadsNeverOverlap) {
  SerialExecutor executor;
  std::atomic<int> running = 0;
  std::atomic<int> overlaps = 0;
  std::atomic<int> done = 0;
  std::vector<std::thread> submitters;
  for (int thread = 0; thread < 4; ++thread) {
    submitters.emplace_back([&] {
      for (int job = 0; job < 250; ++job) {
        executor.submit([&] {
          if (running.fetch_add(1) != 0) overlaps.fetch_add(1);
          running.fetch_sub(1);
          done.fetch_add(1);
        });
      }
    });
  }
  for (auto& submitter : submitters) submitter.join();
  const auto deadline = std::chrono::steady_clock::now() + 30s;
  while (done.load() < 1000 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(1ms);
  }
  EXPECT_EQ(done.load(), 1000);
  EXPECT_EQ(overlaps.load(), 0);
}

TEST(SerialExecutorTest, AFailingJobReachesItsAwaiterAndTheNextJobStillRuns) {
  SerialExecutor executor;
  auto task = [&]() -> Task<int> {
    try {
      co_await executor.run([]() -> int { throw std::runtime_error("write failed"); });
    } catch (const std::runtime_error&) {
    }
    co_return co_await executor.run([] { return 7; });
  };
  EXPECT_EQ(runUntilDone(task(), 5s), 7);
}

TEST(SerialExecutorTest, QueuedJobsFinishAfterTheExecutorIsDestroyed) {
  std::atomic<int> done = 0;
  {
    SerialExecutor executor;
    for (int job = 0; job < 50; ++job) executor.submit([&] { done.fetch_add(1); });
  }
  const auto deadline = std::chrono::steady_clock::now() + 10s;
  while (done.load() < 50 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(1ms);
  }
  EXPECT_EQ(done.load(), 50);
}

}  // namespace
}  // namespace tomekeeper::async
