#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <thread>

#include "async/BackgroundPool.h"
#include "async/RunUntilDone.h"
#include "async/Sleep.h"
#include "async/Task.h"

namespace tomekeeper::async {
namespace {

using namespace std::chrono_literals;

Task<int> answer() {
  co_return 42;
}

Task<int> failDeep() {
  co_await runInBackground([] { return 0; });
  throw std::runtime_error("deep failure");
}
Task<int> middle() {
  co_return co_await failDeep() + 1;
}
Task<int> outer() {
  co_return co_await middle() + 1;
}

TEST(TaskTest, ReturnsTheValueOfItsBody) {
  EXPECT_EQ(runUntilDone(answer(), 5s), 42);
}

TEST(TaskTest, ExceptionCrossesThreeAwaitsUnchanged) {
  try {
    runUntilDone(outer(), 5s);
    FAIL() << "expected the failure to reach the outermost awaiter";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "deep failure");
  }
}

TEST(TaskTest, DoesNotRunUntilAwaited) {
  bool ran = false;
  auto make = [&]() -> Task<void> {
    ran = true;
    co_return;
  };
  {
    Task<void> task = make();
    EXPECT_FALSE(ran);
  }
  EXPECT_FALSE(ran) << "destroying an unstarted task must not run it";
  runUntilDone(make(), 5s);
  EXPECT_TRUE(ran);
}

TEST(TaskTest, BackgroundWorkRunsOffTheCallingThreadAndResumesOnIt) {
  const auto mainThread = std::this_thread::get_id();
  auto task = [&]() -> Task<bool> {
    const auto workerThread = co_await runInBackground([] { return std::this_thread::get_id(); });
    co_return workerThread != mainThread&& std::this_thread::get_id() == mainThread;
  };
  EXPECT_TRUE(runUntilDone(task(), 5s));
}

TEST(TaskTest, ChildTaskInheritsTheParentsStopToken) {
  std::stop_source source;
  auto child = []() -> Task<bool> {
    const TaskContext context = co_await currentContext();
    co_return context.stopToken.stop_requested();
  };
  auto parent = [&]() -> Task<bool> {
    source.request_stop();
    co_return co_await child();
  };
  EXPECT_TRUE(runUntilDone(parent(), 5s, source.get_token()));
}

TEST(TaskTest, BackgroundFunctionReceivesTheTokenAndCanStopBetweenChunks) {
  std::stop_source source;
  auto task = [&]() -> Task<int> {
    co_return co_await runInBackground([&](std::stop_token token) {
      int chunks = 0;
      while (chunks < 1000) {
        if (chunks == 3) source.request_stop();
        throwIfCancelled(token);
        ++chunks;
      }
      return chunks;
    });
  };
  EXPECT_THROW(runUntilDone(task(), 5s, source.get_token()), OperationCancelled);
}

TEST(TaskTest, BackgroundFunctionDoesNotRunWhenAlreadyCancelled) {
  std::stop_source source;
  source.request_stop();
  bool ran = false;
  auto task = [&]() -> Task<void> { co_await runInBackground([&] { ran = true; }); };
  EXPECT_THROW(runUntilDone(task(), 5s, source.get_token()), OperationCancelled);
  EXPECT_FALSE(ran);
}

TEST(TaskTest, CheckCancellationThrowsOnlyAfterAStopRequest) {
  std::stop_source source;
  auto task = [&]() -> Task<int> {
    co_await checkCancellation();
    source.request_stop();
    co_await checkCancellation();
    co_return 1;
  };
  EXPECT_THROW(runUntilDone(task(), 5s, source.get_token()), OperationCancelled);
}

TEST(TaskTest, RunUntilDoneGivesUpOnATaskThatNeverFinishes) {
  auto hung = []() -> Task<void> { co_await sleepFor(1h); };
  EXPECT_THROW(runUntilDone(hung(), 50ms), TaskTimedOut);
}

// The pattern of every task that outlives its call: it holds its object
// weakly and finds it gone after an await.
class Owner : public std::enable_shared_from_this<Owner> {
 public:
  int touched = 0;
  Task<bool> work(std::shared_ptr<Owner>* slot) {
    std::weak_ptr<Owner> weak = weak_from_this();
    // The last strong reference goes away while the background work runs.
    co_await runInBackground([] { std::this_thread::sleep_for(10ms); });
    slot->reset();
    co_await runInBackground([] {});
    auto self = weak.lock();
    if (!self) co_return false;
    ++self->touched;
    co_return true;
  }
};

TEST(TaskTest, TaskThatOutlivesItsOwnerFindsItGoneThroughAWeakReference) {
  auto owner = std::make_shared<Owner>();
  std::weak_ptr<Owner> observer = owner;
  Owner* raw = owner.get();
  EXPECT_FALSE(runUntilDone(raw->work(&owner), 5s));
  EXPECT_TRUE(observer.expired());
}

}  // namespace
}  // namespace tomekeeper::async
