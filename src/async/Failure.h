#pragma once

#include <cstddef>
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

namespace detail {

// The `index`-th name of a comma-separated list such as "first, second".
constexpr std::string_view nthName(std::string_view names, std::size_t index) {
  for (; index > 0; --index) names.remove_prefix(names.find(',') + 1);
  names = names.substr(0, names.find(','));
  while (!names.empty() && names.front() == ' ') names.remove_prefix(1);
  while (!names.empty() && names.back() == ' ') names.remove_suffix(1);
  return names;
}

}  // namespace detail

// The exception that carries a payload-free failure enumeration declared with
// TOMEKEEPER_FAILURE.
template <typename Enumeration>
class FailureError final : public Failure {
 public:
  explicit FailureError(Enumeration failure) : failure_(failure) {
    std::string text(failureTypeName(failure));
    text += '.';
    text += failureCaseName(failure);
    setReflectiveText(std::move(text));
  }

  Enumeration failure() const noexcept { return failure_; }
  std::string_view typeName() const noexcept override { return failureTypeName(failure_); }
  std::string_view caseName() const noexcept override { return failureCaseName(failure_); }

 private:
  Enumeration failure_;
};

// Declares a failure enumeration without payloads, its reflective names, and
// its exception type NameError. Cases are numbered from 0 in the order given.
#define TOMEKEEPER_FAILURE(Name, ...)                                                    \
  enum class Name { __VA_ARGS__ };                                                       \
  constexpr std::string_view failureTypeName(Name) noexcept {                            \
    return #Name;                                                                        \
  }                                                                                      \
  constexpr std::string_view failureCaseName(Name value) noexcept {                      \
    return ::tomekeeper::detail::nthName(#__VA_ARGS__, static_cast<std::size_t>(value)); \
  }                                                                                      \
  using Name##Error = ::tomekeeper::FailureError<Name>

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
