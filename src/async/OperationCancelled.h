#pragma once

#include <exception>

namespace tomekeeper::async {

// The one error of cooperative cancellation. Anything that notices a stop
// request on its token throws this, and callers let it travel up unchanged.
class OperationCancelled final : public std::exception {
 public:
  const char* what() const noexcept override { return "OperationCancelled"; }
};

}  // namespace tomekeeper::async
