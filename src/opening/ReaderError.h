#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace tomekeeper {

// The class of a failure a reader sees. Raw values equal the case names.
enum class ReaderErrorKind {
  corruptPublication,
  unsupportedFeature,
  readerRuntimeFailed,
  bridgeTimedOut,
  webContentProcessTerminated,
  persistenceFailed,
  operationCancelled,
};
std::string_view rawValue(ReaderErrorKind kind) noexcept;

// The form a failure asks to be shown in.
enum class ReaderErrorPresentation { inline_, alert, blocking };
std::string_view rawValue(ReaderErrorPresentation presentation) noexcept;

// What the application is to do about a failure.
struct ReaderErrorPolicy {
  bool isRetryable = false;
  bool closesPublication = false;
  bool allowsDegradedReading = false;
  ReaderErrorPresentation presentation = ReaderErrorPresentation::inline_;

  bool operator==(const ReaderErrorPolicy&) const = default;
};

// The one record of a user-visible failure: a sentence for the reader, a
// separate diagnostic for the log (never shown), and a policy. It is a value
// and is also thrown, by a session's open among others.
class ReaderError final : public std::exception {
 public:
  ReaderError(ReaderErrorKind kind, std::string userMessage, std::string diagnosticCause,
              ReaderErrorPolicy policy);

  // Maps any failure to what a live reading session shows. Total: every
  // exception, including ones nobody named, gets a record. Pure.
  static ReaderError from(const std::exception_ptr& error) noexcept;

  ReaderErrorKind kind() const noexcept { return kind_; }
  const std::string& userMessage() const noexcept { return userMessage_; }
  const std::string& diagnosticCause() const noexcept { return diagnosticCause_; }
  const ReaderErrorPolicy& policy() const noexcept { return policy_; }

  // The diagnostic, for logs.
  const char* what() const noexcept override { return diagnosticCause_.c_str(); }

  bool operator==(const ReaderError& other) const {
    return kind_ == other.kind_ && userMessage_ == other.userMessage_ &&
           diagnosticCause_ == other.diagnosticCause_ && policy_ == other.policy_;
  }

 private:
  ReaderErrorKind kind_;
  std::string userMessage_;
  std::string diagnosticCause_;
  ReaderErrorPolicy policy_;
};

// The reflective text of any failure: "TypeName.caseName" for the system's
// own failures, "OperationCancelled" for cancellation, and the exception's own
// description for anything else.
std::string reflectiveText(const std::exception_ptr& error) noexcept;

}  // namespace tomekeeper
