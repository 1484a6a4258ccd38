#pragma once

#include <exception>
#include <string>

namespace tomekeeper {

// What the alert after a failed open shows: a title and a message for the
// user, and a diagnostic that only goes to the log.
struct DocumentOpenErrorPresentation {
  std::string title;
  std::string message;
  std::string diagnostic;

  // Maps any failure of an open to its alert. Total and pure.
  static DocumentOpenErrorPresentation from(const std::exception_ptr& error) noexcept;

  bool operator==(const DocumentOpenErrorPresentation&) const = default;
};

}  // namespace tomekeeper
