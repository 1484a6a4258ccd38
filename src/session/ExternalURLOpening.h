#pragma once

#include <string>

namespace tomekeeper {

// The one door to the outside: a web address that the reader clicked in a book. Main executor.
class ExternalURLOpening {
 public:
  virtual ~ExternalURLOpening() = default;
  // Asks the desktop to open `url`; returns whether it did.
  virtual bool open(const std::string& url) = 0;
};

// Opens addresses with the desktop's default handler (GIO).
class SystemExternalURLOpener final : public ExternalURLOpening {
 public:
  bool open(const std::string& url) override;
};

}  // namespace tomekeeper
