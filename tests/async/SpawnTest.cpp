#include <glib.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "async/RunUntilDone.h"
#include "async/Sleep.h"
#include "async/Spawn.h"

namespace tomekeeper::async {
namespace {

using namespace std::chrono_literals;

// Collects what the "Tomekeeper" log domain says while it lives.
class LogCapture {
 public:
  LogCapture() {
    handler_ = g_log_set_handler("Tomekeeper", static_cast<GLogLevelFlags>(G_LOG_LEVEL_MASK),
                                 &LogCapture::record, this);
  }
  ~LogCapture() { g_log_remove_handler("Tomekeeper", handler_); }

  std::vector<std::pair<GLogLevelFlags, std::string>> lines;

 private:
  static void record(const gchar*, GLogLevelFlags level, const gchar* message, gpointer data) {
    static_cast<LogCapture*>(data)->lines.emplace_back(
        static_cast<GLogLevelFlags>(level & G_LOG_LEVEL_MASK), message);
  }
  guint handler_ = 0;
};

TEST(SpawnTest, RunsTheTaskToItsEndWithoutAnAwaiter) {
  int steps = 0;
  auto worker = [&]() -> Task<void> {
    ++steps;
    co_await sleepFor(1ms);
    ++steps;
  };
  auto driver = [&]() -> Task<void> {
    spawn(worker());
    while (steps < 2) co_await sleepFor(1ms);
  };
  runUntilDone(driver(), 5s);
  EXPECT_EQ(steps, 2);
}

TEST(SpawnTest, AnEscapingExceptionIsLoggedAsAWarning) {
  LogCapture capture;
  auto failing = []() -> Task<void> {
    co_await sleepFor(1ms);
    throw std::runtime_error("lost write");
  };
  auto driver = [&]() -> Task<void> {
    spawn(failing());
    while (capture.lines.empty()) co_await sleepFor(1ms);
  };
  runUntilDone(driver(), 5s);
  ASSERT_EQ(capture.lines.size(), 1u);
  EXPECT_EQ(capture.lines[0].first, G_LOG_LEVEL_WARNING);
  EXPECT_NE(capture.lines[0].second.find("lost write"), std::string::npos);
}

TEST(SpawnTest, CancellationIsLoggedOnlyAtDebugLevel) {
  LogCapture capture;
  std::stop_source source;
  auto sleeper = []() -> Task<void> { co_await sleepFor(1h); };
  auto driver = [&]() -> Task<void> {
    spawn(sleeper(), source.get_token());
    co_await sleepFor(2ms);
    source.request_stop();
    // The cancelled task's line is the sentinel: the test waits for it, not for a time.
    while (capture.lines.empty()) co_await sleepFor(1ms);
  };
  runUntilDone(driver(), 5s);
  ASSERT_EQ(capture.lines.size(), 1u);
  EXPECT_EQ(capture.lines[0].first, G_LOG_LEVEL_DEBUG);
  EXPECT_NE(capture.lines[0].second.find("cancelled"), std::string::npos);
}

}  // namespace
}  // namespace tomekeeper::async
