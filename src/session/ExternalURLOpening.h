#pragma once

#include <string>

namespace tomekeeper {

// The one door to the outside: an address out of the book (web, mail, telephone) that the reader
// clicked. The application's opener asks the reader first (ExternalLinkConsent) and hands the
// address to SystemExternalURLOpener only when they agree. Main executor.
class ExternalURLOpening {
 public:
  virtual ~ExternalURLOpening() = default;
  // Opens `url`, or asks to; returns whether it was opened by the time of the return.
  virtual bool open(const std::string& url) = 0;
};

// Opens addresses with the desktop's default handler (GIO).
class SystemExternalURLOpener final : public ExternalURLOpening {
 public:
  bool open(const std::string& url) override;
};

}  // namespace tomekeeper
