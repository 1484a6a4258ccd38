#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "async/Completion.h"
#include "async/RunUntilDone.h"
#include "async/Sleep.h"
#include "async/Spawn.h"

namespace tomekeeper::async {
namespace {

using namespace std::chrono_literals;

TEST(CompletionTest, ALaterResolveResumesTheWaiterWithItsValue) {
  Completion<std::string> completion;
  auto resolver = [&]() -> Task<void> {
    co_await sleepFor(5ms);
    completion.resolve("reply");
  };
  auto waiter = [&]() -> Task<std::string> {
    spawn(resolver());
    co_return co_await completion;
  };
  EXPECT_EQ(runUntilDone(waiter(), 5s), "reply");
}

TEST(CompletionTest, AResultThatArrivedBeforeTheAwaitIsTakenAtOnce) {
  Completion<int> completion;
  EXPECT_TRUE(completion.resolve(3));
  auto waiter = [&]() -> Task<int> { co_return co_await completion; };
  EXPECT_EQ(runUntilDone(waiter(), 5s), 3);
}

TEST(CompletionTest, OnlyTheFirstSettlementCounts) {
  Completion<int> completion;
  EXPECT_TRUE(completion.resolve(1));
  EXPECT_FALSE(completion.resolve(2));
  EXPECT_FALSE(completion.reject(std::make_exception_ptr(std::runtime_error("late"))));
  auto waiter = [&]() -> Task<int> { co_return co_await completion; };
  EXPECT_EQ(runUntilDone(waiter(), 5s), 1);
}

TEST(CompletionTest, RejectionReachesTheWaiter) {
  Completion<void> completion;
  auto waiter = [&]() -> Task<void> {
    completion.reject(std::make_exception_ptr(std::runtime_error("runtime failed")));
    co_await completion;
  };
  EXPECT_THROW(runUntilDone(waiter(), 5s), std::runtime_error);
}

TEST(CompletionTest, TheWaiterIsNeverResumedInsideTheResolvingCall) {
  Completion<int> completion;
  bool resumed = false;
  bool resumedInsideResolve = false;
  auto waiter = [&]() -> Task<void> {
    co_await completion;
    resumed = true;
  };
  auto driver = [&]() -> Task<void> {
    spawn(waiter());
    co_await sleepFor(1ms);
    completion.resolve(1);
    resumedInsideResolve = resumed;
    while (!resumed) co_await sleepFor(1ms);
  };
  runUntilDone(driver(), 5s);
  EXPECT_FALSE(resumedInsideResolve);
  EXPECT_TRUE(resumed);
}

TEST(CompletionTest, DestroyingAPendingCompletionCancelsItsWaiter) {
  auto completion = std::make_unique<Completion<int>>();
  auto destroyer = [&]() -> Task<void> {
    co_await sleepFor(5ms);
    completion.reset();
  };
  auto waiter = [&]() -> Task<int> {
    spawn(destroyer());
    co_return co_await *completion;
  };
  EXPECT_THROW(runUntilDone(waiter(), 5s), OperationCancelled);
}

}  // namespace
}  // namespace tomekeeper::async
