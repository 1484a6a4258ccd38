#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "async/Task.h"

namespace tomekeeper {

// Instrumentation of one open: durations per stage and a few counters. The
// application never binds one; a tool or a test binds a trace to the task
// that opens a book (`bind`), and every stage of the open road marks it when
// it finds one in its task (`current`). Safe to mark from any thread.
class OpenPerformanceTrace {
 public:
  enum class Stage {
    identityCacheLookup,
    fullFingerprint,
    securityScopedAccess,
    extractionCacheValidation,
    archiveInspection,
    archiveExtraction,
    containerValidation,
    cacheCommit,
    runtimePreparation,
    publicationOpen,
    readerSessionReady,
    totalOpen,
  };

  struct State {
    std::map<std::string, double> durationsMS;
    std::optional<std::int64_t> sourceByteCount;
    std::optional<std::int64_t> archiveEntryCount;
    std::optional<bool> extractionCacheHit;
    std::optional<bool> identityCacheHit;
  };

  // The instant a stage began.
  struct Token {
    std::chrono::steady_clock::time_point instant;
  };

  static std::string_view name(Stage stage) noexcept;

  Token start() const { return Token{std::chrono::steady_clock::now()}; }

  // Adds the time since `token` to the stage's total.
  void mark(Stage stage, Token since);

  void setSourceByteCount(std::int64_t count);
  void setArchiveEntryCount(std::int64_t count);
  void setExtractionCacheHit(bool hit);
  void setIdentityCacheHit(bool hit);

  State state() const;

  // `task` with this trace bound to it and to everything it awaits.
  template <typename T>
  static async::Task<T> bind(std::shared_ptr<OpenPerformanceTrace> trace, async::Task<T> task) {
    const async::TaskContext parent = co_await async::currentContext();
    co_return co_await std::move(task).withContext(
        async::TaskContext{parent.stopToken, std::move(trace)});
  }

  // The trace bound to the awaiting task, or none.
  struct CurrentAwaiter : async::CurrentContextAwaiter {
    std::shared_ptr<OpenPerformanceTrace> await_resume() noexcept {
      return std::static_pointer_cast<OpenPerformanceTrace>(context.performanceTrace);
    }
  };
  static CurrentAwaiter current() noexcept { return {}; }

 private:
  mutable std::mutex lock_;
  State state_;
};

}  // namespace tomekeeper
