#pragma once

#include <exception>
#include <optional>
#include <string>
#include <string_view>

namespace tomekeeper {

// A code, message and optional diagnostic that travel with a failure raised
// on behalf of another program (the reader runtime answers with these).
struct FailureDetail {
  std::string code;
  std::string message;
  std::optional<std::string> diagnostic;

  bool operator==(const FailureDetail&) const = default;
};

// Base of every domain failure. Each subsystem declares an enumeration of its
// failures and throws it through one exception type derived from this, so the
// two user-facing mappings can recognise any failure from any layer by its
// reflective text "TypeName.caseName" without depending on that layer.
class Failure : public std::exception {
 public:
  virtual std::string_view typeName() const noexcept = 0;
  virtual std::string_view caseName() const noexcept = 0;

  // Extra data of a failure that carries a payload; none by default.
  virtual const FailureDetail* detail() const noexcept { return nullptr; }

  // "TypeName.caseName", cached for what().
  const std::string& reflectiveText() const noexcept { return reflectiveText_; }
  const char* what() const noexcept override { return reflectiveText_.c_str(); }

 protected:
  void setReflectiveText(std::string text) { reflectiveText_ = std::move(text); }

 private:
  std::string reflectiveText_;
};

// Every failure enumeration supplies, next to its declaration:
//   template <> struct FailureTraits<MyFailure> {
//     static constexpr std::string_view typeName = "MyFailure";
//     static std::string_view caseName(MyFailure);
//   };
template <typename Enumeration>
struct FailureTraits;

// The exception that carries a payload-free failure enumeration.
template <typename Enumeration>
class FailureError final : public Failure {
 public:
  explicit FailureError(Enumeration failure) : failure_(failure) {
    std::string text(FailureTraits<Enumeration>::typeName);
    text += '.';
    text += FailureTraits<Enumeration>::caseName(failure);
    setReflectiveText(std::move(text));
  }

  Enumeration failure() const noexcept { return failure_; }
  std::string_view typeName() const noexcept override {
    return FailureTraits<Enumeration>::typeName;
  }
  std::string_view caseName() const noexcept override {
    return FailureTraits<Enumeration>::caseName(failure_);
  }

 private:
  Enumeration failure_;
};

// Throws `failure` carried by its exception type.
template <typename Enumeration>
[[noreturn]] void throwFailure(Enumeration failure) {
  throw FailureError<Enumeration>(failure);
}

// True when `error` holds exactly `failure`.
template <typename Enumeration>
bool holdsFailure(const std::exception_ptr& error, Enumeration failure) {
  try {
    std::rethrow_exception(error);
  } catch (const FailureError<Enumeration>& thrown) {
    return thrown.failure() == failure;
  } catch (...) {
    return false;
  }
}

}  // namespace tomekeeper
