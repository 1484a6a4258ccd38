#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "async/Failure.h"

namespace tomekeeper {

// What the reader runtime says when it answers a request with `ok` false.
using BridgeErrorPayload = FailureDetail;

// Why a bridge request did not produce a result. `protocolVersion` carries the
// version the runtime spoke and `runtime` the runtime's own error.
class ReaderBridgeFailure final : public Failure {
 public:
  enum class Case {
    protocolVersion,
    runtime,
    malformedResponse,
    timedOut,
    cancelled,
    navigationReset,
    readerClosed,
    webContentProcessTerminated,
  };

  explicit ReaderBridgeFailure(Case failureCase);
  static ReaderBridgeFailure protocolVersion(std::int64_t version);
  static ReaderBridgeFailure runtime(BridgeErrorPayload payload);

  Case failureCase() const noexcept { return case_; }
  std::int64_t version() const noexcept { return version_; }
  const BridgeErrorPayload& payload() const noexcept { return payload_; }

  std::string_view typeName() const noexcept override { return "ReaderBridgeFailure"; }
  std::string_view caseName() const noexcept override;
  const FailureDetail* detail() const noexcept override {
    return case_ == Case::runtime ? &payload_ : nullptr;
  }

  bool operator==(const ReaderBridgeFailure& other) const {
    return case_ == other.case_ && version_ == other.version_ && payload_ == other.payload_;
  }

 private:
  void describe();

  Case case_;
  std::int64_t version_ = 0;
  BridgeErrorPayload payload_;
};

// Why the web view host could not do what was asked.
TOMEKEEPER_FAILURE(ReaderWebViewHostFailure, closed, alreadyLoading, runtimeLoadFailed,
                   runtimeLoadTimedOut, webContentProcessTerminated);

inline ReaderBridgeFailure::ReaderBridgeFailure(Case failureCase) : case_(failureCase) {
  describe();
}

inline ReaderBridgeFailure ReaderBridgeFailure::protocolVersion(std::int64_t version) {
  ReaderBridgeFailure failure(Case::protocolVersion);
  failure.version_ = version;
  failure.describe();
  return failure;
}

inline ReaderBridgeFailure ReaderBridgeFailure::runtime(BridgeErrorPayload payload) {
  ReaderBridgeFailure failure(Case::runtime);
  failure.payload_ = std::move(payload);
  failure.describe();
  return failure;
}

inline std::string_view ReaderBridgeFailure::caseName() const noexcept {
  return detail::nthName(
      "protocolVersion, runtime, malformedResponse, timedOut, cancelled, navigationReset, "
      "readerClosed, webContentProcessTerminated",
      static_cast<std::size_t>(case_));
}

inline void ReaderBridgeFailure::describe() {
  std::string text = "ReaderBridgeFailure.";
  text += caseName();
  if (case_ == Case::protocolVersion) text += "(" + std::to_string(version_) + ")";
  if (case_ == Case::runtime) text += "(" + payload_.code + ")";
  setReflectiveText(std::move(text));
}

}  // namespace tomekeeper
